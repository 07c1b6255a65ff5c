// Makes C++ allocations of the whole test program fail, while it is alive. One at a time; the main thread only.
#pragma once

#include <cstddef>

class FailingAllocations
{
public:
    enum class Kind { Large, NothrowArrays };
    // Allocations of at least this many bytes are the large ones.
    static constexpr size_t LARGE = 100000;

    explicit FailingAllocations(Kind kind);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
};
