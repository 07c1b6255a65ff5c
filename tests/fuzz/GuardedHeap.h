// While it is alive, each C++ allocation of the program lies in pages of its own, and the page behind it can be neither read nor
// written: a step over its end ends the process at once, as does any use after its release. This compiler has no address
// sanitizer for Windows.
//
// Up to 15 bytes behind an object's end belong to it, because allocations are aligned; behind an array that is asked for with
// std::nothrow at most 3. Threads: one. Failure: std::bad_alloc when a gigabyte is in use.
#pragma once

class GuardedHeap
{
public:
    GuardedHeap();
    ~GuardedHeap();
    GuardedHeap(const GuardedHeap&) = delete;
    GuardedHeap& operator=(const GuardedHeap&) = delete;
};
