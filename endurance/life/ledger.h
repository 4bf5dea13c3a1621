// What became of the numbers that were sent.
#ifndef LIFE_LEDGER_H
#define LIFE_LEDGER_H

#include "document.h"

namespace Endurance {

// One item's numbers, oldest first, from the one that must be on disk on: a plain value. A number that was
// refused may be in the document all the same, and what was sent after the one that was reported as saved may
// have reached the files.
class Ledger {
public:
    // Any of the numbers held, oldest first, may come back when the item is created.
    explicit Ledger(std::vector<int64_t> held) :
        m_numbers(std::move(held)), m_onDisk(m_numbers.size()),
        m_last(std::max<int64_t>(m_numbers.back(), 0)) {}

    int64_t Next() {
        m_numbers.push_back(++m_last);
        return m_last;
    }
    // A restore sends this one.
    void SendDefault() { m_numbers.push_back(DEFAULT_NUMBER); }
    // The newest one was answered with success.
    void Accept() { m_accepted = m_numbers.size() - 1; }
    // What was accepted was reported as saved.
    void Save() {
        Forget(m_accepted);
        m_onDisk = m_numbers.size();
    }
    // It stands in both files, whole.
    void SaveWhatStands(int64_t number) {
        const auto at = std::find(m_numbers.begin(), m_numbers.end(), number);
        if (number != DEFAULT_NUMBER && at != m_numbers.end()) {
            Forget(static_cast<size_t>(at - m_numbers.begin()));
        }
    }
    // The life has ended: what was accepted and not saved is lost or not.
    void End() { m_accepted = 0; }
    // It is lost, since nothing ever saves it.
    void Lose() {
        m_numbers.resize(m_onDisk);
        End();
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
        m_onDisk -= std::min(older, m_onDisk);
    }

    std::vector<int64_t> m_numbers;
    size_t m_accepted = 0;
    size_t m_onDisk; // so many may be in the files, also of an item that nothing saves
    int64_t m_last;
};

} // namespace Endurance

#endif
