#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "LogCapture.h"
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

TEST(CstaValuesTest, DeviceIdentifierForms) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"4711", "4711", ""},
      {" 4711 ", "4711", ""},
      {"", "", ""},
      {"tel:+498912345;phone-context=pbx", "+498912345", ""},
      {"sip:2001@pbx.example.com;user=phone", "2001", ""},
      {"\"Anna Berg\" <sip:2002@pbx.example.com>", "2002", "Anna Berg"},
      {"N<302118840100>;noa=nk", "302118840100", ""},
      {"N<7868772298>Line71001;displayNumber=7868772298", "7868772298", ""},
      {"N<2003>;displayNumber=2003;displayName=Jan%20Ek", "2003", "Jan Ek"},
      {"2004;displayName=\"Eva Lind\"", "2004", "Eva Lind"}};
  for (const auto& [text, number, name] : cases)
    EXPECT_EQ(parseDeviceIdentifier(text), (CSTADeviceID{number, name})) << text;
}

// Space-separated "text=value" items; -1 is EC_NONE for causes and the refusal for states.
TEST(CstaValuesTest, CausesAndLocalStates) {
  const auto expect = [](auto parse, const std::string& table) {
    std::istringstream items(table);
    for (std::string item; items >> item;) {
      const auto at = item.rfind('=');
      EXPECT_EQ(static_cast<int>(parse(item.substr(0, at))), std::stoi(item.substr(at + 1))) << item;
    }
  };
  ASSERT_EQ(EC_NONE, -1);
  expect(parseEventCause,
         "activeParticipation=1 callForwardNoAnswer=8 callForward=9 voiceUnitInitiator=34 dTMFDigitDetected=39 "
         "normalClearing=48 aCDBusy=57 normal=78 unauthorisedBearerService=87 NORMALCLEARING=48 0=0 112=112 "
         "badURI=-1 =-1 -3=-1 127=127 128=-1 255=-1 65536=-1 999999999=-1");
  expect(parseLocalConnectionState,
         "null=0 initiated=1 alerting=2 connected=3 hold=4 queued=5 fail=6 3=3 7=-1 ringing=-1");
}

// Device getters give number and name through out-parameters; this gives them as one value.
template <class E, class P>
CSTADeviceID party(const E& event, void (P::*getter)(std::string&, std::string&) const) {
  CSTADeviceID device;
  (event.*getter)(device.number, device.name);
  return device;
}
const std::string kEcma = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed";
std::string doc(const std::string& name, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><" + name + kEcma +
         "3\"><monitorCrossRefID>77</monitorCrossRefID>" + body + "</" + name + ">";
}
std::string dev(const char* role, const char* id) {
  return std::string("<") + role + "><deviceIdentifier>" + id + "</deviceIdentifier></" + role + ">";
}
std::string conn(const char* role, const char* callId, const std::string& device = "") {
  return std::string("<") + role + "><callID>" + callId + "</callID>" +
         (device.empty() ? "" : "<deviceID>" + device + "</deviceID>") + "</" + role + ">";
}

// The event `xml` parses to, as class E; on any other outcome a failure and a blank E.
template <class E>
const E& parsed(const std::string& xml) {
  static std::vector<std::unique_ptr<CSTAEvent>> kept;  // the events outlive the checks on them
  CstaParseResult result = parseCstaEvent(xml);
  const E* typed = dynamic_cast<const E*>(result.event.get());
  if (result.kind == CstaParseResult::Event && typed) {
    kept.push_back(std::move(result.event));
    return *typed;
  }
  ADD_FAILURE() << "not the expected event class: " << (result.event ? result.event->eventName() : result.error) << "\n"
                << xml;
  static const E blank{};
  return blank;
}

