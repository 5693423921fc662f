// The trace reader: a good trace read step by step, and each fault reported where it is.
#include <gtest/gtest.h>

#include "csta_link/CstaTrace.h"
#include "csta_link/CstaXml.h"
#include "framework/CstaEvents.h"

namespace {

const std::string kEd2 = "http://www.ecma.ch/standards/ecma-323/csta/ed2",
                  kEd6 = "http://www.ecma-international.org/standards/ecma-323/csta/ed6";

// Steps of one line each after the root's line, so that faults sit at known places.
std::string trace(const std::string& steps) {
  return "<?xml version=\"1.0\"?>\n<cstaTrace xmlns:c=\"" + kEd6 + "\">\n" + steps + "</cstaTrace>\n";
}
const std::string kSet = "<set at=\"2026-03-10T08:00:00\" key=\"software-type\" value=\"Velmora KPX\"/>\n";
const std::string kCleared =
    "<ConnectionClearedEvent><monitorCrossRefID>1</monitorCrossRefID><droppedConnection><callID>FF01</callID>"
    "</droppedConnection><cause>normalClearing</cause></ConnectionClearedEvent>";

TEST(CstaTrace, ReadsSetsAndEventsOfAnyEditionWithTheirPlaces) {
  const std::string text = trace(
      "<!-- the phone starts -->\n" + kSet + "  <event at=\"2026-03-10T08:00:05\"><DeliveredEvent xmlns=\"" + kEd2 +
      "\"><monitorCrossRefID>1</monitorCrossRefID><connection><callID>FF01</callID></connection>"
      "<localConnectionInfo>alerting</localConnectionInfo></DeliveredEvent></event>\n"
      "<event at=\"2026-03-10T08:00:05\">\n <c:OfferedEvent><c:monitorCrossRefID>1</c:monitorCrossRefID>"
      "</c:OfferedEvent>\n</event>\n<event at=\"2026-03-10T08:01:00\">" +
      kCleared + "</event>\n");
  fw::CstaTrace read;
  std::string error;
  ASSERT_TRUE(fw::readCstaTrace(text, "day.xml", read, error)) << error;
  ASSERT_EQ(read.steps.size(), 4u);
  const auto& set = read.steps[0];
  EXPECT_EQ(fw::CstaTraceStep::Set, set.kind);
  EXPECT_EQ("2026-03-10T08:00:00", set.at);
  EXPECT_EQ("software-type", set.key);
  EXPECT_EQ("Velmora KPX", set.value);
  EXPECT_EQ(4, set.line);
  EXPECT_EQ(1, set.column);
  EXPECT_EQ(read.steps[3].atSeconds - set.atSeconds, 60);
  const std::pair<int, int> places[] = {{5, 3}, {6, 1}, {9, 1}};
  const char* names[] = {"DeliveredEvent", "OfferedEvent", "ConnectionClearedEvent"};
  for (int i = 0; i < 3; ++i) {
    const auto& step = read.steps[i + 1];
    EXPECT_EQ(step.kind, fw::CstaTraceStep::Event);
    EXPECT_EQ(step.eventName, names[i]);
    EXPECT_EQ(std::make_pair(step.line, step.column), places[i]) << names[i];
    EXPECT_EQ(csta_xml::parseCstaEvent(step.eventXml).kind, csta_xml::CstaParseResult::Event) << step.eventXml;
  }
  // The prefixed event keeps the namespace declared on the root; the values come through.
  EXPECT_NE(read.steps[2].eventXml.find("xmlns:c=\"" + kEd6 + "\""), std::string::npos);
  const auto delivered = csta_xml::parseCstaEvent(read.steps[1].eventXml);
  const auto* event = dynamic_cast<const CSTADeliveredEvent*>(delivered.event.get());
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(event->getCallID(), "FF01");
}

TEST(CstaTrace, RefusesEachFaultNamingItsPlace) {
  const std::string at = "<event at=\"2026-03-10T08:00:00\">";
  const std::pair<std::string, std::string> cases[] = {
      {trace(kSet + "<set at=\"2026-03-10T08:00:00\" key=\"a\" value=\"1\">\n"), "f:5:3: not well-formed XML"},
      {"<journal/>\n", "f:1:1: root element is 'journal', not 'cstaTrace'"},
      {trace(kSet + "  <pause at=\"2026-03-10T08:00:00\"/>\n"), "f:4:3: unknown element 'pause'"},
      {trace("<set key=\"a\" value=\"1\"/>\n"), "f:3:1: 'set' has no 'at' attribute"},
      {trace("<set at=\"2026-03-10 08:00\" key=\"a\" value=\"1\"/>\n"), "f:3:1: 'at' value '2026-03-10 08:00' is not"},
      {trace(kSet + "<set at=\"2026-03-10T07:59:59\" key=\"a\" value=\"1\"/>\n"),
       "f:4:1: time 2026-03-10T07:59:59 is earlier than the step before"},
      {trace("<set at=\"2026-03-10T08:00:00\" key=\"\" value=\"1\"/>\n"), "f:3:1: 'set' needs a non-empty 'key'"},
      {trace("<set at=\"2026-03-10T08:00:00\" key=\"a\"/>\n"), "f:3:1: 'set' of 'a' has no 'value' attribute"},
      {trace(at + "\n</event>\n"), "f:3:1: 'event' holds no event element"},
      {trace(at + kCleared + "\n  " + kCleared + "</event>\n"), "f:4:3: 'event' holds a second element"},
      {trace(kSet + at +
             "<x:Response xmlns:x=\"urn:x\"/></event>\n<set at=\"2026-03-10T07:00:00\" key=\"a\" value=\"1\"/>\n"),
       "f:5:1: time 2026-03-10T07:00:00 is earlier than the step before"},  // a skipped step's time counts
  };
  for (const auto& [text, expected] : cases) {
    fw::CstaTrace read;
    read.steps.resize(1);
    std::string error;
    EXPECT_FALSE(fw::readCstaTrace(text, "f", read, error)) << expected;
    EXPECT_EQ(error.substr(0, expected.size()), expected) << text;
    EXPECT_EQ(0u, read.steps.size());
  }
}

}  // namespace
