#ifndef TALLY_H
#define TALLY_H

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "appcfg/error.h"

namespace Endurance {

// What all clients did and met, and whether they go on. Owned by main, used by every thread.
class Tally {
public:
    void Count(appcfg::Request request, uint16_t status) {
        ++m_replies;
        Count(appcfg::RequestName(request) + (status == 200 ? "" : ", refused " + std::to_string(status)));
    }
    // Something that is no request of the client library: "stalls", "cut frames", ...
    void Count(const std::string& what) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_counts[what];
    }

    // Replies so far.
    uint64_t Replies() const { return m_replies; }

    // Ends the run; the first text is kept.
    void Fail(const std::string& text) {
        m_ended = true;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_failure = m_failure.empty() ? text : m_failure;
    }
    void End() { m_ended = true; }
    bool HasEnded() const { return m_ended; }

    // The first failure, or nothing.
    std::string Failure() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_failure;
    }
    // How often each thing was met.
    std::map<std::string, uint64_t> Counts() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_counts;
    }

private:
    std::atomic<bool> m_ended{false};
    std::atomic<uint64_t> m_replies{0};

    mutable std::mutex m_mutex; // guards what follows
    std::map<std::string, uint64_t> m_counts;
    std::string m_failure;
};

} // namespace Endurance

#endif
