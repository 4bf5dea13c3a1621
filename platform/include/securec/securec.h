// Bounds-checked copying.
#ifndef SECUREC_SECUREC_H
#define SECUREC_SECUREC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Copies count bytes. 0, or non-zero with nothing copied when a pointer is null or count exceeds destMax.
int memcpy_s(void* dest, size_t destMax, const void* src, size_t count);

#ifdef __cplusplus
}
#endif

#endif
