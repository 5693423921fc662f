#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "SwitchSimulator.h"
#include "framework/CstaEvents.h"
#include "framework/CstaLinkService.h"
#include "framework/CstaRequests.h"
#include "framework/CstaXml.h"

namespace {

constexpr int kWaitMs = 10000;  // generous: only a fault makes a wait run out

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
    m_threads.push_back(std::this_thread::get_id());
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
  std::vector<std::thread::id> threads() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_threads;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  std::vector<std::string> m_seen;
  std::vector<std::thread::id> m_threads;
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

std::string seenDelivered(const std::string& callId) { return "delivered " + callId + " from 302118840100 cause 22"; }

fw::CstaLinkOptions linkTo(int port) {
  fw::CstaLinkOptions options;
  options.port = port;
  options.monitoredDevice = "3012";
  options.reconnectInitialMs = 20;
  options.reconnectMaxMs = 200;
  return options;
}

// Starts a monitor of the phone's line for `sink`; the cross-reference id, empty on failure.
std::string startMonitor(fw::CstaLinkService& link, Sink& sink, const CSTAMonitorFilter* filter = nullptr) {
  CSTAMonitorStartRequest request;
  request.setSourceService(&sink);
  request.setCSTAEventIfc(&sink);
  request.setDeviceObject("localDeviceID");
  if (filter) request.setRequestedMonitorFilter(*filter);
  link.sendRequest(request);
  auto* response = dynamic_cast<CSTAMonitorStartResponse*>(request.getResponse());
  return request.getResponseCode() == 0 && response && !response->isError() ? response->GetMonitorCrossRefID() : "";
}

template <class Request>
int send(fw::CstaLinkService& link, Request& request, bool* error = nullptr) {
  link.sendRequest(request);
  if (error) *error = request.getResponse() && request.getResponse()->isError();
  return request.getResponseCode();
}

TEST(CstaLinkTest, SessionRequestsOnTheWire) {
  SwitchSimulator sim;
  Sink sink;  // sinks outlive the link, which delivers what is queued when it stops
  fw::CstaLinkService link(linkTo(sim.port()));
  link.start();
  ASSERT_TRUE(sim.waitForRequest("SystemStatusResponse", kWaitMs));
  EXPECT_EQ(sim.requests("SystemStatusResponse")[0].invokeId, 4711);

  CSTASystemStatusRequest registerRequest;
  registerRequest.setSourceService(&sink);
  bool error = true;
  EXPECT_EQ(send(link, registerRequest, &error), 0);
  EXPECT_FALSE(error);
  EXPECT_NE(sim.requests("SystemRegister")[0].xml.find("<systemStatus>true</systemStatus>"), std::string::npos);

  CSTAMonitorFilter filter;  // as the journal asks: call control without held calls, call-log entries
  filter.setCallControlFilter(false);
  filter.setHeldFilter(true);
  filter.setVendorSpecificFilter(true);
  filter.setCallLogEntryFilter(false);
  filter.setSystemStatusFilter(false);
  EXPECT_EQ(startMonitor(link, sink, &filter), "100");
  const std::string start = sim.requests("MonitorStart")[0].xml;
  for (const char* part :
       {"<monitorObject><deviceObject>3012</deviceObject></monitorObject>",
        "<callcontrol><callCleared>false</callCleared>", "<held>true</held>", "<delivered>false</delivered>",
        "<private>false</private>", "xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\""})
    EXPECT_NE(start.find(part), std::string::npos) << part << " in " << start;
  EXPECT_EQ(start.find("callAssociated"), std::string::npos) << start;

  CSTAChangeMonitorFilterRequest change;
  change.setCSTAEventIfc(&sink);
  change.setDeviceObject("localDeviceID");
  CSTAMonitorFilter changed;
  changed.setLogicalDeviceFilter(true);
  changed.setFS_DNDFilter(false);
  change.setRequestedFilterList(changed);
  EXPECT_EQ(send(link, change), 0);
  const std::string changeXml = sim.requests("ChangeMonitorFilter")[0].xml;
  EXPECT_NE(changeXml.find("<monitorCrossRefID>100</monitorCrossRefID><requestedFilterList><logicalDeviceFeature>"),
            std::string::npos);
  EXPECT_NE(changeXml.find("<doNotDisturb>false</doNotDisturb><forwarding>true</forwarding>"), std::string::npos);

  // The escape's call-log entry reads back as the switch's own call-log event form.
  const std::string name = "Åsa <Nord>";
  CSTAEscapeRequest escape;
  escape.setCallLogEntry(CallLogEntryRequest(
      CallLogEntryEvent::ACTION_DELETE, CallLogEntryEvent::LT_MISSED, CallLogEntryEvent::TF_UTC, "0301234",
      CallLogEntryEvent::PV_SHOWN, "2026-03-01T10:00:00", CallLogEntryEvent::PV_RESTRICTED, &name,
      CallLogEntryEvent::PV_NONE, nullptr, CallLogEntryEvent::PV_NONE, nullptr, CallLogEntryEvent::PV_SHOWN, &name));
  EXPECT_EQ(send(link, escape), 0);
  std::string asEvent = sim.requests("Escape")[0].xml;
  asEvent.replace(asEvent.find("<Escape"), 7, "<PrivateEvent");
  asEvent.replace(asEvent.find("</Escape>"), 9, "</PrivateEvent>");
  auto parsed = csta_xml::parseCstaEvent(asEvent);
  auto* entry = dynamic_cast<CSTAPrivateEvent*>(parsed.event.get());
  ASSERT_NE(entry, nullptr) << asEvent;
  CallLogEntryEvent expected;
  expected.action = CallLogEntryEvent::ACTION_DELETE;
  expected.logTarget = CallLogEntryEvent::LT_MISSED;
  expected.timeFormat = CallLogEntryEvent::TF_UTC;
  expected.subscriberNumber = "0301234";
  for (int i = 0; i < CallLogEntryRequest::kFieldCount; ++i) expected.fields[i] = escape.getCallLogEntry().fields[i];
  EXPECT_TRUE(entry->getCallLogEntry() == expected);

  // A SystemStatus request of the switch later on: answered under its id and passed to the registrant.
  ASSERT_TRUE(sim.sendRaw(csta_xml::encodeFrame(
      77,
      "<SystemStatus xmlns=\"http://www.ecma.ch/standards/ecma-323/csta/ed2\"><systemStatus>overloadImminent"
      "</systemStatus></SystemStatus>")));
  EXPECT_TRUE(sink.waitFor("status overloadImminent"));
  ASSERT_TRUE(sim.waitForRequest("SystemStatusResponse", kWaitMs, 2));
  EXPECT_EQ(sim.requests("SystemStatusResponse")[1].invokeId, 77);
}

TEST(CstaLinkTest, EventsGoToTheirMonitorOnTheEventThread) {
  LogCapture log;
  SwitchSimulator::Options quiet;  // no SystemStatus, which the monitors' sinks would get too
  quiet.sendSystemStatus = false;
  SwitchSimulator sim(quiet);
  Sink first, second;
  fw::CstaLinkService link(linkTo(sim.port()));
  link.start();
  const std::string firstId = startMonitor(link, first);
  ASSERT_FALSE(firstId.empty());
  ASSERT_EQ(startMonitor(link, second), "101");

  ASSERT_TRUE(sim.sendEvent("<DeliveredEvent><monitorCrossRefID>"));                   // malformed
  ASSERT_TRUE(sim.sendEvent("<HeldEvent><monitorCrossRefID/></HeldEvent>"));           // not read here
  ASSERT_TRUE(sim.sendEvent(delivered("FF000100000000002D65C85C1C750000", firstId)));  // to the first only
  ASSERT_TRUE(sim.sendEvent(delivered("2")));                                          // the current monitor
  ASSERT_TRUE(second.waitFor(seenDelivered("2")));
  link.drainEvents();
  ASSERT_EQ(first.seen(), std::vector<std::string>{seenDelivered("FF000100000000002D65C85C1C750000")});
  ASSERT_EQ(second.seen(), std::vector<std::string>{seenDelivered("2")});
  EXPECT_NE(first.threads()[0], std::this_thread::get_id());
  EXPECT_EQ(first.threads()[0], second.threads()[0]);
  EXPECT_TRUE(log.contains("not well-formed", fw::kLogError));
  EXPECT_TRUE(log.contains("HeldEvent", fw::kLogTrace));
}

TEST(CstaLinkTest, RequestFailures) {
  SwitchSimulator sim;
  fw::CstaLinkOptions options = linkTo(sim.port());
  options.requestTimeoutMs = 300;
  Sink sink;
  fw::CstaLinkService link(options);
  link.start();
  sim.setAnswer("MonitorStart", SwitchSimulator::Answer::Error);
  CSTAMonitorStartRequest start;
  start.setCSTAEventIfc(&sink);
  start.setDeviceObject("localDeviceID");
  bool error = false;
  EXPECT_EQ(send(link, start, &error), 0);
  EXPECT_TRUE(error);
  EXPECT_NE(dynamic_cast<CSTAMonitorStartResponse*>(start.getResponse()), nullptr);

  sim.setAnswer("MonitorStop", SwitchSimulator::Answer::None);
  CSTAMonitorStopRequest stop;
  stop.setMonitorCrossRefID("5");
  EXPECT_EQ(send(link, stop), fw::kCstaLinkTimedOut);
  EXPECT_EQ(stop.getResponse(), nullptr);

  // A monitor of a device that was never started has no id to change.
  CSTAChangeMonitorFilterRequest change;
  change.setDeviceObject("localDeviceID");
  EXPECT_EQ(send(link, change), fw::kCstaLinkNoMonitor);
}

TEST(CstaLinkTest, LinkLossAndReturnRestoresTheSession) {
  LogCapture log;
  SwitchSimulator sim;
  Sink sink;
  fw::CstaLinkService link(linkTo(sim.port()));
  link.start();
  CSTASystemStatusRequest registerRequest;
  registerRequest.setSourceService(&sink);
  ASSERT_EQ(send(link, registerRequest), 0);
  CSTAMonitorFilter filter;
  filter.setHeldFilter(true);
  ASSERT_EQ(startMonitor(link, sink, &filter), "100");

  sim.dropConnection();
  ASSERT_TRUE(sink.waitFor("status disabled"));
  CSTAEscapeRequest whileDown;
  EXPECT_EQ(send(link, whileDown), fw::kCstaLinkNotConnected);
  sim.restore();
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", kWaitMs, 2));
  ASSERT_TRUE(sink.waitFor("status enabled"));
  EXPECT_EQ(sim.requests("SystemRegister").size(), 2u);
  EXPECT_EQ(sim.requests("MonitorStart")[1].xml, sim.requests("MonitorStart")[0].xml);
  link.drainEvents();  // the restart runs on the event thread
  ASSERT_TRUE(sim.sendEvent(delivered("7", "101")));
  ASSERT_TRUE(sink.waitFor(seenDelivered("7")));
  const std::vector<std::string> seen = sink.seen();
  EXPECT_LT(std::find(seen.begin(), seen.end(), "status disabled"),
            std::find(seen.begin(), seen.end(), "status enabled"));

  CSTAMonitorStopRequest stop;
  stop.setMonitorCrossRefID("100");  // the module keeps the id of its first start
  EXPECT_EQ(send(link, stop), 0);
  EXPECT_NE(sim.requests("MonitorStop")[0].xml.find("<monitorCrossRefID>101</monitorCrossRefID>"), std::string::npos);
  EXPECT_EQ(log.count("lost"), 1);
  EXPECT_TRUE(log.contains("is back", fw::kLogNotable));
}

TEST(CstaLinkTest, BadFrameFromTheSwitchReconnects) {
  LogCapture log;
  SwitchSimulator sim;
  Sink sink;
  fw::CstaLinkService link(linkTo(sim.port()));
  link.start();
  ASSERT_EQ(startMonitor(link, sink), "100");
  ASSERT_TRUE(
      sim.sendRaw(std::string("\0\0\0\x05"
                              "9999",
                              8)));  // a length shorter than the header
  ASSERT_TRUE(sim.waitForConnections(2, kWaitMs));
  ASSERT_TRUE(sim.waitForRequest("MonitorStart", kWaitMs, 2));
  ASSERT_TRUE(sink.waitFor("status enabled"));
  link.drainEvents();
  const std::string trace = ::testing::TempDir() + "csta_link_trace.xml";
  std::ofstream(trace) << "<cstaTrace><set at=\"0\" key=\"k\" value=\"v\"/><event at=\"1\">" << delivered("8", "*")
                       << "</event></cstaTrace>";
  std::string error;
  EXPECT_EQ(sim.playTrace(trace, 0, error), 1) << error;
  EXPECT_TRUE(sink.waitFor(seenDelivered("8")));
  EXPECT_TRUE(log.contains("framing error", fw::kLogError));
}

TEST(CstaLinkTest, AnswersLocallyAndRoutesDeliveredDocuments) {
  fw::CstaLinkOptions options;
  options.answerLocally = true;
  Sink first, second;
  fw::CstaLinkService link(options);
  link.start();
  EXPECT_TRUE(link.connected());
  EXPECT_EQ(startMonitor(link, first), "1");
  EXPECT_EQ(startMonitor(link, second), "2");
  CSTAEscapeRequest escape;
  EXPECT_EQ(send(link, escape), 0);

  std::string error;
  EXPECT_TRUE(link.deliverDocument(delivered("9", "2"), error)) << error;
  EXPECT_FALSE(link.deliverDocument("<MonitorStartResponse/>", error));
  EXPECT_NE(error.find("MonitorStartResponse"), std::string::npos);
  EXPECT_FALSE(link.deliverDocument("<DeliveredEvent>", error));
  link.drainEvents();
  EXPECT_TRUE(first.seen().empty());
  EXPECT_EQ(second.seen(), std::vector<std::string>{seenDelivered("9")});

  CSTAMonitorStopRequest stop;
  stop.setMonitorCrossRefID("2");
  EXPECT_EQ(send(link, stop), 0);
  EXPECT_TRUE(link.deliverDocument(delivered("10", "2"), error));  // unknown id now: every monitor
  link.drainEvents();
  EXPECT_EQ(first.seen(), std::vector<std::string>{seenDelivered("10")});
  link.stop();
  EXPECT_FALSE(link.connected());
}

}  // namespace
