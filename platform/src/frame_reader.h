#ifndef KESTREL_FRAME_READER_H
#define KESTREL_FRAME_READER_H

#include <cstddef>
#include <cstdint>

#include "message_store.h"

namespace Kestrel {

// The length of the frame that this header begins; 0 when its magic or length is not allowed.
std::size_t FrameLength(const tern_header& header);

// Cuts the stream of one descriptor into messages, receiving into the memory of the message to come. Holds
// no memory between frames. Owned by its connection. Loop thread only.
class FrameReader {
public:
    enum class Input { DATA, NOTHING, END, NO_MEMORY };
    enum class Found { FRAME, PART, BAD, NO_MEMORY };

    explicit FrameReader(MessageStore& store) : m_store(store) {}
    ~FrameReader() { Clear(); }
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // One recv. END also stands for a connection that the peer has reset.
    Input Receive(int fd);

    // The next whole frame that has been received; the caller owns the reference.
    Found Next(Message** frame);

    // The header of the frame that Next called bad.
    tern_header BadHeader() const { return Header(); }

    // What a frame that is not whole yet takes.
    std::size_t Memory() const;
    // Drops it.
    void Clear();

private:
    tern_header Header() const;
    std::size_t Unserved() const { return m_end - m_begin; }
    bool MakeRoom();
    Found TakeFront(std::size_t length, Message** frame);
    Found CopyFront(std::size_t length, Message** frame);
    void PutAwayRest();

    MessageStore& m_store;
    Message* m_message = nullptr; // what is being received; null when nothing is held
    std::size_t m_begin = 0;      // the bytes in its frame memory that belong to no message yet
    std::size_t m_end = 0;
};

} // namespace Kestrel

#endif
