// Text that enters from outside (the switch, a phonebook file, a client) made fit to keep and to
// send on: well-formed UTF-8 that an XML 1.0 document can carry, and of a bounded length.
//
// Plain functions without state; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)

namespace fw {
namespace utf8 {

// U+FFFD REPLACEMENT CHARACTER, the stand-in for what could not be kept.
inline constexpr char kReplacement[] = "\xEF\xBF\xBD";

// True when sanitize() would leave `text` as it is.
bool isClean(std::string_view text);

// `text` with each ill-formed UTF-8 sequence replaced by U+FFFD (one per maximal ill-formed
// subpart, as Unicode recommends: "\xE2\x82" is one replacement, "\xFF\xFF" two), and so is each
// character that XML 1.0 cannot carry (the C0 controls other than tab, line feed and carriage
// return; U+FFFE and U+FFFF). Overlong forms, surrogates and values past U+10FFFF are ill-formed.
std::string sanitize(std::string_view text);

// Cuts `text` (well-formed UTF-8) to at most `maxBytes` bytes, at the end of a character, and
// returns what was cut off (empty when `text` was short enough).
std::string truncate(std::string& text, std::size_t maxBytes);

}  // namespace utf8
}  // namespace fw

#pragma GCC visibility pop
