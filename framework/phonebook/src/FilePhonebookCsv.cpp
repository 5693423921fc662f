// The phonebook's CSV reader. libcsv splits the text into fields and rows (RFC 4180 quoting, in
// strict mode so that a misplaced quote is an error rather than a guess); this file keeps track
// of line numbers, recovers after a bad row, and maps the header's columns to contact fields.
#include <csv.h>

#include <new>
#include <string_view>

#include "FilePhonebookReaders.h"

namespace phonebook {
namespace {

enum Column { kSurname, kFirstname, kNumber, kType, kPicture, kColumnCount };

constexpr unsigned char kCsvOptions = CSV_STRICT | CSV_STRICT_FINI;

// The contact field a header names, or kColumnCount for a column that is not read.
Column columnFromHeader(const std::string& header) {
  std::string name;
  for (char c : toLower(header))
    if (c != ' ' && c != '-' && c != '_') name += c;
  if (name == "surname" || name == "lastname" || name == "familyname") return kSurname;
  if (name == "firstname" || name == "givenname") return kFirstname;
  if (name == "number" || name == "phone" || name == "telephone") return kNumber;
  if (name == "type" || name == "numbertype") return kType;
  if (name == "picture" || name == "photo") return kPicture;
  return kColumnCount;
}

const char* const kColumnNames[kColumnCount] = {"surname", "firstname", "number", "type", "picture"};

struct Row {
  std::vector<std::string> fields;
  std::size_t line = 0;  // where the row starts
};

// What libcsv's callbacks fill while the lines are fed one at a time.
struct Feed {
  std::vector<Row> rows;
  std::vector<std::string> fields;
  std::size_t rowStart = 0;
  bool inRow = false;
  bool outOfMemory = false;
};

// The callbacks run inside C code: nothing may be thrown through it.
void onField(void* data, std::size_t length, void* feed) {
  auto* f = static_cast<Feed*>(feed);
  try {
    f->fields.emplace_back(static_cast<const char*>(data), length);
  } catch (const std::bad_alloc&) {
    f->outOfMemory = true;
  }
}

void onRowEnd(int, void* feed) {
  auto* f = static_cast<Feed*>(feed);
  try {
    f->rows.push_back({std::move(f->fields), f->rowStart});
  } catch (const std::bad_alloc&) {
    f->outOfMemory = true;
  }
  f->fields.clear();
  f->inRow = false;
}

class Parser {
 public:
  Parser() { csv_init(&m_parser, kCsvOptions); }
  ~Parser() { csv_free(&m_parser); }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;
  csv_parser* get() { return &m_parser; }
  // Forgets a row broken off by an error.
  void reset() {
    csv_free(&m_parser);
    csv_init(&m_parser, kCsvOptions);
  }

 private:
  csv_parser m_parser{};
};

// The text cut after each line end ("\n", "\r\n" or a lone "\r"), ends kept.
std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
    if (text[i] == '\n' || text[i] == '\r') {
      lines.push_back(text.substr(start, i + 1 - start));
      start = i + 1;
    }
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

bool isBlank(std::string_view line) { return line.find_first_not_of(" \t\r\n") == std::string_view::npos; }

// Splits the text into rows, each with the line it starts on. On a quoting error (a misplaced
// quote, or a quoted field still open at the end of the text) the row is dropped, reported at its
// first line, and reading starts again on the line after that one: a stray quote costs its own
// line, and every line that is left out is reported.
bool readRows(std::string_view text, std::vector<Row>& rows, ReadResult& result) {
  const std::vector<std::string_view> lines = splitLines(text);
  Feed feed;
  Parser parser;
  const auto dropRow = [&](const std::string& what) {
    result.faults.push_back({feed.rowStart, what});
    parser.reset();
    feed.fields.clear();
    feed.inRow = false;
    return feed.rowStart;  // the index of the line after the row's first
  };
  std::size_t i = 0;
  for (;;) {
    while (i < lines.size()) {
      const std::size_t line = i + 1;
      if (!feed.inRow && !isBlank(lines[i])) {
        feed.rowStart = line;
        feed.inRow = true;
      }
      const std::size_t used = csv_parse(parser.get(), lines[i].data(), lines[i].size(), onField, onRowEnd, &feed);
      if (feed.outOfMemory || (used < lines[i].size() && csv_error(parser.get()) != CSV_EPARSE)) return false;
      if (used == lines[i].size()) {
        ++i;
      } else if (feed.rowStart == line) {
        i = dropRow("misplaced quote character");
      } else {
        i = dropRow("quoted field is not closed properly (misplaced quote at line " + std::to_string(line) + ")");
      }
    }
    if (csv_fini(parser.get(), onField, onRowEnd, &feed) == 0) break;
    i = dropRow("quoted field is not closed");
  }
  rows = std::move(feed.rows);
  return !feed.outOfMemory;
}

}  // namespace

bool readCsv(const std::string& content, ReadResult& result, Fault& refusal) {
  std::string_view text = content;
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);  // byte-order mark

  std::vector<Row> rows;
  if (!readRows(text, rows, result)) {
    refusal = {0, "out of memory"};
    return false;
  }
  if (rows.empty()) return true;  // an empty phonebook

  const Row& header = rows.front();
  std::vector<Column> columns;
  bool seen[kColumnCount] = {};
  for (const std::string& name : header.fields) {
    const Column column = columnFromHeader(name);
    if (column != kColumnCount && seen[column]) {
      refusal = {header.line, std::string("the header names the ") + kColumnNames[column] + " column twice"};
      return false;
    }
    if (column != kColumnCount) seen[column] = true;
    columns.push_back(column);
  }
  if (!seen[kNumber]) {
    refusal = {header.line, "the header row names no number column (number, phone or telephone)"};
    return false;
  }

  for (std::size_t r = 1; r < rows.size(); ++r) {
    const Row& row = rows[r];
    if (row.fields.size() != columns.size()) {
      result.faults.push_back({row.line, "expected " + std::to_string(columns.size()) + " fields, found " +
                                             std::to_string(row.fields.size())});
      continue;
    }
    std::string values[kColumnCount];
    bool utf8 = true;
    for (std::size_t c = 0; c < columns.size(); ++c) {
      if (columns[c] == kColumnCount) continue;
      utf8 = repairText(row.fields[c], values[columns[c]]) && utf8;
    }
    if (!utf8) result.notes.push_back({row.line, kNotUtf8});
    NumberType::NT type = NumberType::NT_OTHER;
    if (!values[kType].empty()) {
      type = typeFromWord(values[kType]);
      if (type == NumberType::NT_NONE) {
        result.notes.push_back({row.line, "unknown number type '" + values[kType] + "', taken as other"});
        type = NumberType::NT_OTHER;
      }
    }
    result.records.push_back({values[kSurname], values[kFirstname], values[kPicture], values[kNumber], type, row.line});
  }
  return true;
}

}  // namespace phonebook
