// SPDX-License-Identifier: BSD-3-Clause
// The counting operators.
#include "allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::uint64_t> count{0};
}

std::uint64_t bench::allocations()
{
    return count.load(std::memory_order_relaxed);
}

// The array and nothrow forms of the C++ library end here, too.
void* operator new(std::size_t bytes)
{
    count.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(bytes == 0 ? 1 : bytes)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*bytes*/) noexcept
{
    std::free(memory);
}
