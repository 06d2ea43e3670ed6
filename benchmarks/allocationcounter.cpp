#include "benchmarks/allocationcounter.h"

#include <cstddef>

// Qt's containers call malloc() and realloc() directly, so counting operator new would miss them.
// glibc lets a program put its own functions in front.
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
}

namespace {

thread_local std::uint64_t count = 0;

} // namespace

std::uint64_t allocationCount()
{
    return count;
}

extern "C" void *malloc(std::size_t size)
{
    ++count;
    return __libc_malloc(size);
}

extern "C" void *realloc(void *block, std::size_t size)
{
    ++count;
    return __libc_realloc(block, size);
}

extern "C" void *calloc(std::size_t number, std::size_t size)
{
    ++count;
    return __libc_calloc(number, size);
}
