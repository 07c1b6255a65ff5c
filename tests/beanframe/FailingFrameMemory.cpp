#include "tests/beanframe/FailingFrameMemory.h"

#include <atomic>
#include <new>

namespace {

std::atomic<bool> s_fails{false};

} // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    if (s_fails) {
        return nullptr;
    }
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

FailingFrameMemory::FailingFrameMemory()
{
    s_fails = true;
}

FailingFrameMemory::~FailingFrameMemory()
{
    s_fails = false;
}
