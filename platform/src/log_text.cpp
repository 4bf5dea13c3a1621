#include "log_text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Kestrel {

namespace {

// The length of the character at the front when it can be shown: ASCII or well-formed UTF-8, and no control
// character of either. 0 when its first byte cannot.
std::size_t Showable(const char* text, std::size_t left) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    // Below it lie the control characters U+0080 to U+009F, and longer forms of shorter characters.
    const unsigned lowest = first == 0xC2 || first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    if (first < 0xC2 || first > 0xF4 || left < length || byte(1) < lowest) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return length;
}

} // namespace

LogText::~LogText() {
    if (m_text != m_stack) {
        std::free(m_text);
    }
}

void LogText::Format(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    FormatList(format, arguments);
    va_end(arguments);
}

void LogText::FormatList(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int needed = std::vsnprintf(m_text + m_length, m_room - m_length, format, arguments);
    if (needed > 0) {
        const std::size_t wanted = std::min(static_cast<std::size_t>(needed), LOG_MAX_TEXT);
        if (wanted >= m_room - m_length && Reserve(m_length + wanted)) {
            std::vsnprintf(m_text + m_length, m_room - m_length, format, again);
        }
        m_length += std::min(wanted, m_room - m_length - 1);
    }
    va_end(again);
    m_text[m_length] = '\0';
}

void LogText::AppendEscaped(const char* text, std::size_t length) {
    const char* end = text + length;
    while (text < end) {
        const char* plain = text;
        std::size_t shown = 0;
        while (plain < end && (shown = Showable(plain, static_cast<std::size_t>(end - plain))) > 0) {
            plain += shown;
        }
        Append(text, static_cast<std::size_t>(plain - text));
        text = plain;
        if (text < end) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x",
                          static_cast<unsigned>(static_cast<unsigned char>(*text++)));
            Append(code, 4);
        }
    }
}

void LogText::Append(const char* text, std::size_t length) {
    if (length >= m_room - m_length && !Reserve(m_length + length)) {
        length = m_room - m_length - 1;
    }
    std::memcpy(m_text + m_length, text, length);
    m_length += length;
    m_text[m_length] = '\0';
}

// Room for so much text and its NUL; grows by doubling.
bool LogText::Reserve(std::size_t length) {
    const std::size_t room = std::max(length + 1, m_room * 2);
    auto* grown = static_cast<char*>(std::realloc(m_text == m_stack ? nullptr : m_text, room));
    if (grown == nullptr) {
        return false;
    }
    if (m_text == m_stack) {
        std::memcpy(grown, m_stack, m_length);
    }
    m_text = grown;
    m_room = room;
    return true;
}

} // namespace Kestrel
