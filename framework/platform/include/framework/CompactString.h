// A small immutable-length text value for the fields of the journal's occurrence records: 24 bytes,
// holding up to 23 characters in place (a time stamp, a number, most names) and longer texts in one
// heap block of exactly their length. A list of thousands of occurrences thus costs no heap block
// per field and a third less than std::string per field.
//
// It reads as a std::string where the records are used: it converts implicitly from std::string
// and const char*, to std::string, compares with both, and offers c_str(), size(), view() and the
// read-only helpers the callers need. Assignment replaces the whole text; there is no capacity.
// A plain value type: copyable, movable, not thread-safe.
#pragma once

#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)

class CompactString {
 public:
  static constexpr size_t kInlineCapacity = 23;
  static constexpr size_t npos = std::string::npos;

  CompactString() noexcept { setInline(nullptr, 0); }
  CompactString(const char* text) { assign(text ? std::string_view(text) : std::string_view()); }
  CompactString(const std::string& text) { assign(std::string_view(text)); }
  CompactString(const char* text, size_t size) { assign(std::string_view(text, size)); }
  explicit CompactString(std::string_view text) { assign(text); }
  CompactString(const CompactString& other) { assign(other.view()); }
  CompactString(CompactString&& other) noexcept {
    std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
    other.setInline(nullptr, 0);
  }
  ~CompactString() { release(); }

  CompactString& operator=(const CompactString& other) {
    if (this != &other) replace(other.view());
    return *this;
  }
  CompactString& operator=(CompactString&& other) noexcept {
    if (this != &other) {
      release();
      std::memcpy(m_bytes, other.m_bytes, sizeof m_bytes);
      other.setInline(nullptr, 0);
    }
    return *this;
  }
  CompactString& operator=(const std::string& text) { return replace(text); }
  CompactString& operator=(const char* text) { return replace(text ? std::string_view(text) : std::string_view()); }
  CompactString& operator+=(std::string_view text) {
    std::string joined(view());
    joined += text;
    return replace(joined);
  }

  size_t size() const { return onHeap() ? heapSize() : kInlineCapacity - tag(); }
  size_t length() const { return size(); }
  bool empty() const { return size() == 0; }
  const char* data() const { return onHeap() ? heapData() : m_bytes; }
  const char* c_str() const { return data(); }
  const char* begin() const { return data(); }
  const char* end() const { return data() + size(); }
  char operator[](size_t i) const { return data()[i]; }
  char front() const { return data()[0]; }
  char back() const { return data()[size() - 1]; }
  void clear() { replace(std::string_view()); }

  std::string_view view() const { return std::string_view(data(), size()); }
  std::string str() const { return std::string(data(), size()); }
  operator std::string() const { return str(); }

  std::string substr(size_t pos, size_t count = npos) const { return std::string(view().substr(pos, count)); }
  size_t find(std::string_view text, size_t pos = 0) const { return view().find(text, pos); }
  size_t find(char c, size_t pos = 0) const { return view().find(c, pos); }
  size_t rfind(char c, size_t pos = npos) const { return view().rfind(c, pos); }
  size_t find_first_not_of(std::string_view chars, size_t pos = 0) const {
    return view().find_first_not_of(chars, pos);
  }
  int compare(std::string_view text) const { return view().compare(text); }

 private:
  // The last byte tells the two forms apart: kInlineCapacity - size for a text in place (so that
  // it is the terminating zero of a text of full length), kHeapTag for a text on the heap, whose
  // pointer and size are the first 16 bytes.
  static constexpr unsigned char kHeapTag = 0xff;

