#include "tests/support/FailingAllocations.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>

namespace {

using Kind = FailingAllocations::Kind;

std::atomic<bool> s_fails[] = {false, false, false, false}; // by kind
std::atomic<int> s_successes{INT_MAX};                      // remaining; INT_MAX: no limit
std::atomic<bool> s_othersSucceed{false};
std::atomic<bool> s_isPaused{false};
std::atomic<int> s_refused{0};
std::atomic<size_t> s_liveBytes{0};
std::atomic<void*> s_lastNothrowArray{nullptr};

bool isRefused(Kind kind)
{
    return s_fails[static_cast<int>(Kind::All)] || s_fails[static_cast<int>(kind)];
}

bool isUsedUp()
{
    if (s_successes == INT_MAX || s_successes-- > 0) {
        return false;
    }
    s_successes = s_othersSucceed ? INT_MAX : 0;
    return true;
}

void* allocate(size_t size, bool isRefused)
{
    if (isRefused && !s_isPaused) {
        ++s_refused;
        return nullptr;
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    s_liveBytes += memory != nullptr ? _msize(memory) : 0;
    return memory;
}

} // namespace

void* operator new(size_t size)
{
    const Kind kind = size >= FailingAllocations::LARGE ? Kind::Large : Kind::All;
    void* const memory = allocate(size, isRefused(kind) || (!s_isPaused && isUsedUp()));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, isRefused(Kind::NothrowObjects));
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    void* const memory = allocate(size, isRefused(Kind::NothrowArrays));
    if (memory != nullptr) {
        std::memset(memory, FailingAllocations::FILLING, size);
        s_lastNothrowArray = memory;
    }
    return memory;
}

// The library's array forms call this one.
void operator delete(void* memory) noexcept
{
    if (memory == nullptr) {
        return;
    }
    void* freed = memory;
    s_lastNothrowArray.compare_exchange_strong(freed, nullptr);
    s_liveBytes -= _msize(memory);
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    operator delete(memory);
}

FailingAllocations::Pause::Pause()
{
    s_isPaused = true;
}

FailingAllocations::Pause::~Pause()
{
    s_isPaused = false;
}

int FailingAllocations::refused()
{
    return s_refused;
}

const void* FailingAllocations::lastNothrowArray()
{
    return s_lastNothrowArray;
}

size_t FailingAllocations::liveBytes()
{
    return s_liveBytes;
}

FailingAllocations::FailingAllocations(Kind kind)
{
    s_refused = 0;
    s_fails[static_cast<int>(kind)] = true;
}

FailingAllocations::FailingAllocations(int successes, Then then)
{
    s_refused = 0;
    s_othersSucceed = then == Then::OthersSucceed;
    s_successes = successes;
}

FailingAllocations::~FailingAllocations()
{
    for (std::atomic<bool>& fails : s_fails) {
        fails = false;
    }
    s_successes = INT_MAX;
}
