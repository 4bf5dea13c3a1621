#ifndef KESTREL_MEMORY_BUDGET_H
#define KESTREL_MEMORY_BUDGET_H

#include <cstddef>

#include "limits.h"

namespace Kestrel {

// Counts what all connections of one loop hold for their clients. Owned by the message store.
// Loop thread only.
class MemoryBudget {
public:
    std::size_t Left() const { return MAX_HELD - m_claimed; }

private:
    friend class MemoryClaim;
    std::size_t m_claimed = 0;
};

// One holder's part of the budget, returned when it ends.
class MemoryClaim {
public:
    explicit MemoryClaim(MemoryBudget& budget) : m_budget(budget) {}
    ~MemoryClaim() { Set(0); }
    MemoryClaim(const MemoryClaim&) = delete;
    MemoryClaim& operator=(const MemoryClaim&) = delete;

    // Makes the part this large; false, and nothing changed, when the others leave too little.
    bool Set(std::size_t bytes) {
        if (bytes > m_bytes && bytes - m_bytes > m_budget.Left()) {
            return false;
        }
        m_budget.m_claimed = m_budget.m_claimed - m_bytes + bytes;
        m_bytes = bytes;
        return true;
    }

    std::size_t Bytes() const { return m_bytes; }

private:
    MemoryBudget& m_budget;
    std::size_t m_bytes = 0;
};

} // namespace Kestrel

#endif