  unsigned char tag() const { return static_cast<unsigned char>(m_bytes[kInlineCapacity]); }
  bool onHeap() const { return tag() == kHeapTag; }
  char* heapData() const {
    char* p;
    std::memcpy(&p, m_bytes, sizeof p);
    return p;
  }
  size_t heapSize() const {
    size_t n;
    std::memcpy(&n, m_bytes + sizeof(char*), sizeof n);
    return n;
  }
  void setInline(const char* text, size_t size) {
    if (size) std::memcpy(m_bytes, text, size);
    m_bytes[size] = '\0';
    m_bytes[kInlineCapacity] = static_cast<char>(kInlineCapacity - size);
  }
  void assign(std::string_view text) {
    if (text.size() <= kInlineCapacity) {
      setInline(text.data(), text.size());
      return;
    }
    char* p = new char[text.size() + 1];
    std::memcpy(p, text.data(), text.size());
    p[text.size()] = '\0';
    const size_t n = text.size();
    std::memcpy(m_bytes, &p, sizeof p);
    std::memcpy(m_bytes + sizeof p, &n, sizeof n);
    m_bytes[kInlineCapacity] = static_cast<char>(kHeapTag);
  }
  void release() {
    if (onHeap()) delete[] heapData();
  }
  CompactString& replace(std::string_view text) {
    // A short text into a value in place is copied straight into its bytes (memmove: `text` may
    // point into them), with no whole value built beside it and copied over.
    if (text.size() <= kInlineCapacity && !onHeap()) {
      if (text.size()) std::memmove(m_bytes, text.data(), text.size());
      m_bytes[text.size()] = '\0';
      m_bytes[kInlineCapacity] = static_cast<char>(kInlineCapacity - text.size());
      return *this;
    }
    // `text` may point into this value: copied before the old block goes.
    CompactString copy(text);
    release();
    std::memcpy(m_bytes, copy.m_bytes, sizeof m_bytes);
    copy.setInline(nullptr, 0);
    return *this;
  }

  alignas(alignof(char*)) char m_bytes[kInlineCapacity + 1];
};

static_assert(sizeof(CompactString) == 24, "a compact string is three words");

inline bool operator==(const CompactString& a, const CompactString& b) { return a.view() == b.view(); }
inline bool operator==(const CompactString& a, const std::string& b) { return a.view() == std::string_view(b); }
inline bool operator==(const std::string& a, const CompactString& b) { return std::string_view(a) == b.view(); }
inline bool operator==(const CompactString& a, const char* b) { return a.view() == std::string_view(b); }
inline bool operator==(const char* a, const CompactString& b) { return std::string_view(a) == b.view(); }
inline bool operator!=(const CompactString& a, const CompactString& b) { return !(a == b); }
inline bool operator!=(const CompactString& a, const std::string& b) { return !(a == b); }
inline bool operator!=(const std::string& a, const CompactString& b) { return !(a == b); }
inline bool operator!=(const CompactString& a, const char* b) { return !(a == b); }
inline bool operator!=(const char* a, const CompactString& b) { return !(a == b); }
inline bool operator<(const CompactString& a, const CompactString& b) { return a.view() < b.view(); }
inline bool operator<(const CompactString& a, const std::string& b) { return a.view() < std::string_view(b); }
inline bool operator<(const std::string& a, const CompactString& b) { return std::string_view(a) < b.view(); }
inline bool operator<(const CompactString& a, const char* b) { return a.view() < std::string_view(b); }
inline bool operator<(const char* a, const CompactString& b) { return std::string_view(a) < b.view(); }

inline std::string operator+(const CompactString& a, const std::string& b) { return a.str().append(b); }
inline std::string operator+(const std::string& a, const CompactString& b) { return std::string(a).append(b.view()); }
inline std::string operator+(const CompactString& a, const char* b) { return a.str() + b; }
inline std::string operator+(const char* a, const CompactString& b) { return a + b.str(); }
inline std::string operator+(const CompactString& a, char b) { return a.str() + b; }
inline std::string operator+(char a, const CompactString& b) { return a + b.str(); }

inline std::ostream& operator<<(std::ostream& out, const CompactString& text) { return out << text.view(); }

#pragma GCC visibility pop
