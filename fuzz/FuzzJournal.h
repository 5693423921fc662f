// The journal as the daemon runs it (module, framework services, SQLite store on a scratch file),
// in replay mode so that no socket or switch is needed, with the lists filled by replaying the
// example office day once. The client and management targets send their inputs to it as the
// client server would. Made on first use, never stopped; one thread uses it.
#pragma once

#include <map>
#include <string>

#include "FuzzSupport.h"
#include "JournalHost.h"
#include "framework/CstaTrace.h"

namespace fuzz {

inline host::JournalHost& journal() {
  static host::JournalHost* const running = [] {
    silenceLogs();
    fw::CstaTrace day;
    std::string error;
    if (!fw::readCstaTraceFile(JOURNAL_EXAMPLES_DIR "/traces/office-day.xml", day, error)) {
      std::fprintf(stderr, "fuzz: %s\n", error.c_str());
      std::abort();
    }
    std::map<std::string, std::string> values = {{"database", scratchDirectory() + "/journal.db"}};
    size_t first = 0;
    for (; first < day.steps.size() && day.steps[first].kind == fw::CstaTraceStep::Set; ++first)
      values[day.steps[first].key] = day.steps[first].value;
    auto* host = new host::JournalHost(host::JournalHost::Mode::Replay);
    if (!day.steps.empty()) host->setReplayStart(day.steps.front().at);
    if (!host->configure("", values, error) || !host->start(error)) {
      std::fprintf(stderr, "fuzz: the journal did not start: %s\n", error.c_str());
      std::abort();
    }
    silenceLogs();
    for (size_t i = first; i < day.steps.size(); ++i) {
      const fw::CstaTraceStep& step = day.steps[i];
      host->setLocalTime(step.at, error);
      if (step.kind == fw::CstaTraceStep::Set) {
        std::string refused;
        host->setValue(step.key, step.value, refused);
      } else {
        host->deliverEvent(step.eventXml, error);
      }
    }
    // Left running at exit: it is idle between inputs (the clock is a manual one, no socket is
    // served), and stopping it from an exit handler would run after statics it uses are gone.
    return host;
  }();
  return *running;
}

}  // namespace fuzz
