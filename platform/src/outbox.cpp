#include "outbox.h"

#include <algorithm>
#include <climits>
#include <new>

#include "fence.h"
#include "socket_io.h"

namespace Kestrel {

Outbox::Result Outbox::Send(int fd, Message& msg) {
    WireHead head;
    if (!msg.CompleteHead(&head)) {
        return Result::FAILED;
    }
    std::size_t written = 0;
    if (IsEmpty() && !WriteNow(fd, head, msg, &written)) {
        return Result::FAILED;
    }
    if (written == HEAD_LENGTH + std::size_t{msg.PayloadLength()}) {
        return Result::WRITTEN;
    }
    const bool more = IsEmpty() && msg.PieceCount() >= DIRECT_PARTS;
    try {
        Enqueue(head, msg);
        Discard(written); // only ever written when nothing waited before it
        const Result result = more ? Flush(fd) : Result::WAITING;
        if (m_claim.Set(m_held)) {
            return result;
        }
        KESTREL_LOG(3, "connection fd[%d]: no room for a reply that waits, closed", fd);
        return Result::FAILED;
    } catch (const std::bad_alloc&) {
        return Result::FAILED;
    }
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

void Outbox::Enqueue(const WireHead& head, Message& msg) {
    const std::size_t total = HEAD_LENGTH + std::size_t{msg.PayloadLength()};
    m_waiting += total;
    if (total <= COPIED_REPLY) {
        return EnqueueCopy(head, msg);
    }
    Entry& entry = m_entries.emplace_back(MessageRef(msg));
    const auto* bytes = reinterpret_cast<const unsigned char*>(&head);
    entry.bytes.assign(bytes, bytes + sizeof head);
    entry.pieces.assign(msg.Pieces(), msg.Pieces() + msg.PieceCount());
    entry.held = total + (msg.RefersToFrame() ? msg.Frame().Room() : 0);
    m_held += entry.held;
}

void Outbox::EnqueueCopy(const WireHead& head, const Message& msg) {
    if (IsEmpty() || !m_entries.back().pieces.empty() || m_entries.back().bytes.size() >= COPY_BLOCK) {
        m_entries.emplace_back();
    }
    std::vector<unsigned char>& bytes = m_entries.back().bytes;
    const auto append = [&bytes](const void* data, std::size_t length) {
        const auto* begin = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), begin, begin + length);
    };
    append(&head, sizeof head);
    for (std::size_t i = 0; i < msg.PieceCount(); ++i) {
        append(msg.Pieces()[i].iov_base, msg.Pieces()[i].iov_len);
    }
    const std::size_t total = HEAD_LENGTH + std::size_t{msg.PayloadLength()};
    m_entries.back().held += total;
    m_held += total;
}

Outbox::Result Outbox::Flush(int fd) {
    while (!IsEmpty()) {
        std::vector<iovec> parts = Gather();
        const ssize_t sent = SendParts(fd, parts.data(), parts.size());
        if (sent < 0) {
            return WouldBlock() ? Result::WAITING : Result::FAILED;
        }
        Discard(static_cast<std::size_t>(sent));
        m_claim.Set(m_held);
    }
    return Result::WRITTEN;
}

// What waits, in order, as much as one call takes.
std::vector<iovec> Outbox::Gather() {
    std::vector<iovec> parts;
    for (Entry& entry : m_entries) {
        if (entry.bytesWritten < entry.bytes.size()) {
            parts.push_back(
                {entry.bytes.data() + entry.bytesWritten, entry.bytes.size() - entry.bytesWritten});
        }
        for (std::size_t i = entry.piecesWritten; i < entry.pieces.size() && parts.size() < IOV_MAX; ++i) {
            parts.push_back(entry.pieces[i]);
        }
        if (parts.size() >= IOV_MAX) {
            break;
        }
    }
    return parts;
}

void Outbox::Discard(std::size_t written) {
    m_waiting -= written;
    while (!IsEmpty()) {
        Entry& entry = m_entries.front();
        const std::size_t ofBytes = std::min(written, entry.bytes.size() - entry.bytesWritten);
        entry.bytesWritten += ofBytes;
        if (entry.bytesWritten < entry.bytes.size()) {
            return;
        }
        const std::size_t left = entry.pieces.size() - entry.piecesWritten;
        std::size_t rest = written - ofBytes;
        const std::size_t done = SkipParts(entry.pieces.data() + entry.piecesWritten, left, &rest);
        entry.piecesWritten += done;
        if (done < left) {
            return;
        }
        written = rest;
        m_held -= entry.held;
        m_entries.pop_front();
    }
}

} // namespace Kestrel
