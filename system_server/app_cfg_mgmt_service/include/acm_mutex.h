// Mutexes whose guarding clang checks: ./dev lint fails where a member is reached without its lock. To other
// compilers the annotations are nothing and these are plain mutexes.
#ifndef ACM_MUTEX_H
#define ACM_MUTEX_H

#include <mutex>

#ifdef __clang__
#define ACM_ANNOTATION(annotation) __attribute__((annotation))
#else
#define ACM_ANNOTATION(annotation)
#endif

// Of a member, or of what a pointer leads to: reached under the mutex alone.
#define ACM_GUARDED_BY(mutex) ACM_ANNOTATION(guarded_by(mutex))
#define ACM_PT_GUARDED_BY(mutex) ACM_ANNOTATION(pt_guarded_by(mutex))
// Of a function: called under the mutex alone.
#define ACM_REQUIRES(mutex) ACM_ANNOTATION(requires_capability(mutex))

namespace SystemServer {

class ACM_ANNOTATION(capability("mutex")) AcmMutex : public std::mutex {
public:
    void lock() ACM_ANNOTATION(acquire_capability()) { std::mutex::lock(); }
    void unlock() ACM_ANNOTATION(release_capability()) { std::mutex::unlock(); }
    // In a lambda that runs under the mutex, which the check cannot see.
    void AssertHeld() const ACM_ANNOTATION(assert_capability(this)) {}
};

class ACM_ANNOTATION(scoped_lockable) AcmLock {
public:
    explicit AcmLock(AcmMutex& mutex) ACM_ANNOTATION(acquire_capability(mutex)) : m_mutex(mutex) {
        m_mutex.lock();
    }
    AcmLock(const AcmLock&) = delete;
    AcmLock& operator=(const AcmLock&) = delete;
    ~AcmLock() ACM_ANNOTATION(release_capability()) { m_mutex.unlock(); }

private:
    AcmMutex& m_mutex;
};

} // namespace SystemServer

#endif
