#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "Printers.h"
#include "SwitchSimulator.h"
#include "csta_link/CstaLinkService.h"
#include "csta_link/CstaXml.h"
#include "framework/CstaEvents.h"
#include "framework/CstaRequests.h"

namespace {

constexpr int kWaitMs = 10000;  // generous: only a fault makes a wait run out

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
  while (!condition() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return condition();
}

// A module's sink: records what it was given, on which thread.
class Sink : public Service, public CSTAEventIfc {
 public:
  void deliverEvent(CSTAEvent* event) override {
    std::string seen = event->eventName();
    if (auto* status = dynamic_cast<CSTASystemStatusEvent*>(event)) seen = "status " + status->getSystemStatus();
    if (auto* delivered = dynamic_cast<CSTADeliveredEvent*>(event)) {
      std::string number, name;
      delivered->getCallingDevice(number, name);
      seen =
          "delivered " + delivered->getCallID() + " from " + number + " cause " + std::to_string(delivered->getCause());
    }
    std::lock_guard<std::mutex> guard(m_mutex);
    m_seen.push_back(seen);
    m_thread = std::this_thread::get_id();
    m_cv.notify_all();
  }
  bool waitFor(const std::string& text) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, std::chrono::milliseconds(kWaitMs),
                         [&] { return std::find(m_seen.begin(), m_seen.end(), text) != m_seen.end(); });
  }
  std::vector<std::string> seen() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_seen;
  }
  std::thread::id thread() {  // of the last delivery
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_thread;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  std::vector<std::string> m_seen;
  std::thread::id m_thread;
};

std::string delivered(const std::string& callId, const std::string& crossRefId = "") {
  return "<DeliveredEvent xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed3\"><monitorCrossRefID>" +
         crossRefId + "</monitorCrossRefID><connection><callID>" + callId +
         "</callID></connection><alertingDevice><deviceIdentifier>3012</deviceIdentifier></alertingDevice>"
         "<callingDevice><deviceIdentifier>N&lt;302118840100&gt;;noa=nk</deviceIdentifier></callingDevice>"
         "<calledDevice><deviceIdentifier>3012</deviceIdentifier></calledDevice><localConnectionInfo>alerting"
         "</localConnectionInfo><cause>newCall</cause><extensions><privateData><private xmlns=\"urn:vendor\">"
         "<lineKey>2</lineKey></private></privateData></extensions></DeliveredEvent>";
}

std::vector<std::string> seenDelivered(const std::string& callId) {
  return {"delivered " + callId + " from 302118840100 cause 22"};
}

std::string code(int responseCode) { return "code " + std::to_string(responseCode); }

void expectParts(const std::string& xml, std::initializer_list<const char*> parts) {
  for (const char* part : parts) EXPECT_NE(xml.find(part), std::string::npos) << part << " in " << xml;
}

// A link to a switch simulator; options are set before start().
class CstaLinkTest : public ::testing::Test {
 protected:
  CstaLinkTest() {
    options.monitoredDevice = "3012";
    options.reconnectInitialMs = 20;
    options.reconnectMaxMs = 200;
  }
  void start() {
    sim = std::make_unique<SwitchSimulator>(simOptions);
    options.port = sim->port();
    link = std::make_unique<fw::CstaLinkService>(options);
    link->start();
  }
  // What became of a request: "ok", "error" (an error response), "no response", or the link's code.
  template <class Request>
  std::string send(Request& request) {
    link->sendRequest(request);
    if (request.getResponseCode() != 0) return code(request.getResponseCode());
    if (!request.getResponse()) return "no response";
    return request.getResponse()->isError() ? "error" : "ok";
  }
  // Starts a monitor of the phone's line for `to`: the cross-reference id, or what send() gave.
  std::string startMonitor(Sink& to, const CSTAMonitorFilter* filter = nullptr) {
    CSTAMonitorStartRequest request;
    request.setSourceService(&to);
    request.setCSTAEventIfc(&to);
    request.setDeviceObject("localDeviceID");
    if (filter) request.setRequestedMonitorFilter(*filter);
    const std::string outcome = send(request);
    auto* response = dynamic_cast<CSTAMonitorStartResponse*>(request.getResponse());
    return outcome == "ok" && response ? response->GetMonitorCrossRefID() : outcome;
  }
  std::string registerSink() {
    CSTASystemStatusRequest request;
    request.setSourceService(&sink);
    return send(request);
  }
  std::string stopMonitor(const std::string& id) {
    CSTAMonitorStopRequest request;
    request.setMonitorCrossRefID(id);
    return send(request);
  }
  std::string xml(const std::string& request, std::size_t index = 0) { return sim->requests(request).at(index).xml; }

