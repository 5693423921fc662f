#include "ProcessHeap.h"

#include <malloc.h>

namespace host {

namespace {
constexpr int kArenas = 2;
// Blocks from this size up get a mapping of their own: a full list's reply text (about a
// megabyte) does, an entry or a store row does not.
constexpr int kOwnMappingBytes = 256 * 1024;
}  // namespace

void limitHeapGrowth() {
  ::mallopt(M_ARENA_MAX, kArenas);
  ::mallopt(M_MMAP_THRESHOLD, kOwnMappingBytes);
}

void releaseFreedHeap() { ::malloc_trim(0); }

}  // namespace host