// One document per event class the recorded days do not bring (the originated, diverted, failed,
// cleared and conferenced events of the traces, the callbacks of the end-to-end tests); each check
// pins what that class adds over the others.
TEST(CstaEventParseTest, ReadsEventsIntoTheirObjects) {
  using D = CSTADeviceID;
  using L = CallLogEntryEvent;
  using C = CSTADeliveredEvent;
  const C& d = parsed<C>(
      doc("DeliveredEvent",
          conn("connection", "FF00", "N&lt;2001&gt;") + dev("alertingDevice", "N&lt;2001&gt;;displayName=Desk") +
              dev("callingDevice", "N&lt;0301234&gt;;displayName=Ola%20Nord") + dev("calledDevice", "2001") +
              "<lastRedirectionDevice><numberDialed>2050</numberDialed></lastRedirectionDevice><futureElement><x>1"
              "</x></futureElement><localConnectionInfo>alerting</localConnectionInfo><cause>redirected</cause>"
              "<extensions><privateData><private xmlns:v=\"urn:vendor:csta\"><v:lineKey>3</v:lineKey><callStatus>"
              "MissedCall</callStatus></private></privateData></extensions>"));
  EXPECT_EQ(d.getCallID() + " " + d.getPrivateData(), "FF00 MissedCall");
  EXPECT_EQ((std::vector<D>{d.getConnection().device, party(d, &C::getAlertingDevice), party(d, &C::getCallingDevice),
                            party(d, &C::getCalledDevice), party(d, &C::getLastRedirectionDevice)}),
            (std::vector<D>{{"2001", ""}, {"2001", "Desk"}, {"0301234", "Ola Nord"}, {"2001", ""}, {"2050", ""}}));
  EXPECT_EQ((std::vector<int>{d.getLocalConnectionInfo(), d.getCause()}),
            (std::vector<int>{CSTA_LCS_Alerting, EC_REDIRECTED}));

  using S = CSTAEstablishedEvent;
  const S& s = parsed<S>(
      doc("EstablishedEvent",
          conn("establishedConnection", "42") +
              "<callingDevice><notKnown/></callingDevice><calledDevice><restricted/>"
              "</calledDevice><lastRedirectionDevice><notRequired/></lastRedirectionDevice><cause>48</cause>"));
  EXPECT_EQ((std::vector<D>{party(s, &S::getCallingDevice), party(s, &S::getCalledDevice),
                            party(s, &S::getLastRedirectionDevice)}),
            (std::vector<D>{{communicationsServiceTexts::noNumberProvided, ""}, {}, {}}));
  EXPECT_EQ(s.getCause(), EC_NORMAL_CLEARING);

  const auto& q = parsed<CSTAQueuedEvent>(doc("QueuedEvent", conn("queuedConnection", "43") + dev("queue", "600")));
  EXPECT_EQ(q.getCallID() + " " + party(q, &CSTAQueuedEvent::getQueueDevice).number, "43 600");

  const auto& t = parsed<CSTATransferredEvent>(
      doc("TransferedEvent", conn("primaryOldCall", "47") + conn("secondaryOldCall", "48") +  // the schema's spelling
                                 dev("transferredToDevice", "N&lt;2003&gt;;displayName=Kim")));
  EXPECT_EQ(t.getPrimaryOldCallConnectionCallID() + " " + t.getSecondaryOldCall().callId + " " + t.getRemotePartyName(),
            "47 48 Kim");
  EXPECT_EQ(party(t, &CSTATransferredEvent::getTransferredToDevice), (D{"2003", "Kim"}));

  const auto& i = parsed<CSTACallInformationEvent>(
      doc("CallInformationEvent", conn("connection", "52", "N&lt;2001&gt;;displayName=Desk")));
  EXPECT_EQ(i.getConnectionCallID() + " " + i.getConnectionDeviceID() + " " + i.getConnectionDeviceIDName(),
            "52 2001 Desk");

  const auto& h = parsed<CSTAHookswitchEvent>(
      doc("HookswitchEvent", dev("device", "2001") + "<hookswitchOnHook>true</hookswitchOnHook>"));
  EXPECT_EQ((std::pair{party(h, &CSTAHookswitchEvent::getDevice), h.isOn()}), (std::pair{D{"2001", ""}, true}));

  EXPECT_EQ(parsed<CSTASystemStatusEvent>(doc("SystemStatus", "<systemStatus>overloadImminent</systemStatus>"))
                .getSystemStatus(),
            "overloadImminent");

  const auto& u = parsed<CSTAPrivateEvent>(
      doc("PrivateEvent", "<privateData><private><keyPressed>5</keyPressed></private></privateData>"));
  EXPECT_EQ(u.getEventType(), CSTAPrivateEvent::kPrivateEventUnknown);
  EXPECT_EQ(u.getPrivateData(), "<private><keyPressed>5</keyPressed></private>");

  const auto& p = parsed<CSTAPrivateEvent>(
      doc("PrivateEvent",
          "<privateData><private><callLogEntry><action>delete</action><logTarget>dialledDiverted</logTarget>"
          "<timeFormat>utc</timeFormat><subscriberNumber>0301234</subscriberNumber><dateTime>2026-03-01T10:00:00"
          "</dateTime><name presentation=\"restricted\">Ola</name><deflectNumber presentation=\"none\"/>"
          "</callLogEntry></private></privateData>"));
  ASSERT_EQ(p.getEventType(), CSTAPrivateEvent::kPrivateEventCallLogEntry);
  const L& entry = p.getCallLogEntry();
  EXPECT_EQ((std::vector<int>{entry.action, entry.logTarget, entry.timeFormat}),
            (std::vector<int>{L::ACTION_DELETE, L::LT_DIALLED_DIVERTED, L::TF_UTC}));
  EXPECT_EQ(entry.subscriberNumber, "0301234");
  EXPECT_EQ((std::vector<L::Field>{entry.field(L::FIELD_DATE_TIME), entry.field(L::FIELD_NAME),
                                   entry.field(L::FIELD_DEFLECT_NUMBER), entry.field(L::FIELD_CONNECTED_NAME)}),
            (std::vector<L::Field>{
                {L::PV_SHOWN, "2026-03-01T10:00:00"}, {L::PV_RESTRICTED, "Ola"}, {L::PV_NONE, ""}, {L::PV_NONE, ""}}));
}

