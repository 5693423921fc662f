// What the fuzz targets share: silence in the log, a scratch directory removed at exit, checks
// that abort on a broken promise (libFuzzer then keeps the input as a crash), and the test of
// well-formed XML that replies must pass. Each target runs its inputs on one thread.
#pragma once

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <pugixml.hpp>
#include <string>

#include "framework/Logging.h"
#include "framework/Utf8.h"

// A broken promise of the code under test: abort, naming it.
#define FUZZ_CHECK(condition, what)                                                                              \
  do {                                                                                                           \
    if (!(condition)) {                                                                                          \
      std::fprintf(stderr, "fuzz check failed: %s: %s\n", #condition, std::string(what).substr(0, 300).c_str()); \
      std::abort();                                                                                              \
    }                                                                                                            \
  } while (0)

namespace fuzz {

class DiscardSink : public fw::LogSink {
 public:
  void write(const fw::LogRecord&) override {}
};

// Log lines are formatted as usual (the code under test runs as in production) but dropped.
inline void silenceLogs() {
  static const bool done = [] {
    fw::setLogSink(std::make_shared<DiscardSink>());
    return true;
  }();
  (void)done;
}

// A directory of this process under $TMPDIR (or /tmp), removed with its content at exit.
inline const std::string& scratchDirectory() {
  // Kept on the heap: the handler that removes it runs after static objects may be gone.
  static const std::string* const path = [] {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/journal-fuzz-XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    auto* made = new std::string(pattern);
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(scratchDirectory(), ignored);
    });
    return made;
  }();
  return *path;
}

// True for a text that parses as one XML document with a root element.
inline bool isWellFormedXml(const std::string& text) {
  pugi::xml_document doc;
  return doc.load_buffer(text.data(), text.size()) && doc.document_element();
}

// Text that may travel on: well-formed UTF-8 without characters XML cannot carry.
inline bool isCleanText(const std::string& text) { return fw::utf8::isClean(text); }

}  // namespace fuzz
