// What the phonebook's file readers (FilePhonebookCsv.cpp, FilePhonebookVCard.cpp) hand to the
// index builder (FilePhonebook.cpp): one record per number, with the line it came from, and the
// lines they had to skip.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "framework/CallItems.h"

namespace phonebook {

struct Record {
  std::string surname;
  std::string firstname;
  std::string picture;
  std::string number;  // as written in the file; the builder normalises and checks it
  NumberType::NT type = NumberType::NT_OTHER;
  std::size_t line = 0;
};

struct Fault {
  std::size_t line = 0;
  std::string what;
};

struct ReadResult {
  std::vector<Record> records;
  std::vector<Fault> faults;  // malformed lines, each skipped
  std::vector<Fault> notes;   // lines read with a guess worth telling the user (level 4)
};

// Each reads the whole file content. False only when the file cannot be used at all; `refusal`
// then gives the line and the reason.
bool readCsv(const std::string& text, ReadResult& result, Fault& refusal);
bool readVCard(const std::string& text, ReadResult& result, Fault& refusal);

// The number type named by `word` (any case): NT_NONE for a word that names none.
NumberType::NT typeFromWord(const std::string& word);

// `text` as it is kept: text that is not UTF-8 (a file saved as Latin-1) gets U+FFFD in place of
// each bad sequence (fw::utf8::sanitize). False when something had to be replaced; such a line is
// noted (kNotUtf8) and kept.
bool repairText(const std::string& text, std::string& kept);
inline constexpr const char* kNotUtf8 = "text is not UTF-8, shown with U+FFFD (save the file as UTF-8)";
std::string toLower(std::string text);
std::string trim(const std::string& text);

}  // namespace phonebook