TEST(CstaEventParseTest, EditionNamespacesAndOtherDocuments) {
  const std::string body = conn("connection", "9") + dev("callingDevice", "555");
  const std::string ev = "DeliveredEvent";
  const auto yes = CstaParseResult::Event, no = CstaParseResult::Unknown;
  const std::tuple<std::string, std::string, CstaParseResult::Kind> cases[] = {
      {ev + " xmlns=\"http://www.ecma.ch/standards/ecma-323/csta/ed2\"", ev, yes},
      {ev + kEcma + "3\"", ev, yes},
      {ev + kEcma + "6\"", ev, yes},
      {ev, ev, yes},
      {"x:" + ev + " xmlns:x" + kEcma.substr(6) + "4\"", "x:" + ev, yes},
      {ev + " xmlns=\"urn:other:protocol\"", ev, no},
      {ev + kEcma + "7\"", ev, no},
      {"MonitorStartResponse" + kEcma + "3\"", "MonitorStartResponse", no}};
  for (const auto& [open, close, kind] : cases) {
    const std::string xml = "<" + open + ">" + body + "</" + close + ">";
    const CstaParseResult result = parseCstaEvent(xml);
    EXPECT_EQ(result.elementName, close.substr(close.find(':') + 1)) << open;
    ASSERT_EQ(result.kind, kind) << open;
    ASSERT_EQ(result.event != nullptr, kind == CstaParseResult::Event) << open;
    if (kind == yes) {
      const auto& d = parsed<CSTADeliveredEvent>(xml);
      EXPECT_EQ(d.getCallID() + " " + party(d, &CSTADeliveredEvent::getCallingDevice).number, "9 555") << open;
    }
  }
  for (const char* broken : {"<DeliveredEvent><connection></DeliveredEvent>", ""}) {
    const CstaParseResult result = parseCstaEvent(broken);
    EXPECT_EQ(result.kind, CstaParseResult::Malformed) << broken;
    EXPECT_NE(result.error, "") << broken;
  }
}

