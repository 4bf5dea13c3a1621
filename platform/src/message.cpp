#include "message.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Kestrel {

namespace {

constexpr unsigned char REPLY_BIT = 0x80;

// The bytes of a piece are only read: sendmsg's parameter has no const.
iovec MakePiece(const void* data, std::size_t length) {
    return {const_cast<void*>(data), length};
}

} // namespace

Message::Message() : tern_message{&m_header, &m_pool} {
    m_header.magic = FRAME_MAGIC;
}

Message* Message::New() {
    return new (std::nothrow) Message;
}

void Message::Delete() {
    m_frame.Unseal();
    delete this;
}

void Message::Recycle() {
    BeginReceive();
    m_pieces = nullptr;
    m_pieceRoom = 0;
    m_pool.Reset();
    if (m_frame.Room() > FRAME_ROOM) {
        m_frame.Release();
    }
    m_header = tern_header{};
    m_header.magic = FRAME_MAGIC;
    m_answered = false;
}

void Message::BeginReceive() {
    ClearContent();
    m_frame.Unseal();
}

void Message::AdoptFrame(std::size_t length) {
    ClearContent();
    std::memcpy(&m_header, m_frame.Data(), sizeof m_header);
    m_section = m_frame.Data() + HEADER_LENGTH;
    m_payloadLength = static_cast<std::uint32_t>(length - HEAD_LENGTH);
    m_frame.Seal(length);
}

bool Message::Payload(void** content, std::uint32_t* length) {
    if (m_payloadLength == 0) {
        return false;
    }
    if (m_section == nullptr && m_pieceCount == 1) {
        *content = m_pieces[0].iov_base;
    } else if (MakeSection()) {
        *content = m_section + RECORD_LENGTH;
    } else {
        return false;
    }
    *length = m_payloadLength;
    return true;
}

void* Message::Section(std::uint32_t offset, std::uint32_t length) {
    const std::uint64_t end = std::uint64_t{offset} + length;
    if (end > std::uint64_t{RECORD_LENGTH} + m_payloadLength || !MakeSection()) {
        return nullptr;
    }
    return m_section + offset;
}

bool Message::AddPiece(const void* data, std::uint32_t length) {
    if ((data == nullptr && length > 0) || length > MAX_PAYLOAD - m_payloadLength) {
        return false;
    }
    if (!KeepReceivedAsPiece() || (m_pieceCount == m_pieceRoom && !GrowPieces())) {
        return false;
    }
    m_pieces[m_pieceCount++] = MakePiece(data, length);
    m_payloadLength += length;
    m_section = nullptr;
    return true;
}

void Message::ClearContent() {
    m_pieceCount = 0;
    m_payloadLength = 0;
    m_section = nullptr;
}

void Message::ClearHeader() {
    m_header.status = 0;
    m_header.method = static_cast<std::uint8_t>(m_header.method & ~REPLY_BIT);
}

bool Message::CompleteHead(WireHead* head) {
    if (!KeepReceivedAsPiece()) {
        return false;
    }
    m_header.magic = FRAME_MAGIC;
    m_header.kind = 0;
    m_header.length = m_payloadLength + RECORD_LENGTH;
    *head = {m_header, static_cast<std::uint32_t>(m_pieceCount), FirstLength()};
    return true;
}

std::uint32_t Message::FirstLength() const {
    return m_pieceCount > 0 ? static_cast<std::uint32_t>(m_pieces[0].iov_len) : 0;
}

// Content that came in a frame and is still there goes out as one piece.
bool Message::KeepReceivedAsPiece() {
    if (m_pieceCount > 0 || m_payloadLength == 0) {
        return true;
    }
    if (m_pieceRoom == 0 && !GrowPieces()) {
        return false;
    }
    m_pieces[m_pieceCount++] = MakePiece(m_section + RECORD_LENGTH, m_payloadLength);
    return true;
}

bool Message::GrowPieces() {
    const std::size_t room = m_pieceRoom == 0 ? 4 : m_pieceRoom * 2;
    auto* pieces = static_cast<iovec*>(m_pool.Allocate(room * sizeof(iovec)));
    if (pieces == nullptr) {
        return false;
    }
    std::copy(m_pieces, m_pieces + m_pieceCount, pieces);
    m_pieces = pieces;
    m_pieceRoom = room;
    return true;
}

bool Message::MakeSection() {
    if (m_section != nullptr) {
        return true;
    }
    auto* section =
        static_cast<unsigned char*>(m_pool.Allocate(RECORD_LENGTH + std::size_t{m_payloadLength}));
    if (section == nullptr) {
        return false;
    }
    const std::uint32_t record[] = {static_cast<std::uint32_t>(m_pieceCount), FirstLength()};
    std::memcpy(section, record, sizeof record);
    unsigned char* end = section + RECORD_LENGTH;
    for (std::size_t i = 0; i < m_pieceCount; ++i) {
        if (m_pieces[i].iov_len > 0) {
            std::memcpy(end, m_pieces[i].iov_base, m_pieces[i].iov_len);
            end += m_pieces[i].iov_len;
        }
    }
    m_section = section;
    return true;
}

} // namespace Kestrel
