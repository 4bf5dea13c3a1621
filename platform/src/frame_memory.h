#ifndef KESTREL_FRAME_MEMORY_H
#define KESTREL_FRAME_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace Kestrel {

// The contiguous memory that a frame is received into: header, record and payload, aligned for records.
// Owned by its message.
class FrameMemory {
public:
    unsigned char* Data() { return m_data.get(); }
    const unsigned char* Data() const { return m_data.get(); }
    std::size_t Room() const { return m_room; }

    // Makes the room at least this large and keeps the bytes. False, and nothing changed, without memory.
    bool Reserve(std::size_t room);
    void Release();

    // Marks the bytes behind the content as out of bounds for AddressSanitizer, and as usable again.
    void Seal(std::size_t length);
    void Unseal();

private:
    struct Free {
        void operator()(unsigned char* p) const { std::free(p); }
    };
    std::unique_ptr<unsigned char, Free> m_data;
    std::size_t m_room = 0;
};

} // namespace Kestrel

#endif
