#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "Printers.h"
#include "csta_link/CstaXml.h"
#include "framework/CstaEvents.h"
#include "framework/Utf8.h"

using namespace csta_xml;

namespace {

std::string header(std::vector<unsigned char> bytes) { return std::string(bytes.begin(), bytes.end()); }

TEST(CstaFrameTest, EncodesLengthAndInvokeIdHeader) {
  EXPECT_EQ(encodeFrame(9999, "<a/>"), header({0, 0, 0, 12, '9', '9', '9', '9'}) + "<a/>");
  EXPECT_EQ(encodeFrame(7, ""), header({0, 0, 0, 8, '0', '0', '0', '7'}));
  const std::string big(70000, 'x');  // above 64 KiB the length needs the upper bytes
  EXPECT_EQ(encodeFrame(123, big).substr(0, 8), header({0, 1, 0x11, 0x78, '0', '1', '2', '3'}));
  for (int bad : {10000, -1}) EXPECT_THROW(encodeFrame(bad, "<a/>"), std::invalid_argument) << bad;
}

TEST(CstaFrameTest, DecodesFramesSplitAtAnyPoint) {
  using Sent = std::vector<std::pair<int, std::string>>;
  const Sent sent = {{1, "<MonitorStart/>"}, {9999, std::string(300, 'e')}, {42, "<Status/>"}};
  std::string stream;
  for (const auto& [id, xml] : sent) stream += encodeFrame(id, xml);
  for (std::size_t chunk : {1u, 2u, 3u, 7u, 9u, 64u, 1000u}) {
    CstaFrameDecoder decoder;
    Sent got;
    for (std::size_t pos = 0; pos < stream.size(); pos += chunk) {
      decoder.feed(stream.data() + pos, std::min(chunk, stream.size() - pos));
      for (CstaFrame frame; decoder.next(frame);) got.emplace_back(frame.invokeId, frame.xml);
    }
    EXPECT_EQ(got, sent) << "chunk " << chunk;
    EXPECT_EQ(decoder.buffered(), 0u) << "chunk " << chunk;
  }
}

TEST(CstaFrameTest, RefusesBadHeadersAndStaysFailed) {
  const std::tuple<std::string, std::size_t, const char*> cases[] = {
      {header({0, 0, 0x10, 0x01, '9', '9', '9', '9'}), 4096, "exceeds the limit of 4096"},
      {header({0x7F, 0, 0, 0, '9', '9', '9', '9'}), kDefaultMaxFrameSize, "exceeds the limit"},
      {header({0, 0, 0, 7, '9', '9', '9', '9'}), 4096, "shorter than the 8-byte header"},
      {header({0, 0, 0, 12, '9', 'x', '9', '9'}) + "<a/>", 4096, "not four decimal digits"},
  };
  const std::string good = encodeFrame(1, "<a/>");
  for (const auto& [bytes, limit, message] : cases) {
    CstaFrameDecoder decoder(limit);
    CstaFrame frame;
    decoder.feed(bytes.data(), bytes.size());
    EXPECT_THAT([&] { decoder.next(frame); }, testing::ThrowsMessage<CstaFramingError>(testing::HasSubstr(message)));
    decoder.feed(good.data(), good.size());
    EXPECT_THROW(decoder.next(frame), CstaFramingError);
  }
}

// A device as the switch names it: a plain number, a URI, a display name, the switch's own forms.
TEST(CstaValuesTest, DeviceIdentifierForms) {
  const struct {
    const char* name;
    const char* identifier;
    CSTADeviceID expected;
  } cases[] = {
      {"a plain number", "4711", {"4711", ""}},
      {"a number with blanks around it", " 4711 ", {"4711", ""}},
      {"nothing", "", {"", ""}},
      {"a tel URI with a phone context", "tel:+498912345;phone-context=pbx", {"+498912345", ""}},
      {"a SIP URI of a phone number", "sip:2001@pbx.example.com;user=phone", {"2001", ""}},
      {"a SIP URI with a quoted display name", "\"Anna Berg\" <sip:2002@pbx.example.com>", {"2002", "Anna Berg"}},
      {"the switch's N<number> with its number plan", "N<302118840100>;noa=nk", {"302118840100", ""}},
      {"N<number> with a line and a display number",
       "N<7868772298>Line71001;displayNumber=7868772298",
       {"7868772298", ""}},
      {"a percent-encoded display name", "N<2003>;displayNumber=2003;displayName=Jan%20Ek", {"2003", "Jan Ek"}},
      {"a quoted display name parameter", "2004;displayName=\"Eva Lind\"", {"2004", "Eva Lind"}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.expected, parseDeviceIdentifier(c.identifier)) << c.identifier;
  }
}

// A cause by its ECMA-323 name (any letter case) or number; what names no cause is EC_NONE.
TEST(CstaValuesTest, EventCauses) {
  const struct {
    const char* name;
    const char* text;
    int expected;
  } cases[] = {{"the first name", "activeParticipation", EC_ACTIVE_PARTICIPATION},
               {"a name that starts like another", "callForwardNoAnswer", EC_CALL_FORWARD_NO_ANSWER},
               {"the name the longer one starts with", "callForward", EC_CALL_FORWARD},
               {"a name of an earlier edition", "voiceUnitInitiator", EC_VOICE_UNIT_INITIATOR},
               {"a name with an abbreviation", "dTMFDigitDetected", EC_DTMF_DIGIT_DETECTED},
               {"normal clearing", "normalClearing", EC_NORMAL_CLEARING},
               {"an abbreviation at the start", "aCDBusy", EC_ACD_BUSY},
               {"a name that is the start of another", "normal", EC_NORMAL},
               {"the last name", "unauthorisedBearerService", EC_UNAUTHORISED_BEARER_SERVICE},
               {"a name in capitals", "NORMALCLEARING", EC_NORMAL_CLEARING},
               {"number 0", "0", 0},
               {"a number no name has", "112", 112},
               {"the highest number kept", "127", kHighestEventCauseNumber},
               {"an unknown name", "badURI", EC_NONE},
               {"nothing", "", EC_NONE},
               {"a negative number", "-3", EC_NONE},
               {"one above the highest number kept", "128", EC_NONE},
               {"a byte's highest number", "255", EC_NONE},
               {"a number past 16 bits", "65536", EC_NONE},
               {"a number of nine digits", "999999999", EC_NONE}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.expected, static_cast<int>(parseEventCause(c.text))) << c.text;
  }
}

