#ifndef PICTURE_H
#define PICTURE_H

#include <string>
#include <vector>

#include "process_sample.h"

namespace Endurance {

// The samples over time as an SVG: memory, threads and descriptors, replies per second.
std::string Picture(const std::string& title, const std::vector<ProcessSample>& samples);

} // namespace Endurance

#endif
