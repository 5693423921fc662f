#include "ProcessHeap.h"

#include <malloc.h>

#include <string>

#include "framework/JournalServiceHelper.h"

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

void HeapReleasingInvoker::handleMessage(Executable* target, const char* msg, int length, InvokerResponse* response) {
  m_module->handleMessage(target, msg, length, response);
  if (!msg || length <= 0) return;
  using H = JournalServiceHelper;
  switch (H::getMethodFromXMLMsg(std::string(msg, static_cast<size_t>(length)))) {
    case H::GET_MISSED_CALL_LIST:
    case H::GET_RECEIVED_CALL_LIST:
    case H::GET_DIALLED_CALL_LIST:
    case H::GET_FORWARDED_CALL_LIST:
      releaseFreedHeap();
      break;
    default:
      break;
  }
}

}  // namespace host
