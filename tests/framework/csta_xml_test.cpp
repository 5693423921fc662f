#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "framework/CstaEvents.h"
#include "framework/CstaXml.h"

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
  for (const auto& [bytes, limit, message] : cases) {
    CstaFrameDecoder decoder(limit);
    decoder.feed(bytes.data(), bytes.size());
    CstaFrame frame;
    std::string error = "accepted";
    try {
      decoder.next(frame);
    } catch (const CstaFramingError& e) {
      error = e.what();
    }
    EXPECT_NE(error.find(message), std::string::npos) << error;
    const std::string good = encodeFrame(1, "<a/>");
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

TEST(CstaValuesTest, CausesAndLocalStates) {
  const std::pair<const char*, int> causes[] = {{"activeParticipation", 1},
                                                {"callForwardNoAnswer", 8},
                                                {"callForward", 9},
                                                {"voiceUnitInitiator", 34},
                                                {"dTMFDigitDetected", 39},
                                                {"normalClearing", 48},
                                                {"aCDBusy", 57},
                                                {"normal", 78},
                                                {"unauthorisedBearerService", 87},
                                                {"NORMALCLEARING", 48},
                                                {"0", 0},
                                                {"112", 112},
                                                {"badURI", EC_NONE},
                                                {"", EC_NONE},
                                                {"-3", EC_NONE}};
  for (const auto& [text, number] : causes) EXPECT_EQ(parseEventCause(text), number) << text;
  const std::pair<const char*, int> states[] = {{"null", 0}, {"initiated", 1}, {"alerting", 2}, {"connected", 3},
                                                {"hold", 4}, {"queued", 5},    {"fail", 6},     {"3", 3},
                                                {"7", -1},   {"ringing", -1}};
  for (const auto& [text, state] : states) EXPECT_EQ(parseLocalConnectionState(text), state) << text;
}

// Device getters give number and name through out-parameters; this gives them as one value.
template <class E, class P>
CSTADeviceID party(const E& event, void (P::*getter)(std::string&, std::string&) const) {
  CSTADeviceID device;
  (event.*getter)(device.number, device.name);
  return device;
}
std::string doc(const std::string& name, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><" + name +
         " xmlns=\"http://www.ecma-international.org/standards/"
         "ecma-323/csta/ed3\"><monitorCrossRefID>77</monitorCrossRefID>" +
         body + "</" + name + ">";
}
std::string dev(const char* role, const char* id) {
  return std::string("<") + role + "><deviceIdentifier>" + id + "</deviceIdentifier></" + role + ">";
}
std::string conn(const char* role, const char* callId, const std::string& device = "") {
  return std::string("<") + role + "><callID>" + callId + "</callID>" +
         (device.empty() ? "" : "<deviceID>" + device + "</deviceID>") + "</" + role + ">";
}

// A check of the event as class E, failing when the parser made another class.
template <class E, class F>
std::function<void(const CSTAEvent&)> on(F check) {
  return [check](const CSTAEvent& e) {
    if (const E* typed = dynamic_cast<const E*>(&e)) return check(*typed);
    ADD_FAILURE() << "wrong event class " << e.eventName();
  };
}

// One document per event class; each check pins what that class adds over the others.
TEST(CstaEventParseTest, ReadsEventsIntoTheirObjects) {
  using D = CSTADeviceID;
  using L = CallLogEntryEvent;
  const std::pair<std::string, std::function<void(const CSTAEvent&)>> cases[] = {
      {doc("DeliveredEvent",
           conn("connection", "FF00", "N&lt;2001&gt;") + dev("alertingDevice", "N&lt;2001&gt;;displayName=Desk") +
               dev("callingDevice", "N&lt;0301234&gt;;displayName=Ola%20Nord") + dev("calledDevice", "2001") +
               "<lastRedirectionDevice><numberDialed>2050</numberDialed></lastRedirectionDevice><futureElement><x>1"
               "</x></futureElement><localConnectionInfo>alerting</localConnectionInfo><cause>redirected</cause>"
               "<extensions><privateData><private xmlns:v=\"urn:vendor:csta\"><v:lineKey>3</v:lineKey><callStatus>"
               "MissedCall</callStatus></private></privateData></extensions>"),
       on<CSTADeliveredEvent>([](const CSTADeliveredEvent& d) {
         EXPECT_EQ(d.getCallID(), "FF00");
         using C = CSTADeliveredEvent;
         EXPECT_EQ(
             (std::vector<D>{d.getConnection().device, party(d, &C::getAlertingDevice), party(d, &C::getCallingDevice),
                             party(d, &C::getCalledDevice), party(d, &C::getLastRedirectionDevice)}),
             (std::vector<D>{{"2001", ""}, {"2001", "Desk"}, {"0301234", "Ola Nord"}, {"2001", ""}, {"2050", ""}}));
         EXPECT_EQ((std::vector<int>{d.getLocalConnectionInfo(), d.getCause()}),
                   (std::vector<int>{CSTA_LCS_Alerting, EC_REDIRECTED}));
         EXPECT_EQ(d.getPrivateData(), "MissedCall");
       })},
      {doc("OriginatedEvent", conn("originatedConnection", "41") + dev("callingDevice", "sip:2001@pbx") +
                                  dev("calledDevice", "tel:+4930123")),
       on<CSTAOriginatedEvent>([](const CSTAOriginatedEvent& o) {  // the connection's device is the calling device
         EXPECT_EQ(o.getOriginatedConnectionCallID() + " " + o.getConnection().device.number, "41 2001");
         EXPECT_EQ(party(o, &CSTAOriginatedEvent::getCalledDevice), (D{"+4930123", ""}));
         EXPECT_EQ(o.getPrivateData(), "");
       })},
      {doc("EstablishedEvent",
           conn("establishedConnection", "42") +
               "<callingDevice><notKnown/></callingDevice><calledDevice><restricted/>"
               "</calledDevice><lastRedirectionDevice><notRequired/></lastRedirectionDevice><cause>48</cause>"),
       on<CSTAEstablishedEvent>([](const CSTAEstablishedEvent& s) {
         using C = CSTAEstablishedEvent;
         EXPECT_EQ((std::vector<D>{party(s, &C::getCallingDevice), party(s, &C::getCalledDevice),
                                   party(s, &C::getLastRedirectionDevice)}),
                   (std::vector<D>{{communicationsServiceTexts::noNumberProvided, ""}, {}, {}}));
         EXPECT_EQ(s.getCause(), EC_NORMAL_CLEARING);
       })},
      {doc("QueuedEvent", conn("queuedConnection", "43") + dev("queue", "600")),
       on<CSTAQueuedEvent>([](const CSTAQueuedEvent& q) {
         EXPECT_EQ(q.getCallID() + " " + party(q, &CSTAQueuedEvent::getQueueDevice).number, "43 600");
       })},
      {doc("DivertedEvent", conn("connection", "44") + dev("divertingDevice", "2001") + dev("newDestination", "2002")),
       on<CSTADivertedEvent>([](const CSTADivertedEvent& v) {
         EXPECT_EQ(v.getDivertedConnectionCallID() + " " + v.getConnection().device.number, "44 2001");
         EXPECT_EQ(party(v, &CSTADivertedEvent::getNewDestinationDevice), (D{"2002", ""}));
       })},
      {doc("FailedEvent", conn("failedConnection", "45")),
       on<CSTAFailedEvent>([](const CSTAFailedEvent& f) { EXPECT_EQ(f.getFailedConnectionCallID(), "45"); })},
      {doc("ConnectionClearedEvent", conn("droppedConnection", "46", "2001")),
       on<CSTAConnectionClearedEvent>([](const CSTAConnectionClearedEvent& c) {
         EXPECT_EQ(c.getDroppedConnectionCallID() + " " + c.getDroppedConnectionDeviceID(), "46 2001");
       })},
      {doc("TransferedEvent", conn("primaryOldCall", "47") + conn("secondaryOldCall", "48") +  // the schema's spelling
                                  dev("transferredToDevice", "N&lt;2003&gt;;displayName=Kim")),
       on<CSTATransferredEvent>([](const CSTATransferredEvent& t) {
         EXPECT_EQ(t.getPrimaryOldCallConnectionCallID() + " " + t.getSecondaryOldCall().callId, "47 48");
         EXPECT_EQ(party(t, &CSTATransferredEvent::getTransferredToDevice), (D{"2003", "Kim"}));
         EXPECT_EQ(t.getRemotePartyName(), "Kim");
       })},
      {doc("ConferencedEvent", conn("primaryOldCall", "49") + conn("secondaryOldCall", "50") +
                                   "<conferenceConnections>" + "<connectionListItem>" + conn("newConnection", "51") +
                                   conn("oldConnection", "49") + "</connectionListItem><connectionListItem>" +
                                   conn("newConnection", "51") + conn("oldConnection", "50", "2004") +
                                   "</connectionListItem></conferenceConnections>"),
       on<CSTAConferencedEvent>([](const CSTAConferencedEvent& c) {
         EXPECT_EQ(c.getPrimaryoldcallCallID() + " " + c.getSecondaryoldcallCallID() + " " + c.getConferenceCallID(),
                   "49 50 51");
         ASSERT_EQ(c.getConferenceConnections().size(), 2u);
         EXPECT_EQ(c.getConferenceConnections()[1].oldConnection, (CSTAConnectionID{"50", {"2004", ""}}));
       })},
      {doc("CallInformationEvent", conn("connection", "52", "N&lt;2001&gt;;displayName=Desk")),
       on<CSTACallInformationEvent>([](const CSTACallInformationEvent& i) {
         EXPECT_EQ(i.getConnectionCallID() + " " + i.getConnectionDeviceID() + " " + i.getConnectionDeviceIDName(),
                   "52 2001 Desk");
       })},
      {doc("HookswitchEvent", dev("device", "2001") + "<hookswitchOnHook>true</hookswitchOnHook>"),
       on<CSTAHookswitchEvent>([](const CSTAHookswitchEvent& h) {
         EXPECT_EQ((std::pair{party(h, &CSTAHookswitchEvent::getDevice), h.isOn()}), (std::pair{D{"2001", ""}, true}));
       })},
      {doc("CallBackEvent", dev("originatingDevice", "2001") + dev("targetDevice", "N&lt;2005&gt;;displayName=Bo") +
                                "<callBackSetCanceled>true</callBackSetCanceled>"),
       on<CSTACallBackEvent>([](const CSTACallBackEvent& b) {
         EXPECT_EQ((std::vector<D>{party(b, &CSTACallBackEvent::getSubjectDeviceID), {b.getDeviceID(), ""}}),
                   (std::vector<D>{{"2005", "Bo"}, {"2001", ""}}));
         EXPECT_EQ(b.getCallBackState(), CSTACallBackEvent::CB_STATE_CANCELLED);
       })},
      {doc("SystemStatus", "<systemStatus>overloadImminent</systemStatus>"),
       on<CSTASystemStatusEvent>([](const auto& s) { EXPECT_EQ(s.getSystemStatus(), "overloadImminent"); })},
      {doc("PrivateEvent",
           "<privateData><private><callLogEntry><action>delete</action><logTarget>dialledDiverted</logTarget>"
           "<timeFormat>utc</timeFormat><subscriberNumber>0301234</subscriberNumber><dateTime>2026-03-01T10:00:00"
           "</dateTime><name presentation=\"restricted\">Ola</name><deflectNumber presentation=\"none\"/>"
           "</callLogEntry></private></privateData>"),
       on<CSTAPrivateEvent>([](const CSTAPrivateEvent& p) {
         ASSERT_EQ(p.getEventType(), CSTAPrivateEvent::kPrivateEventCallLogEntry);
         const L& entry = p.getCallLogEntry();
         EXPECT_EQ((std::vector<int>{entry.action, entry.logTarget, entry.timeFormat}),
                   (std::vector<int>{L::ACTION_DELETE, L::LT_DIALLED_DIVERTED, L::TF_UTC}));
         EXPECT_EQ(entry.subscriberNumber, "0301234");
         EXPECT_EQ(
             (std::vector<L::Field>{entry.field(L::FIELD_DATE_TIME), entry.field(L::FIELD_NAME),
                                    entry.field(L::FIELD_DEFLECT_NUMBER), entry.field(L::FIELD_CONNECTED_NAME)}),
             (std::vector<L::Field>{
                 {L::PV_SHOWN, "2026-03-01T10:00:00"}, {L::PV_RESTRICTED, "Ola"}, {L::PV_NONE, ""}, {L::PV_NONE, ""}}));
       })},
      {doc("PrivateEvent", "<privateData><private><keyPressed>5</keyPressed></private></privateData>"),
       on<CSTAPrivateEvent>([](const CSTAPrivateEvent& p) {
         EXPECT_EQ(p.getEventType(), CSTAPrivateEvent::kPrivateEventUnknown);
         EXPECT_EQ(p.getPrivateData(), "<private><keyPressed>5</keyPressed></private>");
       })},
  };
  for (const auto& [xml, check] : cases) {
    SCOPED_TRACE(xml.substr(xml.find("?><") + 3, 24));
    const CstaParseResult result = parseCstaEvent(xml);
    ASSERT_TRUE(result.kind == CstaParseResult::Event && result.event) << result.error;
    check(*result.event);
  }
}

TEST(CstaEventParseTest, EditionNamespacesAndOtherDocuments) {
  const std::string body = conn("connection", "9") + dev("callingDevice", "555");
  const std::string ecma = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed";
  const std::string ev = "DeliveredEvent";
  const auto yes = CstaParseResult::Event, no = CstaParseResult::Unknown;
  const std::tuple<std::string, std::string, CstaParseResult::Kind> cases[] = {
      {ev + " xmlns=\"http://www.ecma.ch/standards/ecma-323/csta/ed2\"", ev, yes},
      {ev + ecma + "3\"", ev, yes},
      {ev + ecma + "6\"", ev, yes},
      {ev, ev, yes},
      {"x:" + ev + " xmlns:x" + ecma.substr(6) + "4\"", "x:" + ev, yes},
      {ev + " xmlns=\"urn:other:protocol\"", ev, no},
      {ev + ecma + "7\"", ev, no},
      {"HeldEvent" + ecma + "3\"", "HeldEvent", no}};
  for (const auto& [open, close, kind] : cases) {
    const CstaParseResult result = parseCstaEvent("<" + open + ">" + body + "</" + close + ">");
    EXPECT_EQ(result.elementName, close.substr(close.find(':') + 1)) << open;
    ASSERT_EQ(result.kind, kind) << open;
    ASSERT_EQ(result.event != nullptr, kind == CstaParseResult::Event) << open;
    if (result.event)
      on<CSTADeliveredEvent>([&open = open](const CSTADeliveredEvent& d) {
        EXPECT_EQ(d.getCallID() + " " + party(d, &CSTADeliveredEvent::getCallingDevice).number, "9 555") << open;
      })(*result.event);
  }
  for (const char* broken : {"<DeliveredEvent><connection></DeliveredEvent>", ""}) {
    const CstaParseResult result = parseCstaEvent(broken);
    EXPECT_TRUE(result.kind == CstaParseResult::Malformed && !result.error.empty()) << broken;
  }
}

}  // namespace