// Names the handler each event reached.
class HandlerRecorder : public CSTAEventObserverBase {
 public:
  std::vector<std::string> handled;
#define RECORD(Handler, Class) \
  void handleCSTA##Handler(Class*) override { handled.push_back(#Handler); }
  RECORD(ServiceInitiatedEvent, CSTAServiceInitiatedEvent)
  RECORD(BridgedEvent, CSTABridgedEvent)
  RECORD(HeldEvent, CSTAHeldEvent)
  RECORD(RetrievedEvent, CSTARetrievedEvent)
  RECORD(NetworkReachedEvent, CSTANetworkReachedEvent)
  RECORD(ConferenceMembershipEvent, CSTAConferenceMembershipEvent)
  RECORD(ButtonPressEvent, CSTAButtonPressEvent)
  RECORD(ButtonInformationEvent, CSTAButtonInformationEvent)
  RECORD(DisplayUpdatedEvent, CSTADisplayUpdatedEvent)
  RECORD(ServiceCompletionFailureEvent, CSTAServiceCompletionFailureEvent)
  RECORD(SwitchingFunctionDevices, CSTASwitchingFunctionDevicesEvent)
  RECORD(BackInServiceEvent, CSTABackInServiceEvent)
  RECORD(OutOfServiceEvent, CSTAOutOfServiceEvent)
  RECORD(MonitorStopEvent, CSTAMonitorStopEvent)
  RECORD(MessageWaitingEvent, CSTAMessageWaitingEvent)
  RECORD(ForwardingEvent, CSTAForwardingEvent)
  RECORD(DoNotDisturbEvent, CSTADoNotDisturbEvent)
  RECORD(AgentLoggedOnEvent, CSTAAgentLoggedOnEvent)
  RECORD(AgentLoggedOffEvent, CSTAAgentLoggedOffEvent)
  RECORD(AgentReadyEvent, CSTAAgentReadyEvent)
  RECORD(AgentNotReadyEvent, CSTAAgentNotReadyEvent)
  RECORD(AgentWorkingAfterCallEvent, CSTAAgentWorkingAfterCallEvent)
  RECORD(BusyLampFieldEvent, CSTABusyLampFieldEvent)
#undef RECORD
};

// Every event of the observer's handler list that the journal leaves to the empty default
// handler is read and reaches its own handler, so that recordings holding them are replayed.
TEST(CstaEventParseTest, EveryHandlerListEventReachesItsHandler) {
  const std::pair<const char*, const char*> cases[] = {
      {"ServiceInitiatedEvent", "ServiceInitiatedEvent"},
      {"BridgedEvent", "BridgedEvent"},
      {"HeldEvent", "HeldEvent"},
      {"RetrievedEvent", "RetrievedEvent"},
      {"NetworkReachedEvent", "NetworkReachedEvent"},
      {"ConferenceMembershipEvent", "ConferenceMembershipEvent"},
      {"ButtonPressEvent", "ButtonPressEvent"},
      {"ButtonInformationEvent", "ButtonInformationEvent"},
      {"DisplayUpdatedEvent", "DisplayUpdatedEvent"},
      {"ServiceCompletionFailureEvent", "ServiceCompletionFailureEvent"},
      {"SwitchingFunctionDevices", "SwitchingFunctionDevices"},
      {"BackInServiceEvent", "BackInServiceEvent"},
      {"OutOfServiceEvent", "OutOfServiceEvent"},
      {"MonitorStop", "MonitorStopEvent"},
      {"MessageWaitingEvent", "MessageWaitingEvent"},
      {"ForwardingEvent", "ForwardingEvent"},
      {"DoNotDisturbEvent", "DoNotDisturbEvent"},
      {"AgentLoggedOnEvent", "AgentLoggedOnEvent"},
      {"AgentLoggedOffEvent", "AgentLoggedOffEvent"},
      {"AgentReadyEvent", "AgentReadyEvent"},
      {"AgentNotReadyEvent", "AgentNotReadyEvent"},
      {"AgentWorkingAfterCallEvent", "AgentWorkingAfterCallEvent"},
      {"BusyLampFieldEvent", "BusyLampFieldEvent"},
  };
  for (const auto& [element, handler] : cases) {
    const CstaParseResult result = parseCstaEvent(doc(element, conn("connection", "61", "2001")));
    ASSERT_EQ(result.kind, CstaParseResult::Event) << element;
    EXPECT_EQ(result.monitorCrossRefId, "77") << element;
    HandlerRecorder recorder;
    result.event->dispatch(recorder);
    EXPECT_EQ(recorder.handled, std::vector<std::string>{handler}) << element;
  }
}

