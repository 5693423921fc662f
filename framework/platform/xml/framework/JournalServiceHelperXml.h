// Internals shared by the JournalServiceHelper sources: parsing and writing with pugixml under
// the flags that keep text exactly, and the item codec used by lists, replies and observer
// messages. Not installed; the rest of the system never sees pugixml.
#pragma once

#include <pugixml.hpp>

#include <string>

#include "framework/ItemScan.h"
#include "framework/JournalServiceHelper.h"

namespace journalxml {

// Parses `text` keeping every byte of character data: no end-of-line normalisation, blank-only
// text kept where it is an element's only content. False when not well-formed.
bool parse(pugi::xml_document& doc, const std::string& text, bool keepDeclaration = false);
// The same for `size` bytes at `text`, without a copy into a std::string first.
bool parse(pugi::xml_document& doc, const char* text, size_t size);

// Appends `size` bytes of `text` as character data: markup characters and control characters
// (but tab and line feed) become references, everything else is copied unchanged.
void appendEscaped(std::string& out, const char* text, size_t size);
inline void appendEscaped(std::string& out, const std::string& text) { appendEscaped(out, text.data(), text.size()); }
// The same for an attribute value in double quotes: quotes, tabs and line feeds become references too.
void appendEscapedAttribute(std::string& out, const char* text, size_t size);
// Appends a field named `name` holding `size` bytes of `text`: ` name="text"` as an attribute,
// else `<name>text</name>`, the text escaped as above.
void appendField(std::string& out, const char* name, const char* text, size_t size, bool attribute);

// Writes a node (or a whole document) without indentation and without declaration.
std::string print(const pugi::xml_node& node);

// Appends <name>value</name> to `parent`.
void addField(pugi::xml_node parent, const char* name, const std::string& value);
void addField(pugi::xml_node parent, const char* name, long value);
void addField(pugi::xml_node parent, const char* name, bool value);

// Reads the text of child `name` into `value`; an absent child leaves `value` unchanged.
// Numbers must be decimal integers and flags "true"/"false" (or "1"/"0"); anything else is false.
bool readField(const pugi::xml_node& parent, const char* name, std::string& value);
bool readField(const pugi::xml_node& parent, const char* name, long& value);
bool readField(const pugi::xml_node& parent, const char* name, bool& value);

// The value of a field: a decimal integer, or a flag "true"/"false" ("1"/"0").
bool readValue(const char* text, long& value);
bool readValue(const char* text, bool& value);

// The item codec: the element of one item's body (appended to `out` as XML) and its reverse.
template <class Item>
void writeItem(std::string& out, const Item& item, bool isDelete);
template <class Item>
bool readItem(const pugi::xml_node& root, Item& item);
// The same from a scanned body: false when its root is not the item's or a field is out of range.
template <class Item>
bool readItem(const ItemScan& scan, Item& item);
// Parses the text of an ENTRY element (an item body) into `item`.
template <class Item>
bool readEntry(const pugi::xml_node& entry, Item& item);

// Appends an ENTRY element holding the body of `item` as text.
template <class Item>
void addEntry(pugi::xml_node parent, const Item& item, bool isDelete) {
  std::string body;
  writeItem(body, item, isDelete);
  addField(parent, JournalServiceHelper::ENTRY, body);
}

// A document whose root element is `rootName`.
pugi::xml_node makeRoot(pugi::xml_document& doc, const char* rootName);

// Wraps `innerXml` (already XML, escaped) in an element `name`.
std::string wrap(const char* name, const std::string& innerXml);

}  // namespace journalxml