// A localConnectionInfo by its name or number; what names no state is CSTA_LCS_None.
TEST(CstaValuesTest, LocalConnectionStates) {
  const struct {
    const char* text;
    CSTALocalConnectionState expected;
  } cases[] = {{"null", CSTA_LCS_Null},           {"initiated", CSTA_LCS_Initiated}, {"alerting", CSTA_LCS_Alerting},
               {"connected", CSTA_LCS_Connected}, {"hold", CSTA_LCS_Hold},           {"queued", CSTA_LCS_Queued},
               {"fail", CSTA_LCS_Fail},           {"3", CSTA_LCS_Connected},         {"7", CSTA_LCS_None},
               {"ringing", CSTA_LCS_None}};
  for (const auto& c : cases) EXPECT_EQ(c.expected, parseLocalConnectionState(c.text)) << c.text;
}

// Device getters give number and name through out-parameters; this gives them as one value.
template <class E, class P>
CSTADeviceID party(const E& event, void (P::*getter)(std::string&, std::string&) const) {
  CSTADeviceID device;
  (event.*getter)(device.number, device.name);
  return device;
}
// An event document of the third edition, an element naming a device by `id`, one naming a connection.
const std::string kEcma = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed";
std::string doc(const std::string& name, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><" + name + kEcma +
         "3\"><monitorCrossRefID>77</monitorCrossRefID>" + body + "</" + name + ">";
}
std::string dev(const char* role, const std::string& id) {
  return std::string("<") + role + "><deviceIdentifier>" + id + "</deviceIdentifier></" + role + ">";
}
std::string conn(const char* role, const std::string& callId, const std::string& device = "") {
  return std::string("<") + role + "><callID>" + callId + "</callID>" +
         (device.empty() ? "" : "<deviceID>" + device + "</deviceID>") + "</" + role + ">";
}

