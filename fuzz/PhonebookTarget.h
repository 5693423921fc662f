// The phonebook targets' common part: the input is written as a phonebook file of the given
// extension and loaded by FilePhonebook as the daemon loads it; numbers found in the input are
// looked up. Promises checked: a load gives a count or a refusal with the file's name, and what a
// look-up gives is clean text.
#pragma once

#include <cctype>
#include <cstdint>
#include <fstream>
#include <string>

#include "FuzzSupport.h"
#include "phonebook/FilePhonebook.h"

namespace fuzz {

inline void loadPhonebook(const uint8_t* data, size_t size, const char* extension) {
  silenceLogs();
  const std::string path = scratchDirectory() + "/phonebook" + extension;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  static FilePhonebook* const book = new FilePhonebook();
  std::string error;
  if (!book->load(path, error)) {
    FUZZ_CHECK(error.rfind(path, 0) == 0, error);
    return;
  }
  // The first few runs of digits in the text are numbers the file may hold.
  int lookups = 0;
  for (size_t at = 0; at < text.size() && lookups < 8;) {
    if (!std::isdigit(static_cast<unsigned char>(text[at]))) {
      ++at;
      continue;
    }
    size_t end = at;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) ++end;
    Contact contact;
    contact.setNumber(text.substr(at, end - at));
    if (book->lookupContact(contact)) {
      FUZZ_CHECK(isCleanText(contact.getSurname()), contact.getSurname());
      FUZZ_CHECK(isCleanText(contact.getFirstname()), contact.getFirstname());
      FUZZ_CHECK(isCleanText(contact.getPictureClip()), contact.getPictureClip());
    }
    ++lookups;
    at = end;
  }
}

}  // namespace fuzz
