// How the daemon's process uses the C library's allocator, so that its resident memory follows
// what it holds rather than what it once held: the lists are loaded once at start (a peak of
// transient buffers), then client threads build and free large reply texts. Both functions are
// process-wide; call them from the main thread.
#pragma once

#include "framework/Invoker.h"

namespace host {

// Before any thread starts: two malloc arenas for all threads (not one per thread that ever
// allocated, each keeping its own freed pages), and a fixed threshold above which a block is
// mapped on its own, so that a large reply is unmapped when freed whatever came before it.
void limitHeapGrowth();

// Gives the freed memory of every arena back to the system; after the start-up load.
void releaseFreedHeap();

// The clients' way to the module: hands every request to the module's invoker, and after a read
// of a whole list (thousands of entries copied and written out, then freed) gives the freed heap
// back, once the reply is queued for sending. Does not own the module's invoker, which must
// outlive it. Called on the client server's request threads, several at once.
class HeapReleasingInvoker : public Invoker {
 public:
  explicit HeapReleasingInvoker(Invoker* module) : m_module(module) {}
  void handleMessage(Executable* target, const char* msg, int length, InvokerResponse* response) override;

 private:
  Invoker* m_module;
};

}  // namespace host
