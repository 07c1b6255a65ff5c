#include "tests/fuzz/GuardedHeap.h"

#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr size_t PAGE = 4096;
constexpr size_t PAGES = (size_t{1} << 30) / PAGE;
constexpr size_t ALIGNMENT = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
// Of arrays that are asked for with std::nothrow: enough for the version resource, which is one.
constexpr size_t NOTHROW_ALIGNMENT = 4;
constexpr unsigned char FILLING = 0xCC;

int s_alive = 0;
// Pages that each allocation holds, the one behind it included; at its first page.
std::uint32_t s_held[PAGES];
size_t s_next = 0;

char* arena()
{
    static char* const s_arena = static_cast<char*>(VirtualAlloc(nullptr, PAGES * PAGE, MEM_RESERVE, PAGE_NOACCESS));
    return s_arena;
}

// Pages in a row that nobody holds, from the place behind the last allocation on, so that released ones stay unused for long.
size_t findPages(size_t count)
{
    size_t begin = s_next;
    for (size_t looked = 0; looked < 2 * PAGES;) {
        if (begin + count > PAGES) {
            looked += PAGES - begin;
            begin = 0;
            continue;
        }
        size_t place = begin;
        while (place < begin + count && s_held[place] == 0) {
            ++place;
        }
        if (place == begin + count) {
            return begin;
        }
        looked += place + s_held[place] - begin;
        begin = place + s_held[place];
    }
    return PAGES;
}

void* guarded(size_t size, size_t alignment)
{
    const size_t space = (size + alignment - 1) / alignment * alignment;
    const size_t pages = (space + PAGE - 1) / PAGE + 1;
    const size_t begin = findPages(pages);
    if (begin == PAGES) {
        return nullptr;
    }
    char* const first = arena() + begin * PAGE;
    if (VirtualAlloc(first, (pages - 1) * PAGE, MEM_COMMIT, PAGE_READWRITE) == nullptr && pages > 1) {
        return nullptr;
    }
    s_held[begin] = static_cast<std::uint32_t>(pages);
    s_next = begin + pages;
    char* const memory = first + (pages - 1) * PAGE - space;
    std::memset(memory, FILLING, space);
    return memory;
}

void* allocate(size_t size, size_t alignment = ALIGNMENT)
{
    const size_t wanted = size == 0 ? 1 : size;
    return s_alive != 0 ? guarded(wanted, alignment) : std::malloc(wanted);
}

void release(void* memory)
{
    const auto* const place = static_cast<const char*>(memory);
    const char* const begin = arena();
    if (place < begin || place >= begin + PAGES * PAGE) {
        std::free(memory);
        return;
    }
    const size_t page = static_cast<size_t>(place - begin) / PAGE;
    if (s_held[page] == 0) {
        std::abort(); // released twice, or not where it begins
    }
    VirtualFree(arena() + page * PAGE, s_held[page] * PAGE, MEM_DECOMMIT);
    s_held[page] = 0;
}

void* allocateOrThrow(size_t size)
{
    void* const memory = allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

GuardedHeap::GuardedHeap()
{
    ++s_alive;
}

GuardedHeap::~GuardedHeap()
{
    --s_alive;
}

void* operator new(size_t size)
{
    return allocateOrThrow(size);
}

void* operator new[](size_t size)
{
    return allocateOrThrow(size);
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size, NOTHROW_ALIGNMENT);
}

void operator delete(void* memory) noexcept
{
    release(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    release(memory);
}

void operator delete[](void* memory) noexcept
{
    release(memory);
}

void operator delete[](void* memory, size_t) noexcept
{
    release(memory);
}
