// SPDX-License-Identifier: BSD-3-Clause
// Replaced operators new and delete. Each block has a note in front of it; those that were numbered stand in a ring, by
// which what was never released can be told, and through which a leak checker finds it.
#include "memory/heap.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstdlib>
#include <map>
#include <new>

namespace {

struct Note {
    Note* next;
    Note* previous;
    void* block;        // as malloc gave it
    const void* caller; // null once it was told of
};

constexpr std::size_t kPlain = alignof(std::max_align_t);
constexpr std::size_t kNoteBytes = (sizeof(Note) + kPlain - 1) / kPlain * kPlain;

constinit Note ring{&ring, &ring, nullptr, nullptr};
constinit bool isOn = false;
constinit bool isLasting = false;
constinit long failAt = 0;
constinit long count = 0;
constinit long heldNow = 0;

bool fails()
{
    if (!isOn) return false;
    ++count;
    return failAt != 0 && (isLasting ? count >= failAt : count == failAt);
}

/// @return null for no memory.
void* take(std::size_t bytes, std::size_t alignment, const void* caller)
{
    if (fails()) return nullptr;
    const std::size_t before = (kNoteBytes + alignment - 1) / alignment * alignment;
    const std::size_t whole = (before + bytes + alignment - 1) / alignment * alignment;
    void* const block = alignment > kPlain ? std::aligned_alloc(alignment, whole) : std::malloc(whole);
    if (block == nullptr) return nullptr;
    char* const given = static_cast<char*>(block) + before;
    Note* const note = new (given - kNoteBytes) Note{nullptr, nullptr, block, caller};
    if (isOn) {
        note->next = ring.next;
        note->previous = &ring;
        ring.next->previous = note;
        ring.next = note;
        ++heldNow;
    }
    return given;
}

void* takeOrThrow(std::size_t bytes, std::size_t alignment, const void* caller)
{
    void* const given = take(bytes, alignment, caller);
    if (given == nullptr) throw std::bad_alloc();
    return given;
}

void leaveRing(Note& note)
{
    if (note.next == nullptr) return; // made while nobody counted
    note.previous->next = note.next;
    note.next->previous = note.previous;
    note.next = nullptr;
    if (note.caller != nullptr) --heldNow;
}

void giveBack(void* given)
{
    if (given == nullptr) return;
    Note& note = *reinterpret_cast<Note*>(static_cast<char*>(given) - kNoteBytes);
    leaveRing(note);
    std::free(note.block);
}

} // namespace

namespace kxtest::heap {

Shortage::Shortage(long first, bool lasting)
{
    failAt = first;
    isLasting = lasting;
    count = 0;
    isOn = true;
}

Shortage::~Shortage()
{
    isOn = false;
}

long seen()
{
    return count;
}

long held()
{
    return heldNow;
}

std::string heldBy()
{
    std::map<std::string, int> callers;
    for (Note* note = ring.next; note != &ring; note = note->next) {
        if (note->caller == nullptr) continue; // told before
        Dl_info info = {};
        const bool isKnown = dladdr(note->caller, &info) != 0 && info.dli_fname != nullptr;
        const std::string path = isKnown ? info.dli_fname : "unknown";
        ++callers[path.substr(path.rfind('/') + 1)];
        note->caller = nullptr;
        --heldNow;
    }
    std::string text;
    for (const auto& [name, number] : callers) text += name + ": " + std::to_string(number) + "\n";
    return text;
}

} // namespace kxtest::heap

// The array forms of the standard library call these; the plain ones are the program's own.
void* operator new(std::size_t bytes)
{
    return takeOrThrow(bytes, kPlain, __builtin_return_address(0));
}
void* operator new[](std::size_t bytes)
{
    return takeOrThrow(bytes, kPlain, __builtin_return_address(0));
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return take(bytes, kPlain, __builtin_return_address(0));
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept
{
    return take(bytes, kPlain, __builtin_return_address(0));
}
void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return takeOrThrow(bytes, static_cast<std::size_t>(alignment), __builtin_return_address(0));
}
void* operator new[](std::size_t bytes, std::align_val_t alignment)
{
    return takeOrThrow(bytes, static_cast<std::size_t>(alignment), __builtin_return_address(0));
}
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return take(bytes, static_cast<std::size_t>(alignment), __builtin_return_address(0));
}
void* operator new[](std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return take(bytes, static_cast<std::size_t>(alignment), __builtin_return_address(0));
}
void operator delete(void* given) noexcept
{
    giveBack(given);
}
void operator delete[](void* given) noexcept
{
    giveBack(given);
}
void operator delete(void* given, std::size_t) noexcept
{
    giveBack(given);
}
void operator delete[](void* given, std::size_t) noexcept
{
    giveBack(given);
}
void operator delete(void* given, const std::nothrow_t&) noexcept
{
    giveBack(given);
}
void operator delete[](void* given, const std::nothrow_t&) noexcept
{
    giveBack(given);
}
void operator delete(void* given, std::align_val_t) noexcept
{
    giveBack(given);
}
void operator delete[](void* given, std::align_val_t) noexcept
{
    giveBack(given);
}
void operator delete(void* given, std::size_t, std::align_val_t) noexcept
{
    giveBack(given);
}
void operator delete[](void* given, std::size_t, std::align_val_t) noexcept
{
    giveBack(given);
}
void operator delete(void* given, std::align_val_t, const std::nothrow_t&) noexcept
{
    giveBack(given);
}
void operator delete[](void* given, std::align_val_t, const std::nothrow_t&) noexcept
{
    giveBack(given);
}
