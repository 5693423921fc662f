// The trace reader: pugixml parses the whole file in place so that every node keeps its byte
// offset, from which the line and column of each fault are worked out.
#include "csta_link/CstaTrace.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "csta_link/CstaXml.h"
#include "framework/ClockService.h"

namespace fw {
namespace {

// A fault at a byte offset of the text.
struct Fault {
  ptrdiff_t offset;
  std::string what;
};

const char* localName(const char* name) {
  const char* colon = std::strrchr(name, ':');
  return colon ? colon + 1 : name;
}

// The offset of an element's '<' (pugixml keeps the offset of its name).
ptrdiff_t offsetOf(const pugi::xml_node& node) {
  const ptrdiff_t offset = node.offset_debug();
  return offset > 0 && node.type() == pugi::node_element ? offset - 1 : offset;
}

// Line and column of byte offsets, found in one pass over the text for offsets asked in
// increasing order (a trace of many steps costs one scan, not one per step).
class Positions {
 public:
  explicit Positions(const std::string& text) : m_text(text) {}
  void find(ptrdiff_t offset, int& line, int& column) {
    const size_t end = offset < 0 ? 0 : std::min(static_cast<size_t>(offset), m_text.size());
    if (end < m_at) m_at = m_lineStart = 0, m_line = 1;
    for (; m_at < end; ++m_at)
      if (m_text[m_at] == '\n') {
        ++m_line;
        m_lineStart = m_at + 1;
      }
    line = m_line;
    column = static_cast<int>(end - m_lineStart) + 1;
  }

