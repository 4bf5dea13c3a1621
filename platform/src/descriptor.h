#ifndef KESTREL_DESCRIPTOR_H
#define KESTREL_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace Kestrel {

// Owns one file descriptor from the line that obtains it. Not shared between threads.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    int Get() const { return m_fd; }
    bool IsOpen() const { return m_fd >= 0; }
    int Release() { return std::exchange(m_fd, -1); }
    void Close() {
        if (IsOpen()) {
            ::close(Release());
        }
    }

private:
    int m_fd;
};

} // namespace Kestrel

#endif
