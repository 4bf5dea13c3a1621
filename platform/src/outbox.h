#ifndef KESTREL_OUTBOX_H
#define KESTREL_OUTBOX_H

#include <sys/uio.h>

#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

#include "memory_budget.h"
#include "message.h"

namespace Kestrel {

// The replies of one connection that its socket has not taken yet, in order. Long ones are held by
// reference, short ones copied. Owned by its connection. Loop thread only.
class Outbox {
public:
    enum class Result { WRITTEN, WAITING, FAILED };

    explicit Outbox(MemoryBudget& budget) : m_claim(budget) {}

    // Writes the message at once when nothing waits, and keeps what the socket does not take.
    Result Send(int fd, Message& msg);

    // Writes what waits.
    Result Flush(int fd);

    bool IsEmpty() const { return m_entries.empty(); }

    // Bytes that wait.
    std::size_t Waiting() const { return m_waiting; }

private:
    struct Entry {
        explicit Entry(MessageRef msg = {}) : message(std::move(msg)) {}

        MessageRef message;               // what the pieces belong to
        std::vector<unsigned char> bytes; // one head, or whole short replies
        std::size_t bytesWritten = 0;
        std::vector<iovec> pieces; // follow the bytes; shortened from the front as they are written
        std::size_t piecesWritten = 0;
        std::size_t held = 0; // memory that it keeps until all of it is written
    };

    static bool WriteNow(int fd, const WireHead& head, const Message& msg, std::size_t* written);
    void Enqueue(const WireHead& head, Message& msg);
    void EnqueueCopy(const WireHead& head, const Message& msg);
    std::vector<iovec> Gather();
    void Discard(std::size_t written);

    std::deque<Entry> m_entries;
    std::size_t m_waiting = 0;
    std::size_t m_held = 0; // by all entries
    MemoryClaim m_claim;
};

} // namespace Kestrel

#endif
