// ResidentPages: see the header.
#include "framework/ResidentPages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23  // Linux 5.14; older kernels refuse it
#endif

namespace fw {

namespace {
// How far ahead of the written end a growing text is made resident, in one call each time.
constexpr std::size_t kAhead = 256 * 1024;
}  // namespace

void makeResident(char* data, std::size_t size) {
  static const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t first = (reinterpret_cast<uintptr_t>(data) + page - 1) & ~(page - 1);
  const uintptr_t last = (reinterpret_cast<uintptr_t>(data) + size) & ~(page - 1);
  if (last > first) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_WRITE);
}

void keepResidentAhead(std::string& text, std::size_t& resident) {
  if (text.size() + kAhead / 4 < resident) return;
  const std::size_t until = std::min(text.capacity(), std::max(resident, text.size()) + kAhead);
  if (until <= resident) return;
  const std::size_t from = std::max(resident, text.size());
  makeResident(&text[0] + from, until - from);
  resident = until;
}

}  // namespace fw
