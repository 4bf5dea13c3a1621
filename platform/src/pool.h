#ifndef KESTREL_POOL_H
#define KESTREL_POOL_H

#include <cstddef>

#include "exports.h"
#include "limits.h"

namespace Kestrel {

// Zeroed memory that is given back all at once. Part of its message and ends with it; used by the
// message's thread.
class Pool {
public:
    Pool() = default;
    ~Pool() { Reset(); }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    // Aligned for any type; null when there is no memory.
    void* Allocate(std::size_t size);

    // Gives everything back.
    void Reset();

private:
    struct alignas(std::max_align_t) Chunk {
        Chunk* next;
        std::size_t size;
        std::size_t used;
    };

    void* AllocateInline(std::size_t size);
    void* AllocateFromChunk(std::size_t size);
    Chunk* AddChunk(std::size_t size);

    alignas(std::max_align_t) unsigned char m_inline[POOL_INLINE] = {};
    std::size_t m_inlineUsed = 0;
    Chunk* m_chunks = nullptr; // the first one is filled further, the others are full or owned by one piece
};

} // namespace Kestrel

struct kestrel_pool final : Kestrel::Pool {};

#endif
