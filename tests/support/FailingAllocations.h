// Makes C++ allocations of the whole test program fail, while it is alive. One at a time; the main thread only.
//
// Arrays from a nothrow new are filled with FILLING, so that they are never zero by accident.
#pragma once

#include <cstddef>

class FailingAllocations
{
public:
    // NothrowObjects and NothrowArrays: from a nothrow new.
    enum class Kind { Large, NothrowObjects, NothrowArrays, All };
    enum class Then { AllFail, OthersSucceed };
    // Large: at least this many bytes.
    static constexpr size_t LARGE = 100000;
    static constexpr unsigned char FILLING = 0xCC;

    // Lets the test allocate in between.
    class Pause
    {
    public:
        Pause();
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
    };

    // How many allocations the current object, or else the last one, made fail.
    static int refused();
    // The last array from a nothrow new; null when it has been freed.
    static const void* lastNothrowArray();
    // Allocated by the program and not freed.
    static size_t liveBytes();

    explicit FailingAllocations(Kind kind);
    // The first `successes` throwing allocations succeed, the next one fails.
    FailingAllocations(int successes, Then then);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
};