// What an event carries, by name: devices as `"name" <number>`, enumerations as their numbers,
// a call-log entry's texts as "<presentation> <text>". Each part an event class has gives its names.
using Fields = std::map<std::string, std::string>;
using LogEntry = CallLogEntryEvent;

std::string shown(const CSTADeviceID& device) { return "\"" + device.name + "\" <" + device.number + ">"; }
std::string shown(const CallLogEntryEvent::Field& field) {
  static const char* const kPresentations[] = {"none", "shown", "restricted"};
  const int at = static_cast<int>(field.presentation);
  return (at >= 0 && at < 3 ? kPresentations[at] : std::to_string(at)) + " " + field.text;
}
std::string number(int value) { return std::to_string(value); }

void addCallLogEntry(const CallLogEntryEvent& entry, Fields& fields) {
  fields["action"] = number(entry.action);
  fields["log target"] = number(entry.logTarget);
  fields["time format"] = number(entry.timeFormat);
  fields["subscriber number"] = entry.subscriberNumber;
  const std::pair<const char*, LogEntry::_FieldIndex> texts[] = {{"date time", LogEntry::FIELD_DATE_TIME},
                                                                 {"name", LogEntry::FIELD_NAME},
                                                                 {"deflect number", LogEntry::FIELD_DEFLECT_NUMBER},
                                                                 {"deflect name", LogEntry::FIELD_DEFLECT_NAME},
                                                                 {"connected number", LogEntry::FIELD_CONNECTED_NUMBER},
                                                                 {"connected name", LogEntry::FIELD_CONNECTED_NAME}};
  for (const auto& [name, index] : texts) fields[name] = shown(entry.field(index));
}

Fields fieldsOf(const CSTAEvent& event) {
  Fields fields{{"event", event.eventName()}};
  if (auto* part = dynamic_cast<const CSTAPrivateDataPart*>(&event)) fields["private data"] = part->getPrivateData();
  if (auto* part = dynamic_cast<const CSTAConnectionPart*>(&event)) {
    fields["call"] = part->getConnection().callId;
    fields["connection device"] = shown(part->getConnection().device);
  }
  if (auto* part = dynamic_cast<const CSTACallPartiesPart*>(&event)) {
    fields["calling"] = shown(party(*part, &CSTACallPartiesPart::getCallingDevice));
    fields["called"] = shown(party(*part, &CSTACallPartiesPart::getCalledDevice));
  }
  if (auto* part = dynamic_cast<const CSTARedirectionPart*>(&event))
    fields["last redirection"] = shown(party(*part, &CSTARedirectionPart::getLastRedirectionDevice));
  if (auto* part = dynamic_cast<const CSTALocalConnectionPart*>(&event))
    fields["local state"] = number(part->getLocalConnectionInfo());
  if (auto* part = dynamic_cast<const CSTACausePart*>(&event)) fields["cause"] = number(part->getCause());
  if (auto* part = dynamic_cast<const CSTADevicePart*>(&event))
    fields["device"] = shown(party(*part, &CSTADevicePart::getDevice));
  if (auto* part = dynamic_cast<const CSTAOnOffPart*>(&event)) fields["on"] = part->isOn() ? "true" : "false";
  if (auto* delivered = dynamic_cast<const CSTADeliveredEvent*>(&event))
    fields["alerting"] = shown(party(*delivered, &CSTADeliveredEvent::getAlertingDevice));
  if (auto* queued = dynamic_cast<const CSTAQueuedEvent*>(&event))
    fields["queue"] = shown(party(*queued, &CSTAQueuedEvent::getQueueDevice));
  if (auto* transferred = dynamic_cast<const CSTATransferredEvent*>(&event)) {
    fields["secondary old call"] = transferred->getSecondaryOldCall().callId;
    fields["transferred to"] = shown(party(*transferred, &CSTATransferredEvent::getTransferredToDevice));
    fields["remote party name"] = transferred->getRemotePartyName();
  }
  if (auto* status = dynamic_cast<const CSTASystemStatusEvent*>(&event))
    fields["system status"] = status->getSystemStatus();
  if (auto* vendor = dynamic_cast<const CSTAPrivateEvent*>(&event)) {
    fields["private event type"] = number(vendor->getEventType());
    if (vendor->getEventType() == CSTAPrivateEvent::kPrivateEventCallLogEntry)
      addCallLogEntry(vendor->getCallLogEntry(), fields);
  }
  return fields;
}

