#ifndef ACM_DESCRIPTOR_H
#define ACM_DESCRIPTOR_H

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/types.h>
#include <unistd.h>

namespace SystemServer {

// Closes a descriptor at the end of its scope. A negative number stands for no descriptor.
class AcmDescriptor {
public:
    explicit AcmDescriptor(int fd) : m_fd(fd) {}
    AcmDescriptor(const AcmDescriptor&) = delete;
    AcmDescriptor& operator=(const AcmDescriptor&) = delete;
    ~AcmDescriptor() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }

    int Get() const { return m_fd; }

private:
    const int m_fd;
};

// Opens a path; -1 with errno when that fails. Without O_NONBLOCK, opening a FIFO would wait for its other
// end; for a regular file the flag changes nothing.
inline int OpenPromptly(const std::string& path, int flags, mode_t mode = 0) {
    int fd = -1;
    do {
        fd = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Whether this error of fsync says only that the file system cannot sync such a file: no data is known to be
// lost.
inline bool CannotSync(int error) {
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

} // namespace SystemServer

#endif
