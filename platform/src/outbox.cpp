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

namespace {

// The bytes of all parts, or 0 where they do not fit.
std::size_t JoinParts(const iovec* parts, std::size_t count, unsigned char* bytes, std::size_t room) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (parts[i].iov_len > room - length) {
            return 0;
        }
        std::memcpy(bytes + length, parts[i].iov_base, parts[i].iov_len);
        length += parts[i].iov_len;
    }
    return length;
}

} // namespace

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

// The ordinary case, without any allocation: head and pieces in one call. A short reply is joined first,
// which costs less than the kernel's reading of a list.
bool Outbox::WriteNow(int fd, const WireHead& head, const Message& msg, std::size_t* written) {
    WireHead copy = head;
    iovec parts[DIRECT_PARTS];
    std::size_t count = 0;
    parts[count++] = {&copy, sizeof copy};
    for (std::size_t i = 0; i < msg.PieceCount() && count < DIRECT_PARTS; ++i) {
        parts[count++] = msg.Pieces()[i];
    }
    unsigned char joined[SHORT_REPLY];
    const std::size_t length = JoinParts(parts, count, joined, sizeof joined);
    const ssize_t sent = length > 0 ? SendBytes(fd, joined, length) : SendParts(fd, parts, count);
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
        const ssize_t sent = SendBytes(fd, &block.bytes[block.begin], block.end - block.begin);
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
