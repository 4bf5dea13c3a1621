#ifndef KESTREL_MESSAGE_H
#define KESTREL_MESSAGE_H

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

#include "exports.h"
#include "frame_memory.h"
#include "pool.h"

namespace Kestrel {

// The first 24 bytes of a frame.
struct WireHead {
    tern_header header;
    std::uint32_t pieces;
    std::uint32_t firstLength;
};
static_assert(sizeof(tern_header) == 16 && offsetof(tern_header, uri) == 4 &&
              offsetof(tern_header, sequence) == 8 && offsetof(tern_header, length) == 12);
static_assert(sizeof(WireHead) == 24 && offsetof(WireHead, pieces) == 16);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the wire's byte order is used in place");

// A message: its header, its pool, and its content, either received in one frame or added piece by piece.
// Owned by whoever made or took it: an outbox copies what it keeps. Used by one thread at a time, without a
// lock.
class Message final : public tern_message {
public:
    // Null without memory.
    static Message* New();
    static Message& From(tern_message* msg) { return *static_cast<Message*>(msg); }

    void Delete();

    // Makes it as new, keeping the frame's memory unless it has grown beyond the ordinary.
    void Recycle();

    FrameMemory& Frame() { return m_frame; }

    // Drops the content; the frame's memory may then be received into.
    void BeginReceive();
    // Takes header and content from the frame's first `length` bytes, which are a whole frame.
    void AdoptFrame(std::size_t length);

    bool Payload(void** content, std::uint32_t* length);
    void* Section(std::uint32_t offset, std::uint32_t length);
    bool AddPiece(const void* data, std::uint32_t length);
    void ClearContent();
    void ClearHeader();

    // Completes the header for sending and yields the frame's head; false without memory. The pieces
    // follow it on the wire.
    bool CompleteHead(WireHead* head);
    const iovec* Pieces() const { return m_pieces; }
    std::size_t PieceCount() const { return m_pieceCount; }
    std::uint32_t PayloadLength() const { return m_payloadLength; }

    void MarkAnswered() { m_answered = true; }
    bool IsAnswered() const { return m_answered; }

private:
    Message();
    ~Message() = default;

    bool KeepReceivedAsPiece();
    bool GrowPieces();
    bool MakeSection();
    std::uint32_t FirstLength() const;

    tern_header m_header{};
    kestrel_pool m_pool;
    FrameMemory m_frame;
    bool m_answered = false;
    iovec* m_pieces = nullptr; // in the pool
    std::size_t m_pieceCount = 0;
    std::size_t m_pieceRoom = 0;
    std::uint32_t m_payloadLength = 0;
    unsigned char* m_section = nullptr; // record and payload in one; null until somebody asks for it
};

} // namespace Kestrel

#endif
