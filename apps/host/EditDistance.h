// How far apart two words are, for suggesting the word a user meant: a mistyped setting in the
// configuration or "config set", a mistyped command of calljournal. Pure function; any thread.
#pragma once

#include <cstddef>
#include <string>

namespace host {

// The edits turning `a` into `b`: insertions, deletions, replacements and swaps of neighbours.
std::size_t editDistance(const std::string& a, const std::string& b);

}  // namespace host
