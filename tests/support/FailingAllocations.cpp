#include "tests/support/FailingAllocations.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

std::atomic<bool> s_largeFail{false};
std::atomic<bool> s_nothrowArraysFail{false};
std::atomic<void*> s_lastNothrowArray{nullptr};

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
    void* const memory = s_nothrowArraysFail ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) {
        std::memset(memory, FailingAllocations::FILLING, size);
        s_lastNothrowArray = memory;
    }
    return memory;
}

// The array forms of the library end here, too.
void operator delete(void* memory) noexcept
{
    void* freed = memory;
    if (memory != nullptr) {
        s_lastNothrowArray.compare_exchange_strong(freed, nullptr);
    }
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    operator delete(memory);
}

const void* FailingAllocations::lastNothrowArray()
{
    return s_lastNothrowArray;
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
