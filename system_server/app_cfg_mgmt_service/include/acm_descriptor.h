#ifndef ACM_DESCRIPTOR_H
#define ACM_DESCRIPTOR_H

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

} // namespace SystemServer

#endif
