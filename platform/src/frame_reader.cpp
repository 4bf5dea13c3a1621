// Bytes are received straight into the memory of the message to come, so that an ordinary request, which
// arrives whole and alone, is served without a copy. When more has come than one frame, either the frame
// keeps the memory and the rest moves on, or the frame is copied out: whichever copies less. An announced
// length costs nothing: memory grows with the data that came.
#include "frame_reader.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "socket_io.h"

namespace Kestrel {

std::size_t FrameLength(const tern_header& header) {
    const bool allowed = header.magic == FRAME_MAGIC && header.length >= RECORD_LENGTH &&
                         header.length <= MAX_PAYLOAD + RECORD_LENGTH;
    return allowed ? std::size_t{HEADER_LENGTH} + header.length : 0;
}

std::size_t FrameReader::Memory() const {
    return m_message == nullptr ? 0 : sizeof *m_message + m_message->Frame().Room();
}

void FrameReader::Clear() {
    m_begin = m_end;
    PutAwayRest();
}

FrameReader::Input FrameReader::Receive(int fd) {
    if (!MakeRoom()) {
        return Input::NO_MEMORY;
    }
    FrameMemory& memory = m_message->Frame();
    ssize_t got = 0;
    do {
        got = ::recv(fd, memory.Data() + m_end, memory.Room() - m_end, 0);
    } while (got < 0 && errno == EINTR);
    if (got > 0) {
        m_end += static_cast<std::size_t>(got);
        return Input::DATA;
    }
    const bool nothing = got < 0 && WouldBlock();
    PutAwayRest();
    return nothing ? Input::NOTHING : Input::END;
}

FrameReader::Found FrameReader::Next(Message** frame) {
    if (Unserved() < HEADER_LENGTH) {
        PutAwayRest();
        return Found::PART;
    }
    const std::size_t length = FrameLength(Header());
    if (length == 0) {
        return Found::BAD;
    }
    if (Unserved() < length) {
        PutAwayRest();
        return Found::PART;
    }
    const std::size_t surplus = Unserved() - length;
    return m_begin == 0 && surplus <= length ? TakeFront(length, frame) : CopyFront(length, frame);
}

tern_header FrameReader::Header() const {
    tern_header header;
    std::memcpy(&header, m_message->Frame().Data() + m_begin, sizeof header);
    return header;
}

// A frame that is longer than the room gets twice the room at a time, as its data comes.
bool FrameReader::MakeRoom() {
    if (m_message == nullptr) {
        m_message = m_store.Take(FRAME_ROOM);
        return m_message != nullptr;
    }
    FrameMemory& memory = m_message->Frame();
    if (m_end < memory.Room()) {
        return true;
    }
    const std::size_t room = std::min(std::max(memory.Room() * 2, FRAME_ROOM), FrameLength(Header()));
    return memory.Reserve(room);
}

// The frame keeps the memory that it was received into; what follows it moves to a message of its own.
FrameReader::Found FrameReader::TakeFront(std::size_t length, Message** frame) {
    const std::size_t surplus = m_end - length;
    Message* next = nullptr;
    if (surplus > 0) {
        next = m_store.Take(FRAME_ROOM);
        if (next == nullptr || !next->Frame().Reserve(surplus)) {
            if (next != nullptr) {
                m_store.GiveBack(next);
            }
            return Found::NO_MEMORY;
        }
        std::memcpy(next->Frame().Data(), m_message->Frame().Data() + length, surplus);
    }
    *frame = std::exchange(m_message, next);
    m_end = surplus;
    (*frame)->AdoptFrame(length);
    return Found::FRAME;
}

// A short frame with much behind it moves instead, so that many short frames cost one copy each.
FrameReader::Found FrameReader::CopyFront(std::size_t length, Message** frame) {
    Message* copy = m_store.Take(length);
    if (copy == nullptr) {
        return Found::NO_MEMORY;
    }
    std::memcpy(copy->Frame().Data(), m_message->Frame().Data() + m_begin, length);
    m_begin += length;
    copy->AdoptFrame(length);
    *frame = copy;
    return Found::FRAME;
}

// No whole frame is left: the part that is goes to the front, and without one the memory goes back.
void FrameReader::PutAwayRest() {
    if (m_message == nullptr) {
        return;
    }
    const std::size_t rest = Unserved();
    if (rest == 0) {
        m_store.GiveBack(std::exchange(m_message, nullptr));
    } else if (m_begin > 0) {
        unsigned char* data = m_message->Frame().Data();
        std::memmove(data, data + m_begin, rest);
    }
    m_begin = 0;
    m_end = rest;
}

} // namespace Kestrel
