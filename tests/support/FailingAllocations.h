#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

// For one source of a test program: replaces its operator new.

/// Allocations of at least so many bytes fail, in all of the process.
inline std::atomic<std::size_t> tooMuch{SIZE_MAX};
/// The same on this thread.
inline thread_local std::size_t tooMuchHere = SIZE_MAX;

// Not inline: a compiler that sees into one of the pair only takes it for the other's mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const memory = size < tooMuch && size < tooMuchHere ? std::malloc(size) : nullptr;
    return memory ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return size < tooMuch && size < tooMuchHere ? std::malloc(size) : nullptr;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