// The fields of the event `xml` parses to; for a document that is no event, its outcome as the event.
Fields parsedFields(const std::string& xml) {
  const CstaParseResult result = parseCstaEvent(xml);
  if (result.kind != CstaParseResult::Event || !result.event)
    return {{"event", "not an event (kind " + number(result.kind) + "): " + result.error}};
  return fieldsOf(*result.event);
}

// Compares the fields a case names; fields it does not name are not looked at.
void expectFields(const Fields& expected, const Fields& actual) {
  for (const auto& [field, value] : expected) {
    const auto found = actual.find(field);
    EXPECT_EQ(value, found == actual.end() ? "<no such field>" : found->second) << "field: " << field;
  }
}

// One document per event class the recorded days do not bring (the originated, diverted, failed,
// cleared and conferenced events of the traces, the callbacks of the end-to-end tests); each case
// pins what that class adds over the others.
struct EventCase {
  const char* name;
  std::string xml;
  Fields expected;
};

const EventCase kEventCases[] = {
    {"a delivered event with four parties, its state, cause and the call status in private data",
     doc("DeliveredEvent",
         conn("connection", "FF00", "N&lt;2001&gt;") + dev("alertingDevice", "N&lt;2001&gt;;displayName=Desk") +
             dev("callingDevice", "N&lt;0301234&gt;;displayName=Ola%20Nord") + dev("calledDevice", "2001") +
             "<lastRedirectionDevice><numberDialed>2050</numberDialed></lastRedirectionDevice><futureElement><x>1"
             "</x></futureElement><localConnectionInfo>alerting</localConnectionInfo><cause>redirected</cause>"
             "<extensions><privateData><private xmlns:v=\"urn:vendor:csta\"><v:lineKey>3</v:lineKey><callStatus>"
             "MissedCall</callStatus></private></privateData></extensions>"),
     {{"event", "DeliveredEvent"},
      {"call", "FF00"},
      {"connection device", R"("" <2001>)"},
      {"alerting", R"("Desk" <2001>)"},
      {"calling", R"("Ola Nord" <0301234>)"},
      {"called", R"("" <2001>)"},
      {"last redirection", R"("" <2050>)"},
      {"local state", number(CSTA_LCS_Alerting)},
      {"cause", number(EC_REDIRECTED)},
      {"private data", "MissedCall"}}},
    {"an established event whose parties are not known, restricted or not required",
     doc("EstablishedEvent", conn("establishedConnection", "42") +
                                 "<callingDevice><notKnown/></callingDevice><calledDevice><restricted/></calledDevice>"
                                 "<lastRedirectionDevice><notRequired/></lastRedirectionDevice><cause>48</cause>"),
     {{"event", "EstablishedEvent"},
      {"calling", std::string("\"\" <") + communicationsServiceTexts::noNumberProvided + ">"},
      {"called", R"("" <>)"},
      {"last redirection", R"("" <>)"},
      {"cause", number(EC_NORMAL_CLEARING)}}},
    {"a queued event's queue",
     doc("QueuedEvent", conn("queuedConnection", "43") + dev("queue", "600")),
     {{"event", "QueuedEvent"}, {"call", "43"}, {"queue", R"("" <600>)"}}},
    {"a transferred event, in the schema's spelling TransferedEvent",
     doc("TransferedEvent", conn("primaryOldCall", "47") + conn("secondaryOldCall", "48") +
                                dev("transferredToDevice", "N&lt;2003&gt;;displayName=Kim")),
     {{"event", "TransferredEvent"},
      {"call", "47"},
      {"secondary old call", "48"},
      {"transferred to", R"("Kim" <2003>)"},
      {"remote party name", "Kim"}}},
    {"a call information event's device and its name",
     doc("CallInformationEvent", conn("connection", "52", "N&lt;2001&gt;;displayName=Desk")),
     {{"event", "CallInformationEvent"}, {"call", "52"}, {"connection device", R"("Desk" <2001>)"}}},
    {"a hookswitch event",
     doc("HookswitchEvent", dev("device", "2001") + "<hookswitchOnHook>true</hookswitchOnHook>"),
     {{"event", "HookswitchEvent"}, {"device", R"("" <2001>)"}, {"on", "true"}}},
    {"the switch's system status",
     doc("SystemStatus", "<systemStatus>overloadImminent</systemStatus>"),
     {{"event", "SystemStatusEvent"}, {"system status", "overloadImminent"}}},
    {"a private event of another kind keeps its private data",
     doc("PrivateEvent", "<privateData><private><keyPressed>5</keyPressed></private></privateData>"),
     {{"event", "PrivateEvent"},
      {"private event type", number(CSTAPrivateEvent::kPrivateEventUnknown)},
      {"private data", "<private><keyPressed>5</keyPressed></private>"}}},
    {"a private event with an entry of the switch's call log",
     doc("PrivateEvent",
         "<privateData><private><callLogEntry><action>delete</action><logTarget>dialledDiverted</logTarget>"
         "<timeFormat>utc</timeFormat><subscriberNumber>0301234</subscriberNumber><dateTime>2026-03-01T10:00:00"
         "</dateTime><name presentation=\"restricted\">Ola</name><deflectNumber presentation=\"none\"/>"
         "</callLogEntry></private></privateData>"),
     {{"event", "PrivateEvent"},
      {"private event type", number(CSTAPrivateEvent::kPrivateEventCallLogEntry)},
      {"action", number(LogEntry::ACTION_DELETE)},
      {"log target", number(LogEntry::LT_DIALLED_DIVERTED)},
      {"time format", number(LogEntry::TF_UTC)},
      {"subscriber number", "0301234"},
      {"date time", "shown 2026-03-01T10:00:00"},
      {"name", "restricted Ola"},
      {"deflect number", "none "},
      {"connected name", "none "}}}};

