#include "frame_memory.h"

#include "limits.h"

#if defined(KESTREL_ASAN)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#endif

namespace Kestrel {

bool FrameMemory::Reserve(std::size_t room) {
    if (room <= m_room) {
        return true;
    }
    void* grown = std::realloc(m_data.get(), room);
    if (grown == nullptr) {
        return false;
    }
    static_cast<void>(m_data.release()); // realloc has taken the old memory
    m_data.reset(static_cast<unsigned char*>(grown));
    m_room = room;
    return true;
}

void FrameMemory::Release() {
    m_data.reset();
    m_room = 0;
}

void FrameMemory::Seal(std::size_t length) {
    ASAN_POISON_MEMORY_REGION(Data() + length, m_room - length);
}

void FrameMemory::Unseal() {
    ASAN_UNPOISON_MEMORY_REGION(Data(), m_room);
}

} // namespace Kestrel
