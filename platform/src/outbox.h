#ifndef KESTREL_OUTBOX_H
#define KESTREL_OUTBOX_H

#include <cstddef>
#include <list>
#include <memory>

#include "message.h"

namespace Kestrel {

// The bytes of replies that one connection's socket has not taken yet, copied, in blocks: what a message
// refers to is free once it is sent. Owned by its connection. Loop thread only.
class Outbox {
public:
    enum class Result { WRITTEN, WAITING, FAILED };

    // Writes the message at once when nothing waits, and keeps what the socket does not take.
    Result Send(int fd, Message& msg);

    // Writes what waits. Takes no memory, so that nothing but the socket can make it fail.
    Result Flush(int fd);

    bool IsEmpty() const { return m_blocks.empty(); }

    // What the blocks take, as long as a byte of them waits.
    std::size_t Memory() const { return m_memory; }
    void Clear();

private:
    struct Block {
        explicit Block(std::size_t size) : bytes(new unsigned char[size]), room(size) {}

        std::unique_ptr<unsigned char[]> bytes;
        std::size_t room;
        std::size_t begin = 0; // what waits lies between these two
        std::size_t end = 0;
    };

    static bool WriteNow(int fd, const WireHead& head, const Message& msg, std::size_t* written);
    void Keep(const void* data, std::size_t length, std::size_t* written);
    void AddBlock(std::size_t length);

    std::list<Block> m_blocks;
    std::size_t m_memory = 0;
};

} // namespace Kestrel

#endif
