// FilePhonebook: loading a phonebook file into the number index, look-ups, number normalisation.
#include "phonebook/FilePhonebook.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "FilePhonebookReaders.h"
#include "framework/Logging.h"
#include "framework/Utf8.h"

namespace {

constexpr const char* kLogHandle = "Phonebook";

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

bool isVCardFile(const std::string& path, const std::string& text) {
  const std::string lower = phonebook::toLower(path);
  if (endsWith(lower, ".csv")) return false;
  if (endsWith(lower, ".vcf") || endsWith(lower, ".vcard")) return true;
  size_t start = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  start = text.find_first_not_of(" \t\r\n", start);
  return start != std::string::npos && phonebook::toLower(text.substr(start, 11)) == "begin:vcard";
}

bool readFile(const std::string& path, std::string& text, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = path + ": cannot be opened: " + std::strerror(errno);
    return false;
  }
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) {
    error = path + ": cannot be read";
    return false;
  }
  text = content.str();
  return true;
}

// Characters written between the parts of a number: blank, tab, no-break space, '-', non-breaking
// hyphen, en dash, '.', '/', parentheses.
size_t separatorLength(const std::string& text, size_t pos) {
  static const char* const kSeparators[] = {" ", "\t", "\xC2\xA0", "-", "\xE2\x80\x91", "\xE2\x80\x93",
                                            ".", "/",  "(",        ")"};
  for (const char* separator : kSeparators) {
    const size_t length = std::strlen(separator);
    if (text.compare(pos, length, separator) == 0) return length;
  }
  return 0;
}

}  // namespace

namespace phonebook {

NumberType::NT typeFromWord(const std::string& word) {
  const std::string w = toLower(trim(word));
  if (w == "business" || w == "work" || w == "office") return NumberType::NT_BUSINESS;
  if (w == "mobile" || w == "cell" || w == "cellular") return NumberType::NT_MOBILE;
  if (w == "home" || w == "private") return NumberType::NT_HOME;
  if (w == "other") return NumberType::NT_OTHER;
  return NumberType::NT_NONE;
}

bool repairText(const std::string& text, std::string& kept) {
  if (fw::utf8::isClean(text)) {
    kept = text;
    return true;
  }
  kept = fw::utf8::sanitize(text);
  return false;
}

std::string toLower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace phonebook

FilePhonebook::FilePhonebook() : m_index(std::make_shared<const Index>()) {}

FilePhonebook::~FilePhonebook() = default;

bool FilePhonebook::normaliseNumber(const std::string& text, std::string& number) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (std::isdigit(static_cast<unsigned char>(c)) || c == '*' || c == '#' || (c == '+' && out.empty())) {
      out += c;
      ++i;
      continue;
    }
    // "+49 (0)30 ...": the trunk prefix in parentheses is not dialled with the country code.
    if (!out.empty() && out[0] == '+' && text.compare(i, 3, "(0)") == 0) {
      i += 3;
      continue;
    }
    const size_t skip = separatorLength(text, i);
    if (skip == 0) return false;
    i += skip;
  }
  if (out.empty() || out == "+") return false;
  number = std::move(out);
  return true;
}

std::optional<std::size_t> FilePhonebook::load(const std::string& path, std::string& error) {
  std::string text;
  if (!readFile(path, text, error)) {
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "%s(): %s", __func__, error.c_str());
    return std::nullopt;
  }

  phonebook::ReadResult result;
  phonebook::Fault refusal;
  const bool vcard = isVCardFile(path, text);
  if (!(vcard ? phonebook::readVCard(text, result, refusal) : phonebook::readCsv(text, result, refusal))) {
    error = path + ":" + std::to_string(refusal.line) + ": " + refusal.what;
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "%s(): %s; file not loaded", __func__, error.c_str());
    return std::nullopt;
  }

  auto index = std::make_shared<Index>();
  std::unordered_map<std::string, std::size_t> firstLine;  // of each number, to name it in a duplicate's note
  for (auto& record : result.records) {
    std::string key;
    if (!normaliseNumber(record.number, key)) {
      result.faults.push_back(
          {record.line, record.number.empty() ? "no number" : "'" + record.number + "' is not a telephone number"});
      continue;
    }
    const auto [first, isNew] = firstLine.emplace(key, record.line);
    if (!isNew) {
      result.notes.push_back({record.line, "number " + key + " is listed at line " + std::to_string(first->second) +
                                               " already; the first is kept"});
      continue;
    }
    index->emplace(
        key, Entry{std::move(record.surname), std::move(record.firstname), std::move(record.picture), record.type});
  }

  const auto byLine = [](const phonebook::Fault& a, const phonebook::Fault& b) { return a.line < b.line; };
  std::stable_sort(result.faults.begin(), result.faults.end(), byLine);
  std::stable_sort(result.notes.begin(), result.notes.end(), byLine);
  for (const auto& fault : result.faults)
    logAppUni(kLogHandle, __FILE__, fw::kLogError, __LINE__, "%s(): %s:%zu: %s; line skipped", __func__, path.c_str(),
              fault.line, fault.what.c_str());
  for (const auto& note : result.notes)
    logAppUni(kLogHandle, __FILE__, fw::kLogNotable, __LINE__, "%s(): %s:%zu: %s", __func__, path.c_str(), note.line,
              note.what.c_str());

  const std::size_t numbers = index->size();
  std::shared_ptr<const Index> previous = std::move(index);
  {
    fw::WriterLock lock(m_mutex);
    m_index.swap(previous);
    m_path = path;
  }
  previous.reset();  // the old index is freed outside the lock
  logAppUni(kLogHandle, __FILE__, fw::kLogNotable, __LINE__, "%s(): %s: %zu numbers (%s), %zu lines skipped", __func__,
            path.c_str(), numbers, vcard ? "vCard" : "CSV", result.faults.size());
  return result.faults.size();
}

std::optional<std::size_t> FilePhonebook::reload(std::string& error) {
  const std::string file = path();
  if (file.empty()) {
    error = "no phonebook file has been loaded";
    return std::nullopt;
  }
  return load(file, error);
}

bool FilePhonebook::lookupContact(Contact& contact) {
  std::string key;
  if (!normaliseNumber(contact.getNumber(), key)) return false;
  const std::shared_ptr<const Index> index = snapshot();
  const auto found = index->find(key);
  if (found == index->end()) return false;
  const Entry& entry = found->second;
  contact.setSurname(entry.surname);
  contact.setFirstname(entry.firstname);
  contact.setNumberType(entry.type);
  contact.setPictureClip(entry.picture);
  return true;
}

std::size_t FilePhonebook::size() const { return snapshot()->size(); }

std::string FilePhonebook::path() const {
  fw::ReaderLock lock(m_mutex);
  return m_path;
}

std::shared_ptr<const FilePhonebook::Index> FilePhonebook::snapshot() const {
  fw::ReaderLock lock(m_mutex);
  return m_index;
}
