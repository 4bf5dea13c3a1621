// Values are text on the wire; this is how typed ones are read and written, independent of the locale.
#ifndef APPCFG_VALUE_H
#define APPCFG_VALUE_H

#include <charconv>
#include <string>
#include <string_view>
#include <type_traits>

#include "appcfg/error.h"

namespace appcfg {

// "true", "yes", "on", "1" and "false", "no", "off", "0", in either case.
bool ParseBool(std::string_view text);

[[noreturn]] void ThrowValueError(std::string_view text, const char* expected);

// A decimal number that fills the whole text and fits the type, or a bool; ValueError otherwise.
template <class T>
T ParseValue(std::string_view text) {
    static_assert(std::is_arithmetic_v<T>, "values are bools, integers or floating-point numbers");
    if constexpr (std::is_same_v<T, bool>) {
        return ParseBool(text);
    } else {
        T value{};
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (error != std::errc() || stop != end) {
            ThrowValueError(text, std::is_integral_v<T> ? "an integer in range" : "a number");
        }
        return value;
    }
}

// The shortest text that ParseValue reads back as the same value.
template <class T>
std::string FormatValue(T value) {
    static_assert(std::is_arithmetic_v<T>, "values are bools, integers or floating-point numbers");
    if constexpr (std::is_same_v<T, bool>) {
        return value ? "true" : "false";
    } else {
        char text[64]; // the longest shortest form of a double has 24 characters
        const auto result = std::to_chars(text, text + sizeof(text), value);
        return std::string(text, result.ptr);
    }
}

} // namespace appcfg

#endif
