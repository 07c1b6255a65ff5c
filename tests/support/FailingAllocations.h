// Makes C++ allocations of the whole test program fail, while it is alive. One at a time; the main thread only.
//
// Arrays that are asked for without an exception are never zero by accident: their memory comes filled with FILLING.
#pragma once

#include <cstddef>

class FailingAllocations
{
public:
    enum class Kind { Large, NothrowArrays };
    // Allocations of at least this many bytes are the large ones.
    static constexpr size_t LARGE = 100000;
    static constexpr unsigned char FILLING = 0xCC;

    // The array that was last asked for without an exception; null when it has been freed.
    static const void* lastNothrowArray();

    explicit FailingAllocations(Kind kind);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
};
