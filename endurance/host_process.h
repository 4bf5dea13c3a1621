#ifndef ENDURANCE_HOST_PROCESS_H
#define ENDURANCE_HOST_PROCESS_H

#include "support/host_process.h"

namespace Endurance {

using Support::HostProcess;

} // namespace Endurance

#endif
