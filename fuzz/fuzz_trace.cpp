// Fuzz target: a trace file (fw::readCstaTrace), as calljournal replay reads it. Promises checked:
// a trace is either refused with a place or gives steps in time order whose event documents the
// CSTA parser reads as events, with places inside the text.
#include <cstdint>
#include <string>

#include "CstaEventChecks.h"
#include "FuzzSupport.h"
#include "framework/CstaTrace.h"

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
  int64_t previous = 0;
  for (const fw::CstaTraceStep& step : trace.steps) {
    FUZZ_CHECK(step.line >= 1 && step.column >= 1, step.at);
    FUZZ_CHECK(step.atSeconds >= previous || &step == &trace.steps.front(), step.at);
    previous = step.atSeconds;
    if (step.kind != fw::CstaTraceStep::Event) continue;
    const csta_xml::CstaParseResult parsed = csta_xml::parseCstaEvent(step.eventXml);
    FUZZ_CHECK(parsed.kind == csta_xml::CstaParseResult::Event, step.eventXml);
    fuzz::checkParsed(parsed);
  }
  for (const fw::CstaTraceNotice& notice : trace.skipped) FUZZ_CHECK(notice.line >= 1, notice.what);
  return 0;
}
