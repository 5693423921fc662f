// The phonebook as a file that the phone's user edits: a DirectoryServiceIfc that answers
// look-ups from an index built when the file is loaded. Register it with the context under
// "DirectoryServiceIfc" after a successful load().
//
// File formats, chosen by extension (".csv"; ".vcf" or ".vcard"), otherwise by content (a file
// whose first non-blank line is "BEGIN:VCARD" is a vCard file, anything else CSV):
//
//   CSV (RFC 4180, UTF-8, an optional byte-order mark): a header row names the columns, in any
//   order and case, blanks, '-' and '_' ignored: surname (or "last name", "family name"),
//   firstname ("first name", "given name"), number ("phone", "telephone"), type ("number type")
//   and picture ("photo"). Only number is required; other columns are ignored. One row per
//   number: a contact with two numbers takes two rows. Fields may be quoted; a quoted field may
//   hold commas, line breaks and doubled quotes (""). Blanks around unquoted fields are dropped.
//
//   vCard 3.0 or 4.0 (RFC 6350): BEGIN:VCARD ... END:VCARD, folded lines, N (surname;first
//   name), FN (taken as surname when N gives no name), TEL (one index entry per TEL line, all
//   with the card's names and picture; a "tel:" URI is accepted) and PHOTO when it is a URI
//   reference (inline images are ignored). TYPE parameters give the number type; vCard 2.1 style
//   bare parameters (TEL;WORK:...) are read as types too.
//
// Number types: business ("business", "work", "office"), mobile ("mobile", "cell"), home
// ("home", "private"); anything else, and no type at all, is NT_OTHER: a found contact never
// has NT_NONE, which the journal reads as "not in the phonebook". A vCard TEL with several
// types takes cell before work before home.
//
// Numbers are normalised the same way in the file and in a look-up (normaliseNumber): blanks,
// '-', '.', '/' and parentheses are dropped, a leading '+' is kept, and after a leading '+' a
// "(0)" (the trunk prefix written in international numbers) is dropped too, so
// "+49 (0)30 123-45", "+49 (30) 123-45" and "+493012345" are one number. What is left must be
// digits, '*' and '#'. Prefixes are not rewritten: "0049..." and "+49..." stay different numbers,
// as the switch reports them.
//
// Malformed lines (a quoting error, a row whose field count differs from the header's, a number
// with letters, a vCard property outside a card or without ':', a card without END:VCARD) are
// skipped; each is logged under "Phonebook" at level 2 as "<file>:<line>: <what>" and counted.
// The rest of the file is used. A file that cannot be used at all (unreadable, a CSV header
// without a number column) is refused and the contacts held before are kept. When two lines give
// the same number the first is kept and the second is logged at level 4. Text that is not UTF-8
// (a file saved as Latin-1) is kept with U+FFFD in place of each bad sequence, so that names
// reach the lists and replies as well-formed text; such a line is logged at level 4.
//
// Thread-safe. Look-ups copy the index pointer under m_mutex (shared) and search without it;
// load() and reload() build the new index without the lock and take it (exclusive) only to swap
// the pointer. m_mutex is a leaf: nothing else is locked, and nothing is logged, while it is held,
// so the journal may look contacts up while it holds its own locks.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "framework/CallItems.h"
#include "framework/Executable.h"
#include "framework/Mutex.h"
#include "framework/Services.h"

#pragma GCC visibility push(default)

class FilePhonebook : public Service, public DirectoryServiceIfc {
 public:
  // What a look-up returns for one number.
  struct Entry {
    std::string surname;
    std::string firstname;
    std::string picture;
    NumberType::NT type = NumberType::NT_OTHER;
  };
  // Keyed by normalised number.
  using Index = std::unordered_map<std::string, Entry>;

  FilePhonebook();
  ~FilePhonebook() override;
  FilePhonebook(const FilePhonebook&) = delete;
  FilePhonebook& operator=(const FilePhonebook&) = delete;

  // Reads `path` and replaces the contacts with its contents. Returns the number of malformed
  // lines that were skipped (each logged, see above), or nothing when the file was refused; then
  // `error` says why ("<file>: <why>") and the contacts held before are kept.
  std::optional<std::size_t> load(const std::string& path, std::string& error);
  // Loads the file of the last successful load() again (after the user edited it).
  std::optional<std::size_t> reload(std::string& error);

  // Finds contact.getNumber(); when found sets surname, first name, number type and picture
  // clip and returns true. The number and the other fields are left as they are. Unknown
  // numbers leave the contact untouched.
  bool lookupContact(Contact& contact) override;

  // How many numbers the index holds.
  std::size_t size() const;
  std::string path() const;

  // Puts the normalised form of `text` (see above) in `number`. False when nothing is left or
  // something other than a leading '+', digits, '*' and '#' is left.
  static bool normaliseNumber(const std::string& text, std::string& number);

 private:
  std::shared_ptr<const Index> snapshot() const;

  mutable fw::SharedMutex m_mutex;  // leaf lock, guards the two members below
  std::shared_ptr<const Index> m_index GUARDED_BY(m_mutex);
  std::string m_path GUARDED_BY(m_mutex);
};

#pragma GCC visibility pop
