// How the daemon's process uses the C library's allocator, so that its resident memory follows
// what it holds rather than what it once held: the lists are loaded once at start (a peak of
// transient buffers), then client threads build and free large reply texts. A list reply is written
// from the list in place, so a read leaves nothing behind but its reply, which is mapped on its
// own and unmapped when freed. Both functions are process-wide; call them from the main thread.
#pragma once

namespace host {

// Before any thread starts: two malloc arenas for all threads (not one per thread that ever
// allocated, each keeping its own freed pages), and a fixed threshold above which a block is
// mapped on its own, so that a large reply is unmapped when freed whatever came before it.
void limitHeapGrowth();

// Gives the freed memory of every arena back to the system; after the start-up load.
void releaseFreedHeap();

}  // namespace host
