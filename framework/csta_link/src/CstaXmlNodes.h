// Finding elements of CSTA XML by local name, whatever namespace prefix the switch uses: shared by
// the event parser and the link's request and answer code. Private to the framework.
#pragma once

#include <cstring>
#include <pugixml.hpp>
#include <string>

namespace csta_xml {
namespace nodes {

inline const char* localName(const pugi::xml_node& node) {
  const char* name = node.name();
  const char* colon = std::strrchr(name, ':');
  return colon ? colon + 1 : name;
}

// The first child element named `name`.
inline pugi::xml_node child(const pugi::xml_node& node, const char* name) {
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling())
    if (c.type() == pugi::node_element && std::strcmp(localName(c), name) == 0) return c;
  return pugi::xml_node();
}

// The first element named `name` below `node`, depth first. Walks the tree without recursion: a
// switch's private data may nest as deep as a frame allows.
inline pugi::xml_node descendant(const pugi::xml_node& node, const char* name) {
  pugi::xml_node current = node.first_child();
  while (current && current != node) {
    if (current.type() == pugi::node_element && std::strcmp(localName(current), name) == 0) return current;
    if (current.first_child()) {
      current = current.first_child();
      continue;
    }
    while (current != node && !current.next_sibling()) current = current.parent();
    if (current != node) current = current.next_sibling();
  }
  return pugi::xml_node();
}

inline pugi::xml_node firstElement(const pugi::xml_node& node) {
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling())
    if (c.type() == pugi::node_element) return c;
  return pugi::xml_node();
}

// `raw` without the blanks and line ends around it.
inline std::string trimmed(const char* raw) {
  std::string text(raw);
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace nodes
}  // namespace csta_xml
