// UTF-8 checking and repair of text from outside.
#include "framework/Utf8.h"

namespace fw {
namespace utf8 {
namespace {

// The allowed range of the byte after a lead byte, and how many continuation bytes follow the
// lead (0 for a byte that cannot start a character). Table 3-7 of the Unicode standard.
struct Lead {
  int continuations;
  unsigned char low, high;  // of the first continuation byte; the others are 0x80..0xBF
};

Lead leadOf(unsigned char c) {
  if (c >= 0xC2 && c <= 0xDF) return {1, 0x80, 0xBF};
  if (c == 0xE0) return {2, 0xA0, 0xBF};
  if (c == 0xED) return {2, 0x80, 0x9F};  // no UTF-16 surrogates
  if (c >= 0xE1 && c <= 0xEF) return {2, 0x80, 0xBF};
  if (c == 0xF0) return {3, 0x90, 0xBF};
  if (c >= 0xF1 && c <= 0xF3) return {3, 0x80, 0xBF};
  if (c == 0xF4) return {3, 0x80, 0x8F};  // nothing past U+10FFFF
  return {0, 0, 0};
}

bool isXmlControl(unsigned char c) { return c < 0x20 && c != '\t' && c != '\n' && c != '\r'; }

// What starts at `at`: the length of a character to keep (`keep` true) or of a sequence to
// replace by one U+FFFD (`keep` false). Never 0.
std::size_t nextUnit(std::string_view text, std::size_t at, bool& keep) {
  const auto c = static_cast<unsigned char>(text[at]);
  if (c < 0x80) {
    keep = !isXmlControl(c);
    return 1;
  }
  const Lead lead = leadOf(c);
  if (lead.continuations == 0) {
    keep = false;
    return 1;
  }
  std::size_t length = 1;
  for (int k = 1; k <= lead.continuations; ++k, ++length) {
    if (at + length >= text.size()) break;
    const auto b = static_cast<unsigned char>(text[at + length]);
    const unsigned char low = k == 1 ? lead.low : 0x80, high = k == 1 ? lead.high : 0xBF;
    if (b < low || b > high) break;
  }
  keep = length == static_cast<std::size_t>(lead.continuations) + 1;
  // U+FFFE and U+FFFF are well-formed but not XML characters.
  if (keep && c == 0xEF && static_cast<unsigned char>(text[at + 1]) == 0xBF &&
      static_cast<unsigned char>(text[at + 2]) >= 0xBE)
    keep = false;
  return length;
}

}  // namespace

bool isClean(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    bool keep = true;
    at += nextUnit(text, at, keep);
    if (!keep) return false;
  }
  return true;
}

std::string sanitize(std::string_view text) {
  if (isClean(text)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 8);
  for (std::size_t at = 0; at < text.size();) {
    bool keep = true;
    const std::size_t length = nextUnit(text, at, keep);
    if (keep) {
      out.append(text, at, length);
    } else {
      out += kReplacement;
    }
    at += length;
  }
  return out;
}

std::string truncate(std::string& text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return std::string();
  std::size_t end = maxBytes;
  // Back off continuation bytes (10xxxxxx) to the start of the character that does not fit.
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  std::string cut = text.substr(end);
  text.resize(end);
  return cut;
}

}  // namespace utf8
}  // namespace fw
