// A reply is written at once, straight from the message's own pieces. Only what the socket does not take is
// copied, into blocks, so that the service may free or reuse its message as soon as it has sent it, and a
// slow client costs memory in proportion to what it has not read. Flushing allocates nothing: it goes on when
// memory is short.
#include "outbox.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "log_budget.h"
#include "socket_io.h"

namespace Kestrel {

Outbox::Result Outbox::Send(int fd, Message& msg) {
    WireHead head;
    std::size_t written = 0;
    if (!msg.CompleteHead(&head) || (IsEmpty() && !WriteNow(fd, head, msg, &written))) {
        return Result::FAILED;
    }
    try {
        Keep(&head, sizeof head, &written);
        for (std::size_t i = 0; i < msg.PieceCount(); ++i) {
            Keep(msg.Pieces()[i].iov_base, msg.Pieces()[i].iov_len, &written);
        }
    } catch (const std::bad_alloc&) {
        KESTREL_LOG_ENDED("connection fd[%d]: no memory for a reply that waits, closed", fd);
        return Result::FAILED;
    }
    return IsEmpty() ? Result::WRITTEN : Result::WAITING;
}

// The ordinary case, without any allocation: head and pieces in one call.
bool Outbox::WriteNow(int fd, const WireHead& head, const Message& msg, std::size_t* written) {
    WireHead copy = head;
    iovec parts[DIRECT_PARTS];
    std::size_t count = 0;
    parts[count++] = {&copy, sizeof copy};
    for (std::size_t i = 0; i < msg.PieceCount() && count < DIRECT_PARTS; ++i) {
        parts[count++] = msg.Pieces()[i];
    }
    const ssize_t sent = SendParts(fd, parts, count);
    *written = sent > 0 ? static_cast<std::size_t>(sent) : 0;
    return sent >= 0 || WouldBlock();
}

// Copies a part of a reply, but for what of it is written already.
void Outbox::Keep(const void* data, std::size_t length, std::size_t* written) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::size_t done = std::min(*written, length);
    *written -= done;
    while (done < length) {
        if (IsEmpty() || m_blocks.back().end == m_blocks.back().room) {
            AddBlock(length - done);
        }
        Block& block = m_blocks.back();
        const std::size_t some = std::min(length - done, block.room - block.end);
        std::memcpy(&block.bytes[block.end], bytes + done, some);
        block.end += some;
        done += some;
    }
}

void Outbox::AddBlock(std::size_t length) {
    const Block& block = m_blocks.emplace_back(std::clamp(length, SMALL_BLOCK, LARGE_BLOCK));
    m_memory += sizeof block + block.room;
}

Outbox::Result Outbox::Flush(int fd) {
    while (!IsEmpty()) {
        Block& block = m_blocks.front();
        iovec part{&block.bytes[block.begin], block.end - block.begin};
        const ssize_t sent = SendParts(fd, &part, 1);
        if (sent < 0) {
            return WouldBlock() ? Result::WAITING : Result::FAILED;
        }
        block.begin += static_cast<std::size_t>(sent);
        if (block.begin == block.end) {
            m_memory -= sizeof block + block.room;
            m_blocks.pop_front();
        }
    }
    return Result::WRITTEN;
}

void Outbox::Clear() {
    m_blocks.clear();
    m_memory = 0;
}

} // namespace Kestrel
