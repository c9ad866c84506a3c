// Ways to get memory that grows. Each offers
//
//   static void* resize(void* memory, std::size_t old_bytes, std::size_t bytes);
//
// which makes `bytes` of the `old_bytes` at `memory` (null and 0 at first), keeps
// their contents and returns where they are now. 0 bytes give the memory back.
// Null, with `memory` as it was, when there is not enough. What was not written
// to costs address space only. Aligned for every type.
//
//   static void prepare(void* memory, std::size_t bytes);
//
// says that this part of it is about to be written. It begins a whole number of
// 64 KiB after the start of the memory.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>

#if defined(__linux__) && !defined(ZELK_WITHOUT_MREMAP)
#include <sys/mman.h>
#endif

// Works everywhere. Growing may copy everything, and takes both copies' room
// meanwhile.
struct CopiedMemory {
  static void* resize(void* memory, std::size_t old_bytes, std::size_t bytes) {
    void* const grown = bytes != 0 ? ::operator new(bytes, std::nothrow) : nullptr;
    if (grown == nullptr && bytes != 0) {
      return nullptr;
    }
    if (grown != nullptr && memory != nullptr) {
      std::memcpy(grown, memory, old_bytes < bytes ? old_bytes : bytes);
    }
    ::operator delete(memory);
    return grown;
  }

  static void prepare(void* /*memory*/, std::size_t /*bytes*/) {}
};

#if defined(__linux__) && !defined(ZELK_WITHOUT_MREMAP)

// Lets the system map the pages to another address instead of copying them:
// growing a list of 256 MiB takes microseconds, and a copy of it a good part of
// a second. Sizes are best whole pages.
struct MappedMemory {
  static void* resize(void* memory, std::size_t old_bytes, std::size_t bytes) {
    if (bytes == 0) {
      if (memory != nullptr) {
        munmap(memory, old_bytes);
      }
      return nullptr;
    }
    void* const grown = memory == nullptr ? mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                                          : mremap(memory, old_bytes, bytes, MREMAP_MAYMOVE);
    return grown != MAP_FAILED ? grown : nullptr;
  }

  // One call for many pages costs less than a fault per page. A system that
  // cannot do it, or has no memory left, leaves the pages to their faults.
  static void prepare([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes) {
#ifdef MADV_POPULATE_WRITE
    madvise(memory, bytes, MADV_POPULATE_WRITE);
#endif
  }
};

using GrowingMemory = MappedMemory;

#else

using GrowingMemory = CopiedMemory;

#endif