  LogCapture log;
  Sink sink, second;  // sinks outlive the link, which delivers what is queued when it stops
  SwitchSimulator::Options simOptions;
  fw::CstaLinkOptions options;
  std::unique_ptr<SwitchSimulator> sim;
  std::unique_ptr<fw::CstaLinkService> link;
};

// The switch's status request that opens the session is answered under its id; a module's
// registration for the system status goes out as a SystemRegister.
TEST_F(CstaLinkTest, TheSessionOpensWithTheStatusAnswerAndTheRegistration) {
  start();
  ASSERT_TRUE(sim->waitForRequest("SystemStatusResponse", kWaitMs));
  EXPECT_EQ(4711, sim->requests("SystemStatusResponse")[0].invokeId);
  EXPECT_EQ("ok", registerSink());
  expectParts(xml("SystemRegister"), {"<systemStatus>true</systemStatus>"});
}

TEST_F(CstaLinkTest, MonitorRequestsCarryTheirFilters) {
  start();
  CSTAMonitorFilter filter;  // as the journal asks: call control without held calls, call-log entries
  filter.setCallControlFilter(false);
  filter.setHeldFilter(true);
  filter.setVendorSpecificFilter(true);
  filter.setCallLogEntryFilter(false);
  filter.setSystemStatusFilter(false);
  EXPECT_EQ("100", startMonitor(sink, &filter));
  expectParts(xml("MonitorStart"),
              {"<monitorObject><deviceObject>3012</deviceObject></monitorObject>",
               "<callcontrol><callCleared>false</callCleared>", "<held>true</held>", "<delivered>false</delivered>",
               "<private>false</private>", "xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\""});
  EXPECT_EQ(std::string::npos, xml("MonitorStart").find("callAssociated"));

  CSTAChangeMonitorFilterRequest change;
  change.setCSTAEventIfc(&sink);
  change.setDeviceObject("localDeviceID");
  CSTAMonitorFilter changed;
  changed.setLogicalDeviceFilter(true);
  changed.setFS_DNDFilter(false);
  change.setRequestedFilterList(changed);
  EXPECT_EQ("ok", send(change));
  expectParts(xml("ChangeMonitorFilter"),
              {"<monitorCrossRefID>100</monitorCrossRefID><requestedFilterList><logicalDeviceFeature>",
               "<doNotDisturb>false</doNotDisturb><forwarding>true</forwarding>"});
}

// The escape's call-log entry reads back as the switch's own call-log event form.
TEST_F(CstaLinkTest, AnEscapesCallLogEntryReadsBackAsTheSwitchsCallLogEvent) {
  start();
  const std::string name = "Åsa <Nord>";
  CSTAEscapeRequest escape;
  escape.setCallLogEntry(CallLogEntryRequest(
      CallLogEntryEvent::ACTION_DELETE, CallLogEntryEvent::LT_MISSED, CallLogEntryEvent::TF_UTC, "0301234",
      CallLogEntryEvent::PV_SHOWN, "2026-03-01T10:00:00", CallLogEntryEvent::PV_RESTRICTED, &name,
      CallLogEntryEvent::PV_NONE, nullptr, CallLogEntryEvent::PV_NONE, nullptr, CallLogEntryEvent::PV_SHOWN, &name));
  EXPECT_EQ("ok", send(escape));
  std::string asEvent = xml("Escape");
  asEvent.replace(asEvent.find("<Escape"), 7, "<PrivateEvent");
  asEvent.replace(asEvent.find("</Escape>"), 9, "</PrivateEvent>");
  auto parsed = csta_xml::parseCstaEvent(asEvent);
  auto* entry = dynamic_cast<CSTAPrivateEvent*>(parsed.event.get());
  ASSERT_NE(nullptr, entry) << asEvent;
  CallLogEntryEvent expected;
  expected.action = CallLogEntryEvent::ACTION_DELETE;
  expected.logTarget = CallLogEntryEvent::LT_MISSED;
  expected.timeFormat = CallLogEntryEvent::TF_UTC;
  expected.subscriberNumber = "0301234";
  for (int i = 0; i < CallLogEntryRequest::kFieldCount; ++i) expected.fields[i] = escape.getCallLogEntry().fields[i];
  EXPECT_EQ(expected, entry->getCallLogEntry());
}

