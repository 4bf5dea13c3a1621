// The public headers, declared visible: everything else in the library is hidden. Sources of the library
// include this instead of the public headers.
#ifndef KESTREL_EXPORTS_H
#define KESTREL_EXPORTS_H

#pragma GCC visibility push(default)
#include "kestrel/kestrel.h"
#include "kestrel/kestrel_host.h"
#include "pl/pl_log.h"
#include "pl/pl_log_control.h"
#include "securec/securec.h"
#include "tern/tern.h"
#pragma GCC visibility pop

#endif
