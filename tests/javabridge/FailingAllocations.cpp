#include "tests/javabridge/FailingAllocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> s_largeFail{false};
std::atomic<bool> s_nothrowArraysFail{false};

} // namespace

void* operator new(size_t size)
{
    void* const memory = s_largeFail && size >= FailingAllocations::LARGE ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return s_nothrowArraysFail ? nullptr : std::malloc(size == 0 ? 1 : size);
}

// The array forms of the library end here, too.
void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

FailingAllocations::FailingAllocations(Kind kind)
{
    (kind == Kind::Large ? s_largeFail : s_nothrowArraysFail) = true;
}

FailingAllocations::~FailingAllocations()
{
    s_largeFail = false;
    s_nothrowArraysFail = false;
}