// A SystemStatus request of the switch later on: answered under its id and passed to the registrant.
TEST_F(CstaLinkTest, ASystemStatusRequestOfTheSwitchIsAnsweredAndPassedToTheRegistrant) {
  start();
  ASSERT_TRUE(sim->waitForRequest("SystemStatusResponse", kWaitMs));
  ASSERT_EQ("ok", registerSink());
  ASSERT_TRUE(sim->sendRaw(csta_xml::encodeFrame(
      77,
      "<SystemStatus xmlns=\"http://www.ecma.ch/standards/ecma-323/csta/ed2\"><systemStatus>overloadImminent"
      "</systemStatus></SystemStatus>")));
  EXPECT_TRUE(sink.waitFor("status overloadImminent"));
  ASSERT_TRUE(sim->waitForRequest("SystemStatusResponse", kWaitMs, 2));
  EXPECT_EQ(77, sim->requests("SystemStatusResponse")[1].invokeId);
}

TEST_F(CstaLinkTest, EventsGoToTheirMonitorOnTheEventThread) {
  simOptions.sendSystemStatus = false;  // which the monitors' sinks would get too
  start();
  ASSERT_EQ(startMonitor(sink), "100");
  ASSERT_EQ(startMonitor(second), "101");
  ASSERT_TRUE(sim->sendEvent("<DeliveredEvent><monitorCrossRefID>"));                 // malformed
  ASSERT_TRUE(sim->sendEvent("<CSTAErrorCode><operation/></CSTAErrorCode>"));         // not an event
  ASSERT_TRUE(sim->sendEvent(delivered("FF000100000000002D65C85C1C750000", "100")));  // to the first only
  ASSERT_TRUE(sim->sendEvent(delivered("2")));                                        // the current monitor
  ASSERT_TRUE(second.waitFor(seenDelivered("2")[0]));
  link->drainEvents();
  ASSERT_EQ(sink.seen(), seenDelivered("FF000100000000002D65C85C1C750000"));
  ASSERT_EQ(second.seen(), seenDelivered("2"));
  EXPECT_NE(sink.thread(), std::this_thread::get_id());
  EXPECT_EQ(sink.thread(), second.thread());
  EXPECT_TRUE(log.contains("not well-formed", fw::kLogError));
  EXPECT_TRUE(log.contains("CSTAErrorCode", fw::kLogTrace));
}

TEST_F(CstaLinkTest, RequestFailures) {
  options.requestTimeoutMs = 300;
  start();
  // A monitor of a device that was never asked for has no id to change.
  CSTAChangeMonitorFilterRequest change;
  change.setDeviceObject("localDeviceID");
  EXPECT_EQ(send(change), code(fw::kCstaLinkNoMonitor));
  sim->setAnswer("MonitorStop", SwitchSimulator::Answer::None);
  EXPECT_EQ(stopMonitor("5"), code(fw::kCstaLinkTimedOut));
}

// The module whose start was refused holds no id of the monitor the link started later: only
// stopUnclaimedMonitors stops it, for good, and leaves the monitors modules hold alone.
TEST_F(CstaLinkTest, AMonitorNoModuleHoldsAnIdOfIsStoppedForGoodByStopUnclaimedMonitors) {
  start();
  ASSERT_EQ(startMonitor(second), "100");
  sim->setAnswer("MonitorStart", SwitchSimulator::Answer::Error);
  EXPECT_EQ(startMonitor(sink), "error");
  sim->setAnswer("MonitorStart", SwitchSimulator::Answer::Normal);
  ASSERT_TRUE(eventually([&] { return link->monitors().running == 2; }));
  const std::string retried = sim->currentMonitorId();

  EXPECT_EQ(1u, link->stopUnclaimedMonitors());
  ASSERT_TRUE(sim->waitForRequest("MonitorStop", kWaitMs));
  EXPECT_NE(xml("MonitorStop").find("<monitorCrossRefID>" + retried + "</monitorCrossRefID>"), std::string::npos)
      << xml("MonitorStop");
  EXPECT_EQ(1u, link->monitors().asked);
  EXPECT_EQ(0u, link->stopUnclaimedMonitors());

  const std::size_t starts = sim->requests("MonitorStart").size();
  sim->dropConnection();
  sim->restore();
  ASSERT_TRUE(sim->waitForRequest("MonitorStart", kWaitMs, starts + 1));
  link->drainEvents();  // the restarts run on the event thread
  EXPECT_EQ(starts + 1, sim->requests("MonitorStart").size());
  EXPECT_EQ(1u, sim->requests("MonitorStop").size());
}

