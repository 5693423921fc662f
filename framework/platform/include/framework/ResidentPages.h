// Large texts written from start to end (a full list's reply, a store's read reply) live in
// fresh mappings of their own; touching each new page costs a fault. These make a block's pages
// resident in one system call instead, ahead of the writing. Plain functions; any thread.
#pragma once

#include <cstddef>
#include <string>

#pragma GCC visibility push(default)

namespace fw {

// Makes the whole pages among the `size` bytes from `data` resident (writable, zero-filled where
// new). Where the system does not offer it, nothing happens and the pages fault in as written.
void makeResident(char* data, std::size_t size);

// Keeps the room of `text` (its capacity) resident some way ahead of its end while it grows by
// appends within that room: call after appends; `resident` is how far it has been made so (start
// at 0 for a new text).
void keepResidentAhead(std::string& text, std::size_t& resident);

}  // namespace fw

#pragma GCC visibility pop