 private:
  const std::string& m_text;
  size_t m_at = 0, m_lineStart = 0;
  int m_line = 1;
};

bool isBlank(const char* text) {
  for (; *text; ++text)
    if (!std::strchr(" \t\r\n", *text)) return false;
  return true;
}

// The event element alone, with the namespace declarations it inherits from its ancestors copied
// onto it, so that it reads the same outside the trace.
std::string standalone(const pugi::xml_node& element) {
  pugi::xml_document doc;
  pugi::xml_node copy = doc.append_copy(element);
  for (pugi::xml_node up = element.parent(); up && up.type() == pugi::node_element; up = up.parent())
    for (const pugi::xml_attribute& a : up.attributes()) {
      const std::string name = a.name();
      if ((name == "xmlns" || name.rfind("xmlns:", 0) == 0) && !copy.attribute(a.name()))
        copy.append_attribute(a.name()) = a.value();
    }
  std::ostringstream out;
  doc.save(out, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
  return out.str();
}

// Fills the step's `at` and checks it against the previous step's time.
bool readTime(const pugi::xml_node& node, CstaTraceStep& step, int64_t previous, bool first, Fault& fault) {
  const pugi::xml_attribute at = node.attribute("at");
  if (!at) {
    fault = {offsetOf(node), std::string("'") + node.name() + "' has no 'at' attribute"};
    return false;
  }
  CivilTime civil;
  if (!parseCivil(at.value(), civil)) {
    fault = {offsetOf(node), std::string("'at' value '") + at.value() + "' is not a time YYYY-MM-DDThh:mm:ss"};
    return false;
  }
  step.at = at.value();
  step.atSeconds = secondsFromCivil(civil);
  if (!first && step.atSeconds < previous) {
    fault = {offsetOf(node), "time " + step.at + " is earlier than the step before"};
    return false;
  }
  return true;
}

bool readSet(const pugi::xml_node& node, CstaTraceStep& step, Fault& fault) {
  step.kind = CstaTraceStep::Set;
  step.key = node.attribute("key").value();
  if (step.key.empty()) {
    fault = {offsetOf(node), "'set' needs a non-empty 'key' attribute"};
    return false;
  }
  const pugi::xml_attribute value = node.attribute("value");
  if (!value) {
    fault = {offsetOf(node), "'set' of '" + step.key + "' has no 'value' attribute"};
    return false;
  }
  step.value = value.value();
  return true;
}

// Fills an event step. A well-formed document that is no event the parser reads is not a fault:
// `skip` then says why it is left out.
bool readEvent(const pugi::xml_node& node, CstaTraceStep& step, Fault& fault, Fault& skip) {
  step.kind = CstaTraceStep::Event;
  pugi::xml_node element;
  for (const pugi::xml_node& child : node.children()) {
    if (child.type() == pugi::node_pcdata && !isBlank(child.value())) {
      fault = {offsetOf(child), "'event' holds text; it must hold one event element"};
      return false;
    }
    if (child.type() != pugi::node_element) continue;
    if (element) {
      fault = {offsetOf(child), std::string("'event' holds a second element '") + child.name() + "'"};
      return false;
    }
    element = child;
  }
  if (!element) {
    fault = {offsetOf(node), "'event' holds no event element"};
    return false;
  }
  step.eventName = localName(element.name());
  step.eventXml = standalone(element);
  const csta_xml::CstaParseResult parsed = csta_xml::parseCstaEvent(step.eventXml);
  if (parsed.kind == csta_xml::CstaParseResult::Malformed) {
    fault = {offsetOf(element), "'" + step.eventName + "' cannot be read: " + parsed.error};
    return false;
  }
  if (parsed.kind != csta_xml::CstaParseResult::Event)
    skip = {offsetOf(element), "'" + step.eventName + "' is not a CSTA event the journal reads; skipped"};
  return true;
}

// The steps under the root, with the offset of each step's element, and the documents skipped.
bool readSteps(const pugi::xml_node& root, std::vector<CstaTraceStep>& steps, std::vector<ptrdiff_t>& offsets,
               std::vector<Fault>& skipped, Fault& fault) {
  int64_t lastTime = 0;
  bool first = true;
  for (const pugi::xml_node& node : root.children()) {
    if (node.type() == pugi::node_pcdata && !isBlank(node.value())) {
      fault = {offsetOf(node), "text outside a step"};
      return false;
    }
    if (node.type() != pugi::node_element) continue;
    const std::string name = node.name();
    if (name != "set" && name != "event") {
      fault = {offsetOf(node), "unknown element '" + name + "'; a step is 'set' or 'event'"};
      return false;
    }
    CstaTraceStep step;
    Fault skip{0, ""};
    if (!readTime(node, step, lastTime, first, fault)) return false;
    if (!(name == "set" ? readSet(node, step, fault) : readEvent(node, step, fault, skip))) return false;
    lastTime = step.atSeconds;
    first = false;
    if (!skip.what.empty()) {
      skipped.push_back(std::move(skip));
      continue;
    }
    offsets.push_back(offsetOf(node));
    steps.push_back(std::move(step));
  }
  return true;
}

}  // namespace

bool readCstaTrace(const std::string& text, const std::string& origin, CstaTrace& trace, std::string& error) {
  trace.steps.clear();
  trace.skipped.clear();
  pugi::xml_document doc;
  // In-place parsing of a copy keeps every node's offset into the text; comments are skipped.
  const pugi::xml_parse_result parsed =
      doc.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
  Fault fault{0, ""};
  std::vector<CstaTraceStep> steps;
  std::vector<ptrdiff_t> offsets;
  std::vector<Fault> skipped;
  if (!parsed) {
    fault = {parsed.offset, std::string("not well-formed XML: ") + parsed.description()};
  } else if (!doc.document_element()) {
    fault = {0, "no root element"};
  } else if (std::string(doc.document_element().name()) != "cstaTrace") {
    fault = {offsetOf(doc.document_element()),
             std::string("root element is '") + doc.document_element().name() + "', not 'cstaTrace'"};
  } else if (readSteps(doc.document_element(), steps, offsets, skipped, fault)) {
    Positions places(text), notices(text);
    for (size_t i = 0; i < steps.size(); ++i) places.find(offsets[i], steps[i].line, steps[i].column);
    for (const Fault& skip : skipped) {
      CstaTraceNotice notice{skip.what};
      notices.find(skip.offset, notice.line, notice.column);
      trace.skipped.push_back(std::move(notice));
    }
    trace.steps = std::move(steps);
    return true;
  }
  int line = 0, column = 0;
  Positions(text).find(fault.offset, line, column);
  error = origin + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + fault.what;
  return false;
}

bool readCstaTraceFile(const std::string& path, CstaTrace& trace, std::string& error) {
  trace.steps.clear();
  trace.skipped.clear();
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = path + ":0:0: cannot read the file: " + std::strerror(errno);
    return false;
  }
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) {
    error = path + ":0:0: cannot read the file";
    return false;
  }
  return readCstaTrace(text, path, trace, error);
}

}  // namespace fw