TEST_F(CstaLinkTest, AMonitorTheSwitchStartsAfterItsRequestTimedOutIsStoppedThere) {
  options.requestTimeoutMs = 300;
  start();
  sim->setAnswer("MonitorStart", SwitchSimulator::Answer::None);
  EXPECT_EQ(code(fw::kCstaLinkTimedOut), startMonitor(sink));
  // The answer comes after all: that monitor is no one's, and its events would reach every sink.
  const int invokeId = sim->requests("MonitorStart").front().invokeId;
  ASSERT_TRUE(sim->sendRaw(csta_xml::encodeFrame(
      invokeId,
      "<MonitorStartResponse xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\">"
      "<monitorCrossRefID>777</monitorCrossRefID></MonitorStartResponse>")));
  ASSERT_TRUE(sim->waitForRequest("MonitorStop", kWaitMs));
  expectParts(xml("MonitorStop"), {"<monitorCrossRefID>777</monitorCrossRefID>"});
}

TEST_F(CstaLinkTest, HeldEventsWaitAndThenComeInOrder) {
  simOptions.sendSystemStatus = false;
  start();
  link->holdEvents();
  ASSERT_EQ(startMonitor(sink), "100");
  for (const char* id : {"1", "2", "3"}) ASSERT_TRUE(sim->sendEvent(delivered(id, "*")));
  CSTAEscapeRequest escape;
  ASSERT_EQ(send(escape), "ok");  // answered behind the events: they have been read
  link->drainEvents();
  EXPECT_EQ(std::vector<std::string>{}, sink.seen());
  link->releaseEvents();
  ASSERT_TRUE(sink.waitFor(seenDelivered("3")[0]));
  const std::vector<std::string> expected = {seenDelivered("1")[0], seenDelivered("2")[0], seenDelivered("3")[0]};
  EXPECT_EQ(expected, sink.seen());
}

TEST_F(CstaLinkTest, LinkLossAndReturnRestoresTheSession) {
  start();
  ASSERT_EQ(registerSink(), "ok");
  CSTAMonitorFilter filter;
  filter.setHeldFilter(true);
  ASSERT_EQ(startMonitor(sink, &filter), "100");

  sim->dropConnection();
  ASSERT_TRUE(sink.waitFor("status disabled"));
  CSTAEscapeRequest whileDown;
  EXPECT_EQ(send(whileDown), code(fw::kCstaLinkNotConnected));
  sim->restore();
  ASSERT_TRUE(sim->waitForRequest("MonitorStart", kWaitMs, 2));
  ASSERT_TRUE(sink.waitFor("status enabled"));
  EXPECT_EQ(sim->requests("SystemRegister").size(), 2u);
  EXPECT_EQ(xml("MonitorStart", 1), xml("MonitorStart"));
  link->drainEvents();  // the restart runs on the event thread
  ASSERT_TRUE(sim->sendEvent(delivered("7", "101")));
  ASSERT_TRUE(sink.waitFor(seenDelivered("7")[0]));
  const std::vector<std::string> seen = sink.seen();
  EXPECT_LT(std::find(seen.begin(), seen.end(), "status disabled"),
            std::find(seen.begin(), seen.end(), "status enabled"));

  EXPECT_EQ(stopMonitor("100"), "ok");  // the module keeps the id of its first start
  expectParts(xml("MonitorStop"), {"<monitorCrossRefID>101</monitorCrossRefID>"});
  EXPECT_EQ(log.count("lost"), 1);
  EXPECT_TRUE(log.contains("is back", fw::kLogNotable));
}

}  // namespace
