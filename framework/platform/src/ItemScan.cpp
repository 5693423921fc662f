// ItemScan: the in-place reading of item bodies in the journal's own shape (see the header).
#include "framework/ItemScan.h"

#include <cstring>

#include "framework/JournalServiceHelper.h"

namespace journalxml {
namespace {

using H = JournalServiceHelper;

// What each byte is to the scan, looked up in one table: a full list is megabytes of names and
// attribute values, read byte by byte.
enum : unsigned char {
  kNameStart = 1,  // letters and '_'
  kNameChar = 2,   // letters, digits, '_', '-', '.'
  kValueStop = 4,  // ends or breaks off an attribute value: '"', '<', '\t', '\n', '\r', '\0'
};

struct ByteClasses {
  unsigned char of[256] = {};
  constexpr ByteClasses() {
    for (int c = 'a'; c <= 'z'; ++c) of[c] = kNameStart | kNameChar;
    for (int c = 'A'; c <= 'Z'; ++c) of[c] = kNameStart | kNameChar;
    for (int c = '0'; c <= '9'; ++c) of[c] = kNameChar;
    of[static_cast<unsigned char>('_')] = kNameStart | kNameChar;
    of[static_cast<unsigned char>('-')] = kNameChar;
    of[static_cast<unsigned char>('.')] = kNameChar;
    for (const char c : {'"', '<', '\t', '\n', '\r', '\0'}) of[static_cast<unsigned char>(c)] = kValueStop;
  }
};
constexpr ByteClasses kBytes;

bool is(char c, unsigned char what) { return (kBytes.of[static_cast<unsigned char>(c)] & what) != 0; }

// A plain name at `p` (letters, digits, '_', '-', '.'); `p` moves past it. Null when there is none
// or the input ends right after it. The scan's buffer ends in a null and holds none before `end`,
// so the null, which is no name character, stops the loop there.
char* readName(char*& p, char* end) {
  if (p == end || !is(*p, kNameStart)) return nullptr;
  char* name = p;
  while (is(*p, kNameChar)) ++p;
  return p == end ? nullptr : name;
}

// The end tag of the element `name` at `p`; `p` moves past it.
bool readEndTag(char*& p, char* end, const char* name) {
  const size_t length = std::strlen(name);
  if (static_cast<size_t>(end - p) < length + 3 || p[0] != '<' || p[1] != '/' ||
      std::memcmp(p + 2, name, length) != 0 || p[2 + length] != '>')
    return false;
  p += length + 3;
  return true;
}

bool startsWith(const char* p, const char* end, const char* prefix) {
  const size_t length = std::strlen(prefix);
  return static_cast<size_t>(end - p) >= length && std::memcmp(p, prefix, length) == 0;
}

char kEmpty[] = "";

}  // namespace

bool ItemScan::scan(const char* body, size_t size) {
  m_root = nullptr;
  m_fields.clear();
  m_infos.clear();
  m_attributes.clear();
  // References and null bytes are left to pugixml; the scan reads texts as they stand.
  if (size < 4 || std::memchr(body, '&', size) || std::memchr(body, '\0', size)) return false;
  m_buffer.assign(body, size);
  char* p = &m_buffer[0];
  char* const end = p + size;
  if (*p != '<') return false;
  ++p;
  char* root = readName(p, end);
  if (!root || *p != '>') return false;
  *p++ = '\0';
  if (!scanFields(p, end) || p == end || !readEndTag(p, end, root)) return false;
  m_root = root;
  return p == end;
}

// Fields up to the root's end tag, `p` left on its '<'.
bool ItemScan::scanFields(char*& p, char* end) {
  while (end - p >= 2 && p[0] == '<' && p[1] != '/') {
    ++p;
    char* name = readName(p, end);
    if (!name) return false;
    Field field{name, kEmpty, 0, 0};
    if (*p == '/') {  // an empty element
      if (end - p < 2 || p[1] != '>') return false;
      *p = '\0';
      p += 2;
    } else if (*p == '>') {
      *p++ = '\0';
      if (std::strcmp(name, H::CALLINFOS) == 0) {
        if (!scanInfos(p, end, field)) return false;
      } else {
        char* close = static_cast<char*>(std::memchr(p, '<', static_cast<size_t>(end - p)));
        if (!close) return false;
        field.text = p;
        p = close;
        if (!readEndTag(p, end, name)) return false;
        *close = '\0';  // after the check: it overwrote the end tag's '<'
      }
    } else {
      return false;  // attributes on a field
    }
    m_fields.push_back(field);
  }
  return true;
}

// The occurrences of a CALLINFOS element and its end tag.
bool ItemScan::scanInfos(char*& p, char* end, Field& infos) {
  infos.first = static_cast<uint32_t>(m_infos.size());
  long previous = -1;
  while (end - p >= 2 && p[0] == '<' && p[1] != '/') {
    if (!scanInfo(p, end, previous)) return false;
    previous = static_cast<long>(m_infos.size()) - 1;
  }
  infos.count = static_cast<uint32_t>(m_infos.size()) - infos.first;
  return p != end && readEndTag(p, end, H::CALLINFOS);
}

// The name at `p` when it is the name `known` (an attribute scanned before) followed by '=': `p`
// moves past it. The occurrences of an entry mostly carry the same attributes in the same order,
// and comparing with a name already read and checked is quicker than reading it byte by byte; the
// result is the one readName would give.
char* ItemScan::sameNameAs(const Field& known, char*& p, char* end) {
  const size_t length = static_cast<size_t>(known.text - known.name) - 2;  // name="value
  if (static_cast<size_t>(end - p) <= length || p[length] != '=' || std::memcmp(p, known.name, length) != 0)
    return nullptr;
  char* name = p;
  p += length;
  return name;
}

// One `<callInfo name="value" .../>`.
bool ItemScan::scanInfo(char*& p, char* end, long previous) {
  ++p;
  // The element's name is CALLINFO and no longer (as readName would read it), not at the end.
  static const size_t kElementLength = std::strlen(H::CALLINFO);
  if (static_cast<size_t>(end - p) <= kElementLength || std::memcmp(p, H::CALLINFO, kElementLength) != 0 ||
      is(p[kElementLength], kNameChar))
    return false;
  p += kElementLength;
  Info info{static_cast<uint32_t>(m_attributes.size()), 0};
  const Info before = previous >= 0 ? m_infos[static_cast<size_t>(previous)] : Info{0, 0};
  while (*p == ' ') {
    ++p;
    const uint32_t index = static_cast<uint32_t>(m_attributes.size()) - info.first;
    char* name = index < before.count ? sameNameAs(m_attributes[before.first + index], p, end) : nullptr;
    if (!name) name = readName(p, end);
    if (!name || *p != '=' || end - p < 2 || p[1] != '"') return false;
    *p = '\0';
    p += 2;
    char* value = p;
    // pugixml turns a raw tab or line break in an attribute into a blank: left to it. The buffer
    // ends in a null, and the body holds none, so the null stops the loop at `end`.
    while (!is(*p, kValueStop)) ++p;
    if (p == end || *p != '"') return false;
    *p++ = '\0';
    m_attributes.push_back({name, value, 0, 0});
    if (p == end) return false;
  }
  if (!startsWith(p, end, "/>")) return false;
  p += 2;
  info.count = static_cast<uint32_t>(m_attributes.size()) - info.first;
  m_infos.push_back(info);
  return true;
}

const char* ItemScan::fieldText(const char* name) const {
  for (const Field& field : m_fields)
    if (std::strcmp(field.name, name) == 0) return field.text;
  return nullptr;
}

const ItemScan::Field* ItemScan::firstInfos() const {
  for (const Field& field : m_fields)
    if (std::strcmp(field.name, H::CALLINFOS) == 0) return &field;
  return nullptr;
}

const char* ItemScan::attribute(const Info& info, const char* name) const {
  for (uint32_t i = info.first; i < info.first + info.count; ++i)
    if (std::strcmp(m_attributes[i].name, name) == 0) return m_attributes[i].text;
  return nullptr;
}

}  // namespace journalxml
