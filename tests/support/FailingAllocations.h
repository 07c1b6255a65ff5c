// Makes C++ allocations of the whole test program fail, while it is alive. One at a time; the main thread only.
//
// Arrays that are asked for without an exception are never zero by accident: their memory comes filled with FILLING.
#pragma once

#include <cstddef>

class FailingAllocations
{
public:
    // NothrowObjects and NothrowArrays: those that are asked for without an exception.
    enum class Kind { Large, NothrowObjects, NothrowArrays, All };
    enum class Then { AllFail, OthersSucceed };
    // Allocations of at least this many bytes are the large ones.
    static constexpr size_t LARGE = 100000;
    static constexpr unsigned char FILLING = 0xCC;

    // Lets what a test does in between allocate.
    class Pause
    {
    public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
    };

    // How many allocations failed because of the object that is, or was last, alive.
    static int refused();
    // The array that was last asked for without an exception; null when it has been freed.
    static const void* lastNothrowArray();
    // What the program has allocated and not freed.
    static size_t liveBytes();

    explicit FailingAllocations(Kind kind);
    // The first `successes` allocations that may throw succeed, the next one fails.
    FailingAllocations(int successes, Then then);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
};