TEST(CstaEventParseTest, ReadsEventsIntoTheirObjects) {
  for (const EventCase& c : kEventCases) {
    SCOPED_TRACE(c.name);
    expectFields(c.expected, parsedFields(c.xml));
  }
}

// The namespaces of the editions read (2 to 6), also with a prefix; other namespaces and documents
// are not events, and what is not well-formed is malformed.
TEST(CstaEventParseTest, EditionNamespacesAndOtherDocuments) {
  const std::string body = conn("connection", "9") + dev("callingDevice", "555");
  const std::string delivered = "DeliveredEvent";
  const struct {
    const char* name;
    std::string openTag, closeTag;
    CstaParseResult::Kind kind;
  } cases[] = {
      {"the second edition's namespace", delivered + " xmlns=\"http://www.ecma.ch/standards/ecma-323/csta/ed2\"",
       delivered, CstaParseResult::Event},
      {"the third edition", delivered + kEcma + "3\"", delivered, CstaParseResult::Event},
      {"the sixth edition", delivered + kEcma + "6\"", delivered, CstaParseResult::Event},
      {"no namespace", delivered, delivered, CstaParseResult::Event},
      {"a prefixed element of the fourth edition", "x:" + delivered + " xmlns:x" + kEcma.substr(6) + "4\"",
       "x:" + delivered, CstaParseResult::Event},
      {"another protocol's namespace", delivered + " xmlns=\"urn:other:protocol\"", delivered,
       CstaParseResult::Unknown},
      {"an edition not read (7)", delivered + kEcma + "7\"", delivered, CstaParseResult::Unknown},
      {"a response, no event", "MonitorStartResponse" + kEcma + "3\"", "MonitorStartResponse",
       CstaParseResult::Unknown}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string xml = "<" + c.openTag + ">" + body + "</" + c.closeTag + ">";
    const CstaParseResult result = parseCstaEvent(xml);
    EXPECT_EQ(c.closeTag.substr(c.closeTag.find(':') + 1), result.elementName);
    EXPECT_EQ(c.kind, result.kind);
    if (c.kind != CstaParseResult::Event) {
      EXPECT_EQ(nullptr, result.event);
      continue;
    }
    expectFields({{"event", "DeliveredEvent"}, {"call", "9"}, {"calling", R"("" <555>)"}}, parsedFields(xml));
  }
  const struct {
    const char* name;
    const char* xml;
  } broken[] = {{"an element left open", "<DeliveredEvent><connection></DeliveredEvent>"}, {"nothing", ""}};
  for (const auto& c : broken) {
    SCOPED_TRACE(c.name);
    const CstaParseResult result = parseCstaEvent(c.xml);
    EXPECT_EQ(CstaParseResult::Malformed, result.kind);
    EXPECT_NE("", result.error);
  }
}

