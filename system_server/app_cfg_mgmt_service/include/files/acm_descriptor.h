#ifndef ACM_DESCRIPTOR_H
#define ACM_DESCRIPTOR_H

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/types.h>
#include <unistd.h>

namespace SystemServer {

// Closes a descriptor at the end of its scope; a negative one is none.
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

// A descriptor, or -1 with errno. Without O_NONBLOCK, opening a FIFO would wait for its other end; a regular
// file takes no notice of it.
inline int OpenPromptly(const std::string& path, int flags, mode_t mode = 0) {
    int fd = -1;
    do {
        fd = open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Whether an fsync that failed so has failed for want of anything to sync with: nothing is known to be lost.
inline bool CannotSync(int error) {
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

} // namespace SystemServer

#endif
