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
    void Count(appcfg::Request request, uint16_t status);
    // Something that is no request of the client library: "stalls", "cut frames", ...
    void Count(const std::string& what);

    // Replies so far.
    uint64_t Replies() const { return m_replies; }

    // Ends the run; the first text is kept.
    void Fail(const std::string& text);
    void End() { m_ended = true; }
    bool HasEnded() const { return m_ended; }

    // The first failure, or nothing.
    std::string Failure() const;
    // A line for each kind of thing that was counted.
    std::string Text() const;

private:
    std::atomic<bool> m_ended{false};
    std::atomic<uint64_t> m_replies{0};

    mutable std::mutex m_mutex; // guards what follows
    std::map<std::string, uint64_t> m_counts;
    std::string m_failure;
};

} // namespace Endurance

#endif
