#ifndef KESTREL_LOG_TEXT_H
#define KESTREL_LOG_TEXT_H

#include <cstdarg>
#include <cstddef>

#include "limits.h"

namespace Kestrel {

// Text that begins on the stack and moves to the heap when it outgrows it. Where there is no memory it is
// cut off; it never throws. Used by one log call.
class LogText {
public:
    LogText() = default;
    ~LogText();
    LogText(const LogText&) = delete;
    LogText& operator=(const LogText&) = delete;

    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void FormatList(const char* format, std::va_list arguments) __attribute__((format(printf, 2, 0)));

    // Appends with control characters, and bytes that are no UTF-8, written as \xNN: no client can forge a
    // line or steer a terminal.
    void AppendEscaped(const char* text, std::size_t length);
    void Append(const char* text, std::size_t length);

    const char* Text() const { return m_text; } // ends with a NUL
    std::size_t Length() const { return m_length; }

private:
    bool Reserve(std::size_t length);

    char m_stack[LOG_STACK_TEXT] = "";
    char* m_text = m_stack;
    std::size_t m_room = sizeof m_stack;
    std::size_t m_length = 0;
};

} // namespace Kestrel

#endif
