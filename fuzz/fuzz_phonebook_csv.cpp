// Fuzz target: a CSV phonebook file (see PhonebookTarget.h).
#include "PhonebookTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::loadPhonebook(data, size, ".csv");
  return 0;
}
