// The phonebook's vCard reader (vCard 3.0 and 4.0, RFC 6350 content lines). Reads only what a
// look-up returns: N, FN, TEL and PHOTO of each card; other properties are passed over.
#include <string_view>
#include <utility>

#include "FilePhonebookReaders.h"

namespace phonebook {
namespace {

struct Line {
  std::string text;
  std::size_t number = 0;  // of its first physical line
};

// Joins folded lines: a line that starts with a blank or tab continues the one before, less
// that one character.
std::vector<Line> unfold(std::string_view text) {
  std::vector<Line> lines;
  std::size_t number = 0;
  while (!text.empty()) {
    std::size_t end = text.find_first_of("\r\n");
    std::string_view physical = text.substr(0, end);
    if (end == std::string_view::npos) {
      text = {};
    } else {
      text.remove_prefix(end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1));
    }
    ++number;
    if (!lines.empty() && !physical.empty() && (physical[0] == ' ' || physical[0] == '\t')) {
      lines.back().text.append(physical.substr(1));
    } else {
      lines.push_back({std::string(physical), number});
    }
  }
  return lines;
}

// Splits at each `separator` outside double quotes.
std::vector<std::string> splitOutsideQuotes(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  bool quoted = false;
  for (char c : text) {
    if (c == '"') quoted = !quoted;
    if (c == separator && !quoted) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

std::string toUpper(std::string text) {
  for (char& c : text)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return text;
}

struct Property {
  std::string name;                                         // upper case, without group
  std::vector<std::pair<std::string, std::string>> params;  // upper-case name, one value each
  std::string value;

  bool hasParam(const std::string& name) const {
    for (const auto& param : params)
      if (param.first == name) return true;
    return false;
  }
};

// "[group.]NAME *(;PARAM[=value[,value]]):value". A parameter without '=' (vCard 2.1) is a TYPE.
bool parseProperty(const std::string& line, Property& property) {
  bool quoted = false;
  std::size_t colon = std::string::npos;
  for (std::size_t i = 0; i < line.size() && colon == std::string::npos; ++i) {
    if (line[i] == '"') quoted = !quoted;
    if (line[i] == ':' && !quoted) colon = i;
  }
  if (colon == std::string::npos) return false;
  std::vector<std::string> head = splitOutsideQuotes(line.substr(0, colon), ';');
  const std::string name = trim(head[0]);
  property.name = toUpper(name.substr(name.rfind('.') == std::string::npos ? 0 : name.rfind('.') + 1));
  if (property.name.empty()) return false;
  for (std::size_t i = 1; i < head.size(); ++i) {
    const std::size_t equals = head[i].find('=');
    const std::string paramName = equals == std::string::npos ? "TYPE" : toUpper(trim(head[i].substr(0, equals)));
    std::string values = trim(equals == std::string::npos ? head[i] : head[i].substr(equals + 1));
    // TYPE="work,voice" (vCard 4.0) is a list like TYPE=work,voice; other quoted values are kept whole.
    if (paramName == "TYPE" && values.size() >= 2 && values.front() == '"' && values.back() == '"')
      values = values.substr(1, values.size() - 2);
    for (std::string value : splitOutsideQuotes(values, ',')) {
      value = trim(value);
      if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
      property.params.emplace_back(paramName, value);
    }
  }
  property.value = line.substr(colon + 1);
  return true;
}

// Resolves the escapes \\ \, \; and \n (a line break in a name becomes a blank); a structured
// value (N) is split at each unescaped ';' into its components.
std::vector<std::string> unescape(const std::string& value, bool structured) {
  std::vector<std::string> parts(1);
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (c == '\\' && i + 1 < value.size()) {
      const char next = value[++i];
      parts.back() += (next == 'n' || next == 'N') ? ' ' : next;
    } else if (c == ';' && structured) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  for (auto& part : parts) part = trim(part);
  return parts;
}

// Mobile before business before home: a work mobile shows as a mobile.
NumberType::NT typeOfTel(const Property& tel) {
  static const NumberType::NT kPreference[] = {NumberType::NT_MOBILE, NumberType::NT_BUSINESS, NumberType::NT_HOME};
  for (NumberType::NT wanted : kPreference)
    for (const auto& param : tel.params)
      if (param.first == "TYPE" && typeFromWord(param.second) == wanted) return wanted;
  return NumberType::NT_OTHER;
}

// The number of a TEL value: text, or a "tel:" URI whose parameters (";ext=...") are dropped.
std::string telNumber(const std::string& value) {
  std::string number = trim(value);
  if (toLower(number.substr(0, 4)) == "tel:") number = number.substr(4, number.find(';') - 4);
  return number;
}

struct Card {
  std::size_t begin = 0;
  std::string family, given, formatted, picture;
  std::vector<Record> tels;
};

void finishCard(Card& card, ReadResult& result) {
  const bool named = !card.family.empty() || !card.given.empty();
  for (Record& tel : card.tels) {
    tel.surname = named ? card.family : card.formatted;
    tel.firstname = named ? card.given : "";
    tel.picture = card.picture;
    result.records.push_back(std::move(tel));
  }
}

}  // namespace

bool readVCard(const std::string& content, ReadResult& result, Fault&) {
  std::string_view text = content;
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);  // byte-order mark

  Card card;
  bool inCard = false;
  for (const Line& line : unfold(text)) {
    if (trim(line.text).empty()) continue;
    Property property;
    if (!parseProperty(line.text, property)) {
      result.faults.push_back({line.number, "expected 'NAME:value'"});
      continue;
    }
    std::string value = trim(property.value);
    if (property.name == "BEGIN" || property.name == "END") {
      const bool begin = property.name == "BEGIN";
      if (toUpper(value) != "VCARD") {
        result.faults.push_back({line.number, "unexpected " + property.name + ":" + value});
      } else if (begin) {
        if (inCard) result.faults.push_back({card.begin, "card has no END:VCARD"});
        card = Card();
        card.begin = line.number;
        inCard = true;
      } else if (!inCard) {
        result.faults.push_back({line.number, "END:VCARD without BEGIN:VCARD"});
      } else {
        finishCard(card, result);
        inCard = false;
      }
      continue;
    }
    if (!inCard) {
      result.faults.push_back({line.number, "property outside BEGIN:VCARD ... END:VCARD"});
      continue;
    }
    if (property.name != "N" && property.name != "FN" && property.name != "TEL" && property.name != "PHOTO") continue;
    if (!repairText(std::string(value), value)) result.notes.push_back({line.number, kNotUtf8});
    if (property.name == "N") {
      const std::vector<std::string> parts = unescape(value, true);
      card.family = parts[0];
      card.given = parts.size() > 1 ? parts[1] : "";
    } else if (property.name == "FN") {
      card.formatted = unescape(value, false)[0];
    } else if (property.name == "TEL") {
      Record tel;
      tel.number = telNumber(value);
      tel.type = typeOfTel(property);
      tel.line = line.number;
      card.tels.push_back(std::move(tel));
    } else if (card.picture.empty() && !property.hasParam("ENCODING") && toLower(value.substr(0, 5)) != "data:") {
      card.picture = value;  // a URI reference; inline images are not kept
    }
  }
  if (inCard) result.faults.push_back({card.begin, "card has no END:VCARD"});
  return true;
}

}  // namespace phonebook
