// What became of the numbers that were sent.
#ifndef LIFE_LEDGER_H
#define LIFE_LEDGER_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "document.h"

namespace Endurance {

// One item's numbers, oldest first, from the one that must be on disk on: a plain value. A number that was
// refused may be in the document all the same, and what was sent after the one that was reported as saved may
// have reached the files.
class Ledger {
public:
    explicit Ledger(int64_t saved) : m_numbers{saved} {}

    int64_t Next() {
        m_numbers.push_back(++m_last);
        return m_last;
    }
    // A restore sends this one.
    void SendDefault() { m_numbers.push_back(DEFAULT_NUMBER); }
    // The newest one was answered with success.
    void Accept() { m_accepted = m_numbers.size() - 1; }
    // What was accepted was reported as saved.
    void Save() { Forget(m_accepted); }
    // It stands in both files, whole.
    void SaveWhatStands(int64_t number) {
        const auto at = std::find(m_numbers.begin(), m_numbers.end(), number);
        if (number != DEFAULT_NUMBER && at != m_numbers.end()) {
            Forget(static_cast<size_t>(at - m_numbers.begin()));
        }
    }
    // The life has ended: what was accepted and not saved is lost or not.
    void End() { m_accepted = 0; }

    // After a loss, with the default.
    void Restart() {
        m_numbers = {DEFAULT_NUMBER};
        m_accepted = 0;
    }

    // Whether the item may hold it: none older than what was saved, none that was never sent.
    bool Allows(int64_t number) const {
        return std::find(m_numbers.begin(), m_numbers.end(), number) != m_numbers.end();
    }
    int64_t Saved() const { return m_numbers.front(); }
    int64_t Accepted() const { return m_numbers[m_accepted]; }
    int64_t Sent() const { return m_numbers.back(); }

private:
    void Forget(size_t older) {
        m_numbers.erase(m_numbers.begin(), m_numbers.begin() + static_cast<std::ptrdiff_t>(older));
        m_accepted -= std::min(older, m_accepted);
    }

    std::vector<int64_t> m_numbers;
    size_t m_accepted = 0;
    int64_t m_last = 0;
};

} // namespace Endurance

#endif
