#ifndef TALLY_H
#define TALLY_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace Endurance {

// How many replies all clients had, what went wrong, and whether they go on. Owned by main, used by every
// thread.
class Tally {
public:
    void CountReply() { ++m_replies; }
    uint64_t Replies() const { return m_replies; }

    // Ends the run; the first text is kept.
    void Fail(const std::string& text) {
        m_ended = true;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_failure = m_failure.empty() ? text : m_failure;
    }
    void Expect(bool holds, const std::string& trouble) {
        if (!holds) {
            Fail(trouble);
        }
    }
    void End() { m_ended = true; }
    bool HasEnded() const { return m_ended; }

    // The first failure, or nothing.
    std::string Failure() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_failure;
    }

private:
    std::atomic<bool> m_ended{false};
    std::atomic<uint64_t> m_replies{0};

    mutable std::mutex m_mutex; // guards what follows
    std::string m_failure;
};

} // namespace Endurance

#endif
