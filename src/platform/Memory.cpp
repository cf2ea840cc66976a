#include "platform/Memory.h"

#include <malloc.h>

namespace velmo {

void returnFreedMemory() {
    // Left to itself, the allocator keeps an arena for each thread and takes ever larger blocks from it, in whose
    // gaps what was freed stays.
    constexpr int arenas = 2;
    constexpr int largeBlock = 128 * 1024;
    constexpr int mostKept = 512 * 1024;
    mallopt(M_ARENA_MAX, arenas);
    mallopt(M_MMAP_THRESHOLD, largeBlock);
    mallopt(M_TRIM_THRESHOLD, mostKept);
}

}
