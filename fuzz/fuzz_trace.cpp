// Fuzz target: a trace file (fw::readCstaTrace), as calljournal replay reads and runs it.
// Promises checked: a trace is either refused with a place or gives steps in time order whose
// event documents the CSTA parser reads as events, with places inside the text. An accepted trace
// (its first kMaxSteps steps) is then replayed on a running journal (FuzzPhone.h) as calljournal
// replay does: the clock follows the steps, `set` steps go to the journal (its own settings as a
// client's change, the phone's values as configuration), events to its handlers; then the
// journal's promises are checked (JournalChecks.h).
#include <algorithm>
#include <cstdint>
#include <string>

#include "CstaEventChecks.h"
#include "FuzzPhone.h"
#include "csta_link/CstaTrace.h"

namespace {

constexpr size_t kMaxSteps = 64;
constexpr int64_t kMaxSpanSeconds = 366 * 86400;  // later steps happen a year after the first

void checkTrace(const fw::CstaTrace& trace) {
  int64_t previous = 0;
  for (const fw::CstaTraceStep& step : trace.steps) {
    FUZZ_CHECK(step.line >= 1 && step.column >= 1, step.at);
    FUZZ_CHECK(step.atSeconds >= previous || &step == &trace.steps.front(), step.at);
    previous = step.atSeconds;
    if (step.kind == fw::CstaTraceStep::Set) {
      FUZZ_CHECK(!step.key.empty(), step.at);
      continue;
    }
    const csta_xml::CstaParseResult parsed = csta_xml::parseCstaEvent(step.eventXml);
    FUZZ_CHECK(parsed.kind == csta_xml::CstaParseResult::Event, step.eventXml);
    fuzz::checkParsed(parsed);
  }
  for (const fw::CstaTraceNotice& notice : trace.skipped) FUZZ_CHECK(notice.line >= 1, notice.what);
}

// The steps at the phone's clock: the first step at the time the phone has now, the others as far
// after it as the trace says (at most a year).
void replay(const fw::CstaTrace& trace) {
  fuzz::Phone& phone = fuzz::Phone::instance();
  phone.beginInput();
  const int64_t start = phone.now();
  bool leading = true;
  for (size_t i = 0; i < trace.steps.size() && i < kMaxSteps; ++i) {
    const fw::CstaTraceStep& step = trace.steps[i];
    if (step.kind == fw::CstaTraceStep::Event && leading) {
      // The sets before the first event configure the phone before the journal would start.
      phone.rereadSystemValues();
      leading = false;
    }
    phone.setTime(start + std::min(step.atSeconds - trace.steps.front().atSeconds, kMaxSpanSeconds));
    if (step.kind == fw::CstaTraceStep::Set)
      phone.set(step.key, step.value);
    else
      phone.deliver(step.eventXml);
  }
  phone.endInput();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::silenceLogs();
  const std::string text(reinterpret_cast<const char*>(data), size);
  fw::CstaTrace trace;
  std::string error;
  if (!fw::readCstaTrace(text, "trace.xml", trace, error)) {
    FUZZ_CHECK(error.rfind("trace.xml:", 0) == 0, error);
    FUZZ_CHECK(trace.steps.empty() && trace.skipped.empty(), error);
    return 0;
  }
  checkTrace(trace);
  if (!trace.steps.empty()) replay(trace);
  return 0;
}
