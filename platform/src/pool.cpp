#include "pool.h"

#include <cstdlib>
#include <cstring>

namespace Kestrel {

namespace {

// Under AddressSanitizer each allocation stands alone, so that a write past its end is seen.
#if defined(KESTREL_ASAN)
constexpr std::size_t SHARED_LIMIT = 0;
#else
constexpr std::size_t SHARED_LIMIT = POOL_CHUNK / 2;
#endif

constexpr std::size_t ALIGNMENT = alignof(std::max_align_t);

std::size_t RoundUp(std::size_t size) {
    return (size + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
}

} // namespace

void* Pool::Allocate(std::size_t size) {
    if (size > POOL_MAX_PIECE) {
        return nullptr;
    }
    if (size > SHARED_LIMIT) {
        Chunk* chunk = AddChunk(size);
        return chunk == nullptr ? nullptr : chunk + 1;
    }
    const std::size_t rounded = RoundUp(size == 0 ? 1 : size);
    void* memory = AllocateInline(rounded);
    return memory != nullptr ? memory : AllocateFromChunk(rounded);
}

void Pool::Reset() {
    while (m_chunks != nullptr) {
        Chunk* next = m_chunks->next;
        std::free(m_chunks);
        m_chunks = next;
    }
    std::memset(m_inline, 0, m_inlineUsed);
    m_inlineUsed = 0;
}

void* Pool::AllocateInline(std::size_t size) {
    if (size > POOL_INLINE - m_inlineUsed) {
        return nullptr;
    }
    void* memory = m_inline + m_inlineUsed;
    m_inlineUsed += size;
    return memory;
}

void* Pool::AllocateFromChunk(std::size_t size) {
    if (m_chunks == nullptr || size > m_chunks->size - m_chunks->used) {
        Chunk* chunk = AddChunk(POOL_CHUNK);
        if (chunk == nullptr) {
            return nullptr;
        }
        chunk->used = 0;
    }
    void* memory = reinterpret_cast<unsigned char*>(m_chunks + 1) + m_chunks->used;
    m_chunks->used += size;
    return memory;
}

Pool::Chunk* Pool::AddChunk(std::size_t size) {
    auto* chunk = static_cast<Chunk*>(std::calloc(1, sizeof(Chunk) + size));
    if (chunk != nullptr) {
        chunk->next = m_chunks;
        chunk->size = size;
        chunk->used = size;
        m_chunks = chunk;
    }
    return chunk;
}

} // namespace Kestrel
