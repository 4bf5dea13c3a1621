#include "waiting.h"

#include <chrono>
#include <string>

namespace appcfg::cli {
namespace {

constexpr char TEXT[] = "waiting for the service ...";

} // namespace

Waiting::Waiting(std::ostream* terminal) : m_terminal(terminal) {
    if (m_terminal != nullptr) {
        m_thread = std::thread([this] { Show(); });
    }
}

Waiting::~Waiting() {
    if (m_thread.joinable()) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_isOver = true;
        }
        m_over.notify_one();
        m_thread.join();
    }
}

void Waiting::Show() {
    const auto isOver = [this] { return m_isOver; };
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_over.wait_for(lock, std::chrono::seconds(1), isOver)) {
        *m_terminal << TEXT << std::flush;
        m_over.wait(lock, isOver);
        *m_terminal << '\r' << std::string(sizeof TEXT, ' ') << '\r' << std::flush;
    }
}

} // namespace appcfg::cli
