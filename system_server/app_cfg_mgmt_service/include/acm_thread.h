#ifndef ACM_THREAD_H
#define ACM_THREAD_H

#include <functional>
#include <pthread.h>

namespace SystemServer {

// A thread of an item, with a stack of THREAD_STACK_BYTES: the standard library's threads take the process's
// default, and three of 8 MiB for each of a thousand items do not fit into 32 bits of address space.
// Must be joined before it is destroyed.
class AcmThread {
public:
    // Throws std::system_error when there is no thread to be had.
    explicit AcmThread(std::function<void()> work);
    AcmThread(const AcmThread&) = delete;
    AcmThread& operator=(const AcmThread&) = delete;

    void join();

private:
    static void* Run(void* self) noexcept;

    const std::function<void()> m_work;
    pthread_t m_thread{};
};

} // namespace SystemServer

#endif
