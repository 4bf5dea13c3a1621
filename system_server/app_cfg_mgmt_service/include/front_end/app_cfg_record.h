// Reading the fields of records that came from outside: nothing is read beyond the field.
#ifndef APP_CFG_RECORD_H
#define APP_CFG_RECORD_H

#include <cstddef>
#include <cstring>
#include <string>

#include "app_cfg_wire.h"

namespace SystemServer {

// Text up to its first NUL, or all of it.
inline std::string BoundedText(const char* text, size_t size) {
    return std::string(text, strnlen(text, size));
}

template <size_t Size>
std::string FieldText(const char (&field)[Size]) {
    return BoundedText(field, Size);
}

// Every record begins with the handle, or is one.
inline const AppCfgHndl& HandleOf(const AppCfgHndl& record) {
    return record;
}

template <typename Record>
const AppCfgHndl& HandleOf(const Record& record) {
    return record.hndl;
}

} // namespace SystemServer

#endif
