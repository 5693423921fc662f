// The escaper shared by every writer of journal XML: item bodies, entries and store replies.
#include <array>
#include <cstdint>
#include <cstring>

#include "framework/JournalServiceHelperXml.h"

namespace journalxml {
namespace {

// What each byte becomes in character data: itself, or a reference of up to 5 bytes. Entries are
// 8 bytes so that the escaper copies one whole entry per byte without a branch.
struct Replacement {
  char text[8];
  uint8_t length;
};
constexpr size_t kMaxReplacement = 6;  // "&quot;"

// For attribute values (`attribute`) also the quote, tab and line feed become references: a
// reader turns raw ones into blanks.
constexpr std::array<Replacement, 256> makeReplacements(bool attribute) {
  std::array<Replacement, 256> table{};
  for (int c = 0; c < 256; ++c) {
    table[c].text[0] = static_cast<char>(c);
    table[c].length = 1;
  }
  const auto set = [&table](int c, const char* text) {
    uint8_t n = 0;
    for (; text[n]; ++n) table[c].text[n] = text[n];
    table[c].length = n;
  };
  // Control characters but tab and line feed as references, so that no reader folds a carriage
  // return into a line feed.
  const char* const controls[] = {"&#0;",  "&#1;",  "&#2;",  "&#3;",  "&#4;",  "&#5;",  "&#6;",  "&#7;",
                                  "&#8;",  "",      "",      "&#11;", "&#12;", "&#13;", "&#14;", "&#15;",
                                  "&#16;", "&#17;", "&#18;", "&#19;", "&#20;", "&#21;", "&#22;", "&#23;",
                                  "&#24;", "&#25;", "&#26;", "&#27;", "&#28;", "&#29;", "&#30;", "&#31;"};
  for (int c = 0; c < 0x20; ++c)
    if (c != '\t' && c != '\n') set(c, controls[c]);
  set('<', "&lt;");
  set('>', "&gt;");
  set('&', "&amp;");
  if (attribute) {
    set('\t', "&#9;");
    set('\n', "&#10;");
    set('"', "&quot;");
  }
  return table;
}
constexpr std::array<Replacement, 256> kReplacements = makeReplacements(false);
constexpr std::array<Replacement, 256> kAttributeReplacements = makeReplacements(true);

void appendWith(const std::array<Replacement, 256>& replacements, std::string& out, const char* text, size_t size) {
  // Most values (numbers, times, names) need no reference at all: copy them as they are.
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  size_t plain = 0;
  while (plain < size && replacements[bytes[plain]].length == 1) ++plain;
  if (plain == size) {
    out.append(text, size);
    return;
  }
  // Room for the longest outcome plus the tail of the last 8-byte copy; trimmed afterwards.
  const size_t start = out.size();
  out.resize(start + size * kMaxReplacement + sizeof(Replacement::text));
  char* const begin = &out[start];
  char* p = begin;
  const auto* in = reinterpret_cast<const unsigned char*>(text);
  for (size_t i = 0; i < size; ++i) {
    const Replacement& replacement = replacements[in[i]];
    std::memcpy(p, replacement.text, sizeof replacement.text);
    p += replacement.length;
  }
  out.resize(start + static_cast<size_t>(p - begin));
}

bool isPlain(const std::array<Replacement, 256>& replacements, const char* text, size_t size) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  for (size_t i = 0; i < size; ++i)
    if (replacements[bytes[i]].length != 1) return false;
  return true;
}

char* put(char* p, const char* text, size_t size) {
  std::memcpy(p, text, size);
  return p + size;
}

}  // namespace

void appendField(std::string& out, const char* name, const char* text, size_t size, bool attribute) {
  const auto& replacements = attribute ? kAttributeReplacements : kReplacements;
  const size_t nameSize = std::strlen(name);
  char piece[192];
  if (2 * nameSize + size + 5 > sizeof piece || !isPlain(replacements, text, size)) {
    out.append(attribute ? " " : "<").append(name, nameSize).append(attribute ? "=\"" : ">");
    appendWith(replacements, out, text, size);
    if (attribute) {
      out += '"';
    } else {
      out.append("</").append(name, nameSize) += '>';
    }
    return;
  }
  // The usual field, a short value without references: put together beside and appended once.
  char* p = piece;
  if (attribute) {
    *p++ = ' ';
    p = put(p, name, nameSize);
    p = put(p, "=\"", 2);
    p = put(p, text, size);
    *p++ = '"';
  } else {
    *p++ = '<';
    p = put(p, name, nameSize);
    *p++ = '>';
    p = put(p, text, size);
    p = put(p, "</", 2);
    p = put(p, name, nameSize);
    *p++ = '>';
  }
  out.append(piece, static_cast<size_t>(p - piece));
}

void appendEscaped(std::string& out, const char* text, size_t size) { appendWith(kReplacements, out, text, size); }

void appendEscapedAttribute(std::string& out, const char* text, size_t size) {
  appendWith(kAttributeReplacements, out, text, size);
}

}  // namespace journalxml
