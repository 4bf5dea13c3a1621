#include "acm_thread.h"

#include <system_error>
#include <utility>

#include "app_cfg_limits.h"

namespace SystemServer {

AcmThread::AcmThread(std::function<void()> work) : m_work(std::move(work)) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error == 0) {
        error = pthread_attr_setstacksize(&attributes, THREAD_STACK_BYTES);
        error = error != 0 ? error : pthread_create(&m_thread, &attributes, &AcmThread::Run, this);
        pthread_attr_destroy(&attributes);
    }
    if (error != 0) {
        throw std::system_error(error, std::generic_category());
    }
}

void* AcmThread::Run(void* self) noexcept {
    static_cast<AcmThread*>(self)->m_work();
    return nullptr;
}

void AcmThread::join() {
    pthread_join(m_thread, nullptr);
}

} // namespace SystemServer
