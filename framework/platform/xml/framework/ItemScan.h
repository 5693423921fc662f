// ItemScan: a quick reader of item bodies in the shape the journal writes them, used before
// pugixml where lists of a thousand bodies are read (a store's read reply, a client's list reply,
// the bodies of a store request).
//
// It copies one body into its own buffer and marks it in place: the root element, its fields
// (elements holding only text, or empty), and one kind of container, CALLINFOS, holding only
// empty CALLINFO elements whose fields are attributes. It accepts only what it can read exactly as
// pugixml reads it under the journal's flags; for anything else (references, comments, CDATA, a
// declaration, blanks between elements, another quote, a tab or line break in an attribute, ...)
// scan() returns false and the caller reads the body with pugixml, which decides.
//
// Not thread-safe; one scan per thread, reused from body to body. The names and texts it gives
// point into its buffer and hold until the next scan().
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace journalxml {

class ItemScan {
 public:
  // A field: a name and its text, both ending in a null. A CALLINFOS element's text is empty, as
  // pugixml gives an element without text; its occurrences are infos[first, first + count).
  struct Field {
    const char* name;
    const char* text;
    uint32_t first;
    uint32_t count;
  };
  // An occurrence: its attributes are attributes[first, first + count).
  struct Info {
    uint32_t first;
    uint32_t count;
  };

  // Scans the `size` bytes at `body`, which must be the root element alone. False when the body
  // holds anything outside the shape above.
  bool scan(const char* body, size_t size);

  const char* rootName() const { return m_root; }
  const std::vector<Field>& fields() const { return m_fields; }
  const std::vector<Info>& infos() const { return m_infos; }
  const std::vector<Field>& attributes() const { return m_attributes; }

  // The text of the first field named `name`, or null when there is none.
  const char* fieldText(const char* name) const;
  // The first CALLINFOS field, or null.
  const Field* firstInfos() const;
  // The value of the first attribute named `name` of `info`, or null.
  const char* attribute(const Info& info, const char* name) const;

 private:
  bool scanFields(char*& p, char* end);
  bool scanInfos(char*& p, char* end, Field& infos);
  static char* sameNameAs(const Field& known, char*& p, char* end);
  // `previous` is the index in m_infos of the occurrence before in the same CALLINFOS, or -1.
  bool scanInfo(char*& p, char* end, long previous);

  std::string m_buffer;
  const char* m_root = nullptr;
  std::vector<Field> m_fields;
  std::vector<Info> m_infos;
  std::vector<Field> m_attributes;
};

}  // namespace journalxml
