// Allocations that fail where a test wants them to: the process's, by a replacement of what new and delete
// come down to, and the cipher library's, by the functions that it lets a program give it.
#include <malloc.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "injection.h"

namespace {

using FaultTest::Call;

void* Allocate(std::size_t size) noexcept {
    return FaultTest::Fails(Call::ALLOCATION) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

// What a thread gave back to the cipher library's allocator last can be had again, as from any other: the
// service makes sure of a cipher's memory so. A block is as long as was asked for, but for the allocator's
// rounding.
constexpr std::size_t ROUNDING = 24;
thread_local std::array<std::size_t, 4> t_givenBack{};

void* CipherReallocate(void* memory, std::size_t size, const char*, int) {
    const auto room = std::find_if(t_givenBack.begin(), t_givenBack.end(), [size](std::size_t given) {
        return given >= size && given <= size + ROUNDING;
    });
    if (room != t_givenBack.end()) {
        *room = 0;
    } else if (FaultTest::Fails(Call::CIPHER_ALLOCATION)) {
        return nullptr;
    }
    return std::realloc(memory, size);
}

void* CipherAllocate(std::size_t size, const char* file, int line) {
    return size == 0 ? nullptr : CipherReallocate(nullptr, size, file, line);
}

void CipherFree(void* memory, const char*, int) {
    if (memory != nullptr) {
        std::rotate(t_givenBack.begin(), t_givenBack.begin() + 1, t_givenBack.end());
        t_givenBack.back() = ::malloc_usable_size(memory);
        std::free(memory);
    }
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
