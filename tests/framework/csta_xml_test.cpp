#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "framework/CstaEvents.h"
#include "framework/CstaXml.h"

using namespace csta_xml;

namespace {

const std::string kEd3 = "http://www.ecma-international.org/standards/ecma-323/csta/ed3";

std::string header(std::vector<unsigned char> bytes) { return std::string(bytes.begin(), bytes.end()); }

std::vector<CstaFrame> decodeInChunks(const std::string& stream, std::size_t chunk) {
  CstaFrameDecoder decoder;
  std::vector<CstaFrame> frames;
  CstaFrame frame;
  for (std::size_t pos = 0; pos < stream.size(); pos += chunk) {
    decoder.feed(stream.data() + pos, std::min(chunk, stream.size() - pos));
    while (decoder.next(frame)) frames.push_back(frame);
  }
  EXPECT_EQ(decoder.buffered(), 0u);
  return frames;
}

TEST(CstaFrameTest, EncodesLengthAndInvokeIdHeader) {
  EXPECT_EQ(encodeFrame(9999, "<a/>"), header({0, 0, 0, 12, '9', '9', '9', '9'}) + "<a/>");
  EXPECT_EQ(encodeFrame(7, ""), header({0, 0, 0, 8, '0', '0', '0', '7'}));
  const std::string big(70000, 'x');  // above 64 KiB the length needs the upper bytes
  EXPECT_EQ(encodeFrame(123, big).substr(0, 8), header({0, 1, 0x11, 0x78, '0', '1', '2', '3'}));
  EXPECT_THROW(encodeFrame(10000, "<a/>"), std::invalid_argument);
  EXPECT_THROW(encodeFrame(-1, "<a/>"), std::invalid_argument);
}

TEST(CstaFrameTest, DecodesFramesSplitAtAnyPoint) {
  const std::string stream = encodeFrame(1, "<MonitorStart/>") + encodeFrame(9999, std::string(300, 'e')) +
                             encodeFrame(42, "<SystemStatusResponse/>");
  for (std::size_t chunk : {1u, 2u, 3u, 7u, 9u, 64u, 1000u}) {
    const auto frames = decodeInChunks(stream, chunk);
    ASSERT_EQ(frames.size(), 3u) << "chunk " << chunk;
    EXPECT_EQ(frames[0].invokeId, 1);
    EXPECT_EQ(frames[0].xml, "<MonitorStart/>");
    EXPECT_EQ(frames[1].invokeId, 9999);
    EXPECT_EQ(frames[1].xml, std::string(300, 'e'));
    EXPECT_EQ(frames[2].invokeId, 42);
    EXPECT_EQ(frames[2].xml, "<SystemStatusResponse/>");
  }
}

TEST(CstaFrameTest, RefusesBadHeadersAndStaysFailed) {
  struct Case {
    std::string bytes;
    std::size_t limit;
    std::string message;
  };
  const Case cases[] = {
      {header({0, 0, 0x10, 0x01, '9', '9', '9', '9'}), 4096, "exceeds the limit of 4096"},
      {header({0x7F, 0, 0, 0, '9', '9', '9', '9'}), kDefaultMaxFrameSize, "exceeds the limit"},
      {header({0, 0, 0, 7, '9', '9', '9', '9'}), 4096, "shorter than the 8-byte header"},
      {header({0, 0, 0, 12, '9', 'x', '9', '9'}) + "<a/>", 4096, "not four decimal digits"},
  };
  for (const Case& c : cases) {
    CstaFrameDecoder decoder(c.limit);
    decoder.feed(c.bytes.data(), c.bytes.size());
    CstaFrame frame;
    try {
      decoder.next(frame);
      ADD_FAILURE() << "accepted " << c.message;
    } catch (const CstaFramingError& e) {
      EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
    }
    const std::string good = encodeFrame(1, "<a/>");
    decoder.feed(good.data(), good.size());
    EXPECT_THROW(decoder.next(frame), CstaFramingError);
  }
}

TEST(CstaValuesTest, DeviceIdentifierForms) {
  struct Case {
    const char* text;
    const char* number;
    const char* name;
  };
  const Case cases[] = {
      {"4711", "4711", ""},
      {" 4711 ", "4711", ""},
      {"tel:+498912345;phone-context=pbx", "+498912345", ""},
      {"sip:2001@pbx.example.com;user=phone", "2001", ""},
      {"\"Anna Berg\" <sip:2002@pbx.example.com>", "2002", "Anna Berg"},
      {"N<302118840100>;noa=nk", "302118840100", ""},
      {"N<7868772298>Line71001;displayNumber=7868772298", "7868772298", ""},
      {"N<2003>;displayNumber=2003;displayName=Jan%20Ek", "2003", "Jan Ek"},
      {"2004;displayName=\"Eva Lind\"", "2004", "Eva Lind"},
      {"", "", ""},
  };
  for (const Case& c : cases) {
    const CSTADeviceID device = parseDeviceIdentifier(c.text);
    EXPECT_EQ(device.number, c.number) << c.text;
    EXPECT_EQ(device.name, c.name) << c.text;
  }
}

TEST(CstaValuesTest, CausesAndLocalStates) {
  const std::pair<const char*, int> causes[] = {
      {"activeParticipation", 1}, {"callForwardNoAnswer", 8}, {"callForward", 9},   {"voiceUnitInitiator", 34},
      {"dTMFDigitDetected", 39},  {"normalClearing", 48},     {"aCDBusy", 57},     {"normal", 78},
      {"unauthorisedBearerService", 87}, {"NORMALCLEARING", 48}, {"0", 0},          {"112", 112},
      {"badURI", EC_NONE},        {"", EC_NONE},              {"-3", EC_NONE}};
  for (const auto& [text, number] : causes) EXPECT_EQ(parseEventCause(text), number) << text;
  const std::pair<const char*, int> states[] = {{"null", 0},   {"initiated", 1}, {"alerting", 2}, {"connected", 3},
                                                {"hold", 4},   {"queued", 5},    {"fail", 6},     {"3", 3},
                                                {"7", -1},     {"ringing", -1}};
  for (const auto& [text, state] : states) EXPECT_EQ(parseLocalConnectionState(text), state) << text;
}

// Device getters give number and name through out-parameters; this gives them as one value.
template <class E, class Part>
CSTADeviceID party(const E& event, void (Part::*getter)(std::string&, std::string&) const) {
  CSTADeviceID device;
  (event.*getter)(device.number, device.name);
  return device;
}

std::string doc(const std::string& name, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><" + name + " xmlns=\"" + kEd3 + "\"><monitorCrossRefID>77" +
         "</monitorCrossRefID>" + body + "</" + name + ">";
}

const std::string kVendorData =
    "<extensions><privateData><private xmlns:v=\"urn:vendor:csta\"><v:lineKey>3</v:lineKey>"
    "<callStatus>MissedCall</callStatus></private></privateData></extensions>";

struct EventCase {
  const char* label;
  std::string xml;
  std::function<void(const CSTAEvent&)> check;
};

template <class E>
const E& as(const CSTAEvent& event) {
  const E* typed = dynamic_cast<const E*>(&event);
  if (!typed) throw std::runtime_error(std::string("wrong event class ") + event.eventName());
  return *typed;
}

TEST(CstaEventParseTest, ReadsEventsIntoTheirObjects) {
  using D = CSTADeviceID;
  const EventCase cases[] = {
      {"delivered with vendor data and an unknown element",
       doc("DeliveredEvent",
           "<connection><callID>FF000100000000002D65C85C1C750000</callID><deviceID>N&lt;2001&gt;</deviceID>"
           "</connection><alertingDevice><deviceIdentifier>N&lt;2001&gt;;displayName=Desk</deviceIdentifier>"
           "</alertingDevice><callingDevice><deviceIdentifier>N&lt;0301234&gt;;displayName=Ola%20Nord"
           "</deviceIdentifier></callingDevice><calledDevice><deviceIdentifier>2001</deviceIdentifier>"
           "</calledDevice><lastRedirectionDevice><numberDialed>2050</numberDialed></lastRedirectionDevice>"
           "<futureElement><x>1</x></futureElement><localConnectionInfo>alerting</localConnectionInfo>"
           "<cause>redirected</cause>" + kVendorData),
       [](const CSTAEvent& e) {
         const auto& d = as<CSTADeliveredEvent>(e);
         EXPECT_EQ(d.getCallID(), "FF000100000000002D65C85C1C750000");
         EXPECT_EQ(d.getConnection().device, (D{"2001", ""}));
         EXPECT_EQ(party(d, &CSTADeliveredEvent::getAlertingDevice), (D{"2001", "Desk"}));
         EXPECT_EQ(party(d, &CSTADeliveredEvent::getCallingDevice), (D{"0301234", "Ola Nord"}));
         EXPECT_EQ(party(d, &CSTADeliveredEvent::getCalledDevice), (D{"2001", ""}));
         EXPECT_EQ(party(d, &CSTADeliveredEvent::getLastRedirectionDevice), (D{"2050", ""}));
         EXPECT_EQ(d.getLocalConnectionInfo(), CSTA_LCS_Alerting);
         EXPECT_EQ(d.getCause(), EC_REDIRECTED);
         EXPECT_EQ(d.getPrivateData(), "MissedCall");
       }},
      {"originated, connection device from the calling device",
       doc("OriginatedEvent",
           "<originatedConnection><callID>41</callID></originatedConnection><callingDevice><deviceIdentifier>"
           "sip:2001@pbx</deviceIdentifier></callingDevice><calledDevice><deviceIdentifier>tel:+4930123"
           "</deviceIdentifier></calledDevice><localConnectionInfo>connected</localConnectionInfo><cause>newCall</cause>"),
       [](const CSTAEvent& e) {
         const auto& o = as<CSTAOriginatedEvent>(e);
         EXPECT_EQ(o.getOriginatedConnectionCallID(), "41");
         EXPECT_EQ(o.getConnection().device.number, "2001");
         EXPECT_EQ(party(o, &CSTAOriginatedEvent::getCalledDevice), (D{"+4930123", ""}));
         EXPECT_EQ(o.getLocalConnectionInfo(), CSTA_LCS_Connected);
         EXPECT_EQ(o.getCause(), EC_NEW_CALL);
         EXPECT_EQ(o.getPrivateData(), "");
       }},
      {"established from a caller not known, cause as a number",
       doc("EstablishedEvent",
           "<establishedConnection><callID>42</callID><deviceID>2001</deviceID></establishedConnection>"
           "<answeringDevice><deviceIdentifier>2001</deviceIdentifier></answeringDevice><callingDevice><notKnown/>"
           "</callingDevice><calledDevice><restricted/></calledDevice><lastRedirectionDevice><notRequired/>"
           "</lastRedirectionDevice><localConnectionInfo>connected</localConnectionInfo><cause>48</cause>"),
       [](const CSTAEvent& e) {
         const auto& s = as<CSTAEstablishedEvent>(e);
         EXPECT_EQ(party(s, &CSTAEstablishedEvent::getCallingDevice),
                   (D{communicationsServiceTexts::noNumberProvided, ""}));
         EXPECT_EQ(party(s, &CSTAEstablishedEvent::getCalledDevice), (D{}));
         EXPECT_EQ(party(s, &CSTAEstablishedEvent::getLastRedirectionDevice), (D{}));
         EXPECT_EQ(s.getCause(), EC_NORMAL_CLEARING);
       }},
      {"queued",
       doc("QueuedEvent", "<queuedConnection><callID>43</callID><deviceID>600</deviceID></queuedConnection><queue>"
                          "<deviceIdentifier>600</deviceIdentifier></queue><callingDevice><deviceIdentifier>555"
                          "</deviceIdentifier></callingDevice><numberQueued>2</numberQueued><cause>enteringDistribution</cause>"),
       [](const CSTAEvent& e) {
         const auto& q = as<CSTAQueuedEvent>(e);
         EXPECT_EQ(q.getCallID(), "43");
         EXPECT_EQ(party(q, &CSTAQueuedEvent::getQueueDevice), (D{"600", ""}));
         EXPECT_EQ(q.getCause(), EC_ENTERING_DISTRIBUTION);
       }},
      {"diverted",
       doc("DivertedEvent", "<connection><callID>44</callID></connection><divertingDevice><deviceIdentifier>2001"
                            "</deviceIdentifier></divertingDevice><newDestination><deviceIdentifier>2002"
                            "</deviceIdentifier></newDestination><localConnectionInfo>null</localConnectionInfo>"
                            "<cause>callForwardNoAnswer</cause>"),
       [](const CSTAEvent& e) {
         const auto& v = as<CSTADivertedEvent>(e);
         EXPECT_EQ(v.getDivertedConnectionCallID(), "44");
         EXPECT_EQ(v.getConnection().device.number, "2001");
         EXPECT_EQ(party(v, &CSTADivertedEvent::getNewDestinationDevice), (D{"2002", ""}));
         EXPECT_EQ(v.getLocalConnectionInfo(), CSTA_LCS_Null);
         EXPECT_EQ(v.getCause(), EC_CALL_FORWARD_NO_ANSWER);
       }},
      {"failed",
       doc("FailedEvent", "<failedConnection><callID>45</callID><deviceID>2002</deviceID></failedConnection>"
                          "<localConnectionInfo>fail</localConnectionInfo><cause>busy</cause>"),
       [](const CSTAEvent& e) {
         const auto& f = as<CSTAFailedEvent>(e);
         EXPECT_EQ(f.getFailedConnectionCallID(), "45");
         EXPECT_EQ(f.getLocalConnectionInfo(), CSTA_LCS_Fail);
         EXPECT_EQ(f.getCause(), EC_BUSY);
       }},
      {"connection cleared",
       doc("ConnectionClearedEvent", "<droppedConnection><callID>46</callID><deviceID>2001</deviceID>"
                                     "</droppedConnection><releasingDevice><deviceIdentifier>2001</deviceIdentifier>"
                                     "</releasingDevice><localConnectionInfo>null</localConnectionInfo>"
                                     "<cause>durationExceeded</cause>"),
       [](const CSTAEvent& e) {
         const auto& c = as<CSTAConnectionClearedEvent>(e);
         EXPECT_EQ(c.getDroppedConnectionCallID(), "46");
         EXPECT_EQ(c.getDroppedConnectionDeviceID(), "2001");
         EXPECT_EQ(c.getCause(), EC_DURATION_EXCEEDED);
       }},
      {"transferred, schema spelling",
       doc("TransferedEvent", "<primaryOldCall><callID>47</callID><deviceID>2001</deviceID></primaryOldCall>"
                              "<secondaryOldCall><callID>48</callID><deviceID>2001</deviceID></secondaryOldCall>"
                              "<transferringDevice><deviceIdentifier>2001</deviceIdentifier></transferringDevice>"
                              "<transferredToDevice><deviceIdentifier>N&lt;2003&gt;;displayName=Kim</deviceIdentifier>"
                              "</transferredToDevice><transferredConnections/><cause>transfer</cause>"),
       [](const CSTAEvent& e) {
         const auto& t = as<CSTATransferredEvent>(e);
         EXPECT_EQ(t.getPrimaryOldCallConnectionCallID(), "47");
         EXPECT_EQ(t.getSecondaryOldCall().callId, "48");
         EXPECT_EQ(party(t, &CSTATransferredEvent::getTransferredToDevice), (D{"2003", "Kim"}));
         EXPECT_EQ(t.getRemotePartyName(), "Kim");
         EXPECT_EQ(t.getCause(), EC_TRANSFER);
       }},
      {"conferenced",
       doc("ConferencedEvent",
           "<primaryOldCall><callID>49</callID><deviceID>2001</deviceID></primaryOldCall><secondaryOldCall><callID>50"
           "</callID><deviceID>2001</deviceID></secondaryOldCall><conferenceConnections><connectionListItem>"
           "<newConnection><callID>51</callID><deviceID>2001</deviceID></newConnection><oldConnection><callID>49"
           "</callID><deviceID>2001</deviceID></oldConnection><endpoint><deviceID>2001</deviceID></endpoint>"
           "</connectionListItem><connectionListItem><newConnection><callID>51</callID><deviceID>2004</deviceID>"
           "</newConnection><oldConnection><callID>50</callID><deviceID>2004</deviceID></oldConnection>"
           "</connectionListItem></conferenceConnections><localConnectionInfo>connected</localConnectionInfo>"
           "<cause>conference</cause>"),
       [](const CSTAEvent& e) {
         const auto& c = as<CSTAConferencedEvent>(e);
         EXPECT_EQ(c.getPrimaryoldcallCallID(), "49");
         EXPECT_EQ(c.getSecondaryoldcallCallID(), "50");
         ASSERT_EQ(c.getConferenceConnections().size(), 2u);
         EXPECT_EQ(c.getConferenceConnections()[1].oldConnection, (CSTAConnectionID{"50", {"2004", ""}}));
         EXPECT_EQ(c.getConferenceCallID(), "51");
         EXPECT_EQ(c.getCause(), EC_CONFERENCE);
       }},
      {"call information",
       doc("CallInformationEvent", "<connection><callID>52</callID><deviceID>N&lt;2001&gt;;displayName=Desk</deviceID>"
                                   "</connection><device><deviceIdentifier>2001</deviceIdentifier></device>"
                                   "<accountInfo>77</accountInfo>"),
       [](const CSTAEvent& e) {
         const auto& i = as<CSTACallInformationEvent>(e);
         EXPECT_EQ(i.getConnectionCallID(), "52");
         EXPECT_EQ(i.getConnectionDeviceID(), "2001");
         EXPECT_EQ(i.getConnectionDeviceIDName(), "Desk");
       }},
      {"hookswitch",
       doc("HookswitchEvent", "<device><deviceIdentifier>2001</deviceIdentifier></device><hookswitch>0</hookswitch>"
                              "<hookswitchOnHook>true</hookswitchOnHook>"),
       [](const CSTAEvent& e) {
         const auto& h = as<CSTAHookswitchEvent>(e);
         EXPECT_EQ(party(h, &CSTAHookswitchEvent::getDevice), (D{"2001", ""}));
         EXPECT_TRUE(h.isOn());
       }},
      {"callback cancelled",
       doc("CallBackEvent", "<originatingDevice><deviceIdentifier>2001</deviceIdentifier></originatingDevice>"
                            "<targetDevice><deviceIdentifier>N&lt;2005&gt;;displayName=Bo</deviceIdentifier>"
                            "</targetDevice><callBackSetCanceled>true</callBackSetCanceled>"),
       [](const CSTAEvent& e) {
         const auto& b = as<CSTACallBackEvent>(e);
         EXPECT_EQ(party(b, &CSTACallBackEvent::getSubjectDeviceID), (D{"2005", "Bo"}));
         EXPECT_EQ(b.getDeviceID(), "2001");
         EXPECT_EQ(b.getCallBackState(), CSTACallBackEvent::CB_STATE_CANCELLED);
       }},
      {"system status request",
       doc("SystemStatus", "<systemStatus>overloadImminent</systemStatus>"),
       [](const CSTAEvent& e) {
         EXPECT_EQ(as<CSTASystemStatusEvent>(e).getSystemStatus(), communicationsServiceTexts::systemState_overloadImminent);
       }},
      {"private event with a call-log entry",
       doc("PrivateEvent",
           "<privateData><private><callLogEntry><action>delete</action><logTarget>dialledDiverted</logTarget>"
           "<timeFormat>utc</timeFormat><subscriberNumber>0301234</subscriberNumber><dateTime>2026-03-01T10:00:00"
           "</dateTime><name presentation=\"restricted\">Ola</name><deflectNumber presentation=\"none\"/>"
           "</callLogEntry></private></privateData>"),
       [](const CSTAEvent& e) {
         const auto& p = as<CSTAPrivateEvent>(e);
         ASSERT_EQ(p.getEventType(), CSTAPrivateEvent::kPrivateEventCallLogEntry);
         const CallLogEntryEvent& entry = p.getCallLogEntry();
         EXPECT_EQ(entry.action, CallLogEntryEvent::ACTION_DELETE);
         EXPECT_EQ(entry.logTarget, CallLogEntryEvent::LT_DIALLED_DIVERTED);
         EXPECT_EQ(entry.timeFormat, CallLogEntryEvent::TF_UTC);
         EXPECT_EQ(entry.subscriberNumber, "0301234");
         using F = CallLogEntryEvent::Field;
         EXPECT_EQ(entry.field(CallLogEntryEvent::FIELD_DATE_TIME), (F{CallLogEntryEvent::PV_SHOWN, "2026-03-01T10:00:00"}));
         EXPECT_EQ(entry.field(CallLogEntryEvent::FIELD_NAME), (F{CallLogEntryEvent::PV_RESTRICTED, "Ola"}));
         EXPECT_EQ(entry.field(CallLogEntryEvent::FIELD_DEFLECT_NUMBER), (F{CallLogEntryEvent::PV_NONE, ""}));
         EXPECT_EQ(entry.field(CallLogEntryEvent::FIELD_CONNECTED_NAME), (F{CallLogEntryEvent::PV_NONE, ""}));
       }},
      {"private event with other vendor data",
       doc("PrivateEvent", "<privateData><private><keyPressed>5</keyPressed></private></privateData>"),
       [](const CSTAEvent& e) {
         const auto& p = as<CSTAPrivateEvent>(e);
         EXPECT_EQ(p.getEventType(), CSTAPrivateEvent::kPrivateEventUnknown);
         EXPECT_EQ(p.getPrivateData(), "<private><keyPressed>5</keyPressed></private>");
       }},
  };
  for (const EventCase& c : cases) {
    SCOPED_TRACE(c.label);
    const CstaParseResult result = parseCstaEvent(c.xml);
    ASSERT_EQ(result.kind, CstaParseResult::Event) << result.error;
    ASSERT_NE(result.event, nullptr);
    c.check(*result.event);
  }
}

TEST(CstaEventParseTest, AcceptsEveryEditionNamespaceOrNone) {
  const std::string body =
      "<monitorCrossRefID>1</monitorCrossRefID><connection><callID>9</callID></connection>"
      "<callingDevice><deviceIdentifier>555</deviceIdentifier></callingDevice><cause>newCall</cause>";
  const std::string ecma = "http://www.ecma-international.org/standards/ecma-323/csta/ed";
  struct Case {
    std::string open;
    std::string close;
    bool accepted;
  };
  const auto plain = [](const std::string& ns, bool accepted) {
    return Case{"<DeliveredEvent" + (ns.empty() ? "" : " xmlns=\"" + ns + "\"") + ">", "</DeliveredEvent>", accepted};
  };
  const Case cases[] = {
      plain("http://www.ecma.ch/standards/ecma-323/csta/ed2", true), plain(ecma + "3", true), plain(ecma + "6", true),
      plain("", true), plain("urn:other:protocol", false), plain(ecma + "7", false),
      {"<csta:DeliveredEvent xmlns:csta=\"" + ecma + "4\">", "</csta:DeliveredEvent>", true},
  };
  for (const Case& c : cases) {
    const CstaParseResult result = parseCstaEvent(c.open + body + c.close);
    EXPECT_EQ(result.elementName, "DeliveredEvent");
    if (!c.accepted) {
      EXPECT_EQ(result.kind, CstaParseResult::Unknown) << c.open;
      continue;
    }
    ASSERT_EQ(result.kind, CstaParseResult::Event) << c.open;
    const auto& delivered = as<CSTADeliveredEvent>(*result.event);
    EXPECT_EQ(delivered.getCallID(), "9") << c.open;
    EXPECT_EQ(party(delivered, &CSTADeliveredEvent::getCallingDevice).number, "555") << c.open;
    EXPECT_EQ(delivered.getCause(), EC_NEW_CALL) << c.open;
  }
}

TEST(CstaEventParseTest, OtherDocumentsAreUnknownOrMalformed) {
  const CstaParseResult held = parseCstaEvent(doc("HeldEvent", "<heldConnection><callID>1</callID></heldConnection>"));
  EXPECT_EQ(held.kind, CstaParseResult::Unknown);
  EXPECT_EQ(held.elementName, "HeldEvent");
  EXPECT_EQ(held.event, nullptr);

  const CstaParseResult broken = parseCstaEvent("<DeliveredEvent><connection></DeliveredEvent>");
  EXPECT_EQ(broken.kind, CstaParseResult::Malformed);
  EXPECT_FALSE(broken.error.empty());
  EXPECT_EQ(parseCstaEvent("").kind, CstaParseResult::Malformed);
}

}  // namespace
