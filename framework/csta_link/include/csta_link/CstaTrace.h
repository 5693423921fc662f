// A recorded CSTA trace of one phone: local management settings and the switch's event documents,
// each stamped with the phone's local time, for replaying a day of calls into the journal.
//
//   <cstaTrace>
//     <set at="2026-03-10T07:55:00" key="software-type" value="Velmora KPX"/>
//     <event at="2026-03-10T08:02:10">
//       <OfferedEvent xmlns="http://www.ecma-international.org/standards/ecma-323/csta/ed4">...</OfferedEvent>
//     </event>
//   </cstaTrace>
//
// Comments and whitespace may go anywhere. The reader checks the whole trace before it gives any
// step: well-formed XML, the root element, only `set` and `event` children, an `at` of exactly
// "YYYY-MM-DDThh:mm:ss" on every step with times never going backwards, `set` with a non-empty
// `key` and a `value`, `event` with exactly one element child. An event document that
// csta_xml::parseCstaEvent does not read as an event is no fault: it is left out and noted in
// `skipped`, as the switch link skips it. Nothing is walked recursively: events may nest as deep
// as the file allows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

namespace fw {

struct CstaTraceStep {
  enum Kind { Set, Event } kind = Set;
  std::string at;            // "YYYY-MM-DDThh:mm:ss", the phone's local time
  int64_t atSeconds = 0;     // secondsFromCivil(at)
  std::string key, value;    // Set
  std::string eventXml;      // Event: the single child element serialised as a standalone document (namespaces kept)
  std::string eventName;     // Event: its local name
  int line = 0, column = 0;  // where the step starts in the file (its '<'), 1-based
};

// An `event` step whose document is no CSTA event the parser reads (a response, an error
// answer, a vendor's own document, an element outside the ECMA-323 namespaces): left out of the
// steps, as the link skips such documents, and noted with its place.
struct CstaTraceNotice {
  std::string what;
  int line = 0, column = 0;
};

struct CstaTrace {
  std::vector<CstaTraceStep> steps;
  std::vector<CstaTraceNotice> skipped;
};

// Reads and checks a whole trace. On any fault returns false with "<origin>:<line>:<column>: <what
// is wrong>" in `error` and leaves `trace` empty (steps and notices).
bool readCstaTrace(const std::string& text, const std::string& origin, CstaTrace& trace, std::string& error);
// The same for the file at `path` (the path is the origin); an unreadable file is a fault too.
bool readCstaTraceFile(const std::string& path, CstaTrace& trace, std::string& error);

}  // namespace fw

#pragma GCC visibility pop