// Party texts from the switch are kept as well-formed UTF-8 of at most kMaxPartyTextBytes; a cut
// is logged with what was cut.
TEST(CstaEventParseTest, PartyTextsAreRepairedAndCut) {
  LogCapture log;
  const std::string R = fw::utf8::kReplacement;
  std::string longName;
  for (int i = 0; i < 300; ++i) longName += "\xC3\xA9";  // é, two bytes
  const std::string longNumber(1000, '7');
  using C = CSTADeliveredEvent;
  const C& d = parsed<C>(
      doc("DeliveredEvent", conn("connection", "7\xFF", "2001") + dev("alertingDevice", "2001;displayName=M%FCller") +
                                dev("callingDevice", ("N&lt;" + longNumber + "&gt;;displayName=" + longName).c_str()) +
                                dev("calledDevice", "\"Bo &#1;Ek\xE2\x82\" &lt;sip:2002@pbx&gt;") +
                                "<extensions><privateData><private><callStatus>Missed\xC0\xAF</callStatus></private>"
                                "</privateData></extensions>"));
  EXPECT_EQ(d.getCallID(), "7" + R);
  EXPECT_EQ(party(d, &C::getAlertingDevice), (CSTADeviceID{"2001", "M" + R + "ller"}));
  EXPECT_EQ(party(d, &C::getCalledDevice), (CSTADeviceID{"2002", "Bo " + R + "Ek" + R}));
  EXPECT_EQ(d.getPrivateData(), "Missed" + R + R);
  const CSTADeviceID calling = party(d, &C::getCallingDevice);
  EXPECT_EQ(calling.number, longNumber.substr(0, kMaxPartyTextBytes));
  EXPECT_EQ(calling.name, longName.substr(0, kMaxPartyTextBytes));
  EXPECT_TRUE(log.contains("DeliveredEvent: a party text of 1000 bytes cut to 256", fw::kLogNotable));
  EXPECT_TRUE(log.contains("DeliveredEvent: a party text of 600 bytes cut to 256", fw::kLogNotable));

  const auto& p = parsed<CSTAPrivateEvent>(doc(
      "PrivateEvent",
      "<privateData><private><callLogEntry><action>add</action><logTarget>missed</logTarget>"
      "<subscriberNumber>" +
          longNumber + "</subscriberNumber><name>" + longName + "\xFF</name></callLogEntry></private></privateData>"));
  const CallLogEntryEvent& entry = p.getCallLogEntry();
  EXPECT_EQ(entry.subscriberNumber.size(), kMaxPartyTextBytes);
  EXPECT_EQ(entry.field(CallLogEntryEvent::FIELD_NAME).text, longName.substr(0, kMaxPartyTextBytes));
}

}  // namespace
