// What libFuzzer needs of this compiler and this target: GCC calls a function at each branch and keeps no counters, and the
// libraries of Windows cannot name functions that may be missing.
//
//     fuzz --target=NAME [libFuzzer's options] CORPUS...
#include "tests/fuzz/Target.h"

#include <FuzzerDefs.h>
#include <FuzzerExtFunctions.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace {

constexpr unsigned COUNTERS_BITS = 16;
std::uint8_t s_counters[1 << COUNTERS_BITS];
const fuzz::STarget* s_target = nullptr;

constexpr char TARGET_OPTION[] = "--target=";
// Of so many inputs one runs on the guarded heap: always the same ones, so that a finding is found again.
constexpr std::uint32_t GUARDED_PART = 16;

fuzz::Heap heapFor(const std::uint8_t* data, size_t size)
{
    constexpr std::uint32_t PRIME = 16777619;
    std::uint32_t hash = 2166136261;
    for (size_t place = 0; place < size; ++place) {
        hash = (hash ^ data[place]) * PRIME;
    }
    return (hash >> 16) % GUARDED_PART == 0 ? fuzz::Heap::Guarded : fuzz::Heap::Usual;
}

// The engine says only that there was a fault. This says where, in case it is not the product's.
LONG CALLBACK tellPlace(EXCEPTION_POINTERS* pointers)
{
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION || record.ExceptionCode == EXCEPTION_ILLEGAL_INSTRUCTION ||
        record.ExceptionCode == EXCEPTION_STACK_OVERFLOW) {
        HMODULE module = nullptr;
        GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           static_cast<const char*>(record.ExceptionAddress), &module);
        char path[MAX_PATH + 1] = "unknown module";
        GetModuleFileNameA(module, path, MAX_PATH);
        std::fprintf(stderr, "BROKEN: exception %08lx at %p, %s + %llx\n", record.ExceptionCode, record.ExceptionAddress, path,
                     static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(record.ExceptionAddress) -
                                                     reinterpret_cast<std::uintptr_t>(module)));
        std::fflush(stderr);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

namespace fuzzer {

std::uint8_t* ExtraCountersBegin()
{
    return std::begin(s_counters);
}

std::uint8_t* ExtraCountersEnd()
{
    return std::end(s_counters);
}

void ClearExtraCounters()
{
    std::memset(s_counters, 0, sizeof s_counters);
}

ExternalFunctions::ExternalFunctions()
{
    LLVMFuzzerInitialize = ::LLVMFuzzerInitialize;
}

} // namespace fuzzer

extern "C" {

// Called at each branch of the product.
void __sanitizer_cov_trace_pc()
{
    constexpr std::uint32_t GOLDEN = 0x9E3779B1;
    const auto place = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)));
    ++s_counters[(place * GOLDEN) >> (32 - COUNTERS_BITS)];
}

// The library has none for these.
void __sanitizer_cov_trace_cmpf(float, float)
{
}
void __sanitizer_cov_trace_cmpd(double, double)
{
}

int LLVMFuzzerInitialize(int* count, char*** arguments)
{
    AddVectoredExceptionHandler(TRUE, tellPlace);
    for (int index = 1; index < *count; ++index) {
        const char* const argument = (*arguments)[index];
        if (std::strncmp(argument, TARGET_OPTION, sizeof TARGET_OPTION - 1) == 0) {
            s_target = fuzz::findTarget(argument + sizeof TARGET_OPTION - 1);
        }
    }
    if (s_target == nullptr) {
        std::fputs("--target= names no target\n", stderr);
        std::exit(2);
    }
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    try {
        fuzz::run(*s_target, {data, size}, heapFor(data, size));
    } catch (const fuzz::SBroken& broken) {
        std::fprintf(stderr, "BROKEN: %s\n", broken.what());
        std::fflush(stderr);
        std::abort();
    }
    return 0;
}
}