// Every event of the observer's handler list that the journal leaves to the empty default
// handler is read into its own class (each class reaches its own handler: csta_events_test), so
// that recordings holding them are replayed. The class of element X is XEvent.
TEST(CstaEventParseTest, EveryHandlerListEventIsReadIntoItsClass) {
  // clang-format off
  const char* const kElements[] = {
      "ServiceInitiatedEvent", "BridgedEvent", "HeldEvent", "RetrievedEvent", "NetworkReachedEvent",
      "ConferenceMembershipEvent", "ButtonPressEvent", "ButtonInformationEvent", "DisplayUpdatedEvent",
      "ServiceCompletionFailureEvent", "SwitchingFunctionDevices", "BackInServiceEvent", "OutOfServiceEvent",
      "MonitorStop", "MessageWaitingEvent", "ForwardingEvent", "DoNotDisturbEvent", "AgentLoggedOnEvent",
      "AgentLoggedOffEvent", "AgentReadyEvent", "AgentNotReadyEvent", "AgentWorkingAfterCallEvent",
      "BusyLampFieldEvent"};
  // clang-format on
  for (const std::string element : kElements) {
    SCOPED_TRACE(element);
    const bool endsInEvent = element.size() > 5 && element.compare(element.size() - 5, 5, "Event") == 0;
    const std::string xml = doc(element, conn("connection", "61", "2001"));
    expectFields({{"event", endsInEvent ? element : element + "Event"}}, parsedFields(xml));
    EXPECT_EQ("77", parseCstaEvent(xml).monitorCrossRefId);
  }
}

// Party texts from the switch are kept as well-formed UTF-8 of at most kMaxPartyTextBytes; a cut
// is logged with what was cut.
TEST(CstaEventParseTest, PartyTextsAreRepairedAndCut) {
  LogCapture log;
  const std::string kReplaced = fw::utf8::kReplacement;
  std::string longName;
  for (int i = 0; i < 300; ++i) longName += "\xC3\xA9";  // é, two bytes
  const std::string longNumber(1000, '7');
  const std::string cutName = longName.substr(0, kMaxPartyTextBytes),
                    cutNumber = longNumber.substr(0, kMaxPartyTextBytes);

  const Fields delivered = parsedFields(
      doc("DeliveredEvent", conn("connection", "7\xFF", "2001") + dev("alertingDevice", "2001;displayName=M%FCller") +
                                dev("callingDevice", "N&lt;" + longNumber + "&gt;;displayName=" + longName) +
                                dev("calledDevice", "\"Bo &#1;Ek\xE2\x82\" &lt;sip:2002@pbx&gt;") +
                                "<extensions><privateData><private><callStatus>Missed\xC0\xAF</callStatus></private>"
                                "</privateData></extensions>"));
  expectFields({{"call", "7" + kReplaced},
                {"alerting", "\"M" + kReplaced + "ller\" <2001>"},
                {"called", "\"Bo " + kReplaced + "Ek" + kReplaced + "\" <2002>"},
                {"private data", "Missed" + kReplaced + kReplaced},
                {"calling", "\"" + cutName + "\" <" + cutNumber + ">"}},
               delivered);
  EXPECT_TRUE(log.contains("DeliveredEvent: a party text of 1000 bytes cut to 256", fw::kLogNotable));
  EXPECT_TRUE(log.contains("DeliveredEvent: a party text of 600 bytes cut to 256", fw::kLogNotable));

  const Fields callLogEntry = parsedFields(doc(
      "PrivateEvent",
      "<privateData><private><callLogEntry><action>add</action><logTarget>missed</logTarget>"
      "<subscriberNumber>" +
          longNumber + "</subscriberNumber><name>" + longName + "\xFF</name></callLogEntry></private></privateData>"));
  expectFields({{"subscriber number", cutNumber}, {"name", "shown " + cutName}}, callLogEntry);
}

}  // namespace
