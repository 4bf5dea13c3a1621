#include <cerrno>
#include <cstring>

#include "exports.h"

extern "C" int memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    if (dest == nullptr || src == nullptr) {
        return EINVAL;
    }
    if (count > destMax) {
        return ERANGE;
    }
    std::memmove(dest, src, count);
    return 0;
}
