// Allocations that fail where a test wants them to: the process's, by a replacement of what new and delete
// come down to, and the cipher library's, by the functions that it lets a program give it.
#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "injection.h"

namespace {

using FaultTest::Call;

void* Allocate(std::size_t size) noexcept {
    return FaultTest::Fails(Call::ALLOCATION) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

// What a thread gave back to the cipher library's allocator last can be had again, as from any other: the
// service makes sure of a cipher's memory so. Sizes are compared, which the allocator rounds, so that each
// block tells its own.
thread_local std::array<std::size_t, 4> t_givenBack{};

bool TakesBack(std::size_t size) {
    const auto block = std::find(t_givenBack.begin(), t_givenBack.end(), size);
    if (block == t_givenBack.end()) {
        return false;
    }
    *block = 0;
    return true;
}

void GivesBack(std::size_t size) {
    std::rotate(t_givenBack.begin(), t_givenBack.begin() + 1, t_givenBack.end());
    t_givenBack.back() = size;
}

// The size stands before the memory.
constexpr std::size_t HEAD = alignof(std::max_align_t);

void* CipherAllocate(std::size_t size, const char*, int) {
    if (size == 0 || (!TakesBack(size) && FaultTest::Fails(Call::CIPHER_ALLOCATION))) {
        return nullptr;
    }
    auto* const memory = static_cast<char*>(std::malloc(HEAD + size));
    std::memcpy(memory, &size, sizeof size);
    return memory + HEAD;
}

void CipherFree(void* memory, const char*, int) {
    if (memory != nullptr) {
        char* const whole = static_cast<char*>(memory) - HEAD;
        std::size_t size = 0;
        std::memcpy(&size, whole, sizeof size);
        GivesBack(size);
        std::free(whole);
    }
}

void* CipherReallocate(void* memory, std::size_t size, const char* file, int line) {
    void* const larger = CipherAllocate(size, file, line);
    if (memory != nullptr && larger != nullptr) {
        std::size_t former = 0;
        std::memcpy(&former, static_cast<char*>(memory) - HEAD, sizeof former);
        std::memcpy(larger, memory, std::min(former, size));
        CipherFree(memory, file, line);
    }
    return larger;
}

// Before the library's first allocation.
const int g_replaced = CRYPTO_set_mem_functions(CipherAllocate, CipherReallocate, CipherFree);

} // namespace

// The XML library's constructors leak what they have when an allocation fails in them.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libPocoXML\n";
}

void* operator new(std::size_t size) {
    void* const memory = Allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return ::operator new(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
