#include "AllocationCounter.hpp"

#include <atomic>
#include <cstdlib>
#include <new>

namespace Zel::Bench {

namespace {
std::atomic<std::uint64_t> allocations{0};

void* Allocate(std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (size == 0) {
        size = 1;
    }
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* AllocateAligned(std::size_t size, std::align_val_t alignment)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    const auto align = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a size that is a multiple of the alignment.
    const std::size_t rounded = ((size == 0 ? 1 : size) + align - 1) / align * align;
    void* memory = std::aligned_alloc(align, rounded);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
} // namespace

std::uint64_t AllocationCount()
{
    return allocations.load(std::memory_order_relaxed);
}

} // namespace Zel::Bench

void* operator new(std::size_t size)
{
    return Zel::Bench::Allocate(size);
}

void* operator new[](std::size_t size)
{
    return Zel::Bench::Allocate(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return Zel::Bench::Allocate(size);
    } catch (...) {
        return nullptr;
    }
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    try {
        return Zel::Bench::Allocate(size);
    } catch (...) {
        return nullptr;
    }
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return Zel::Bench::AllocateAligned(size, alignment);
}

void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return Zel::Bench::AllocateAligned(size, alignment);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
