// Inside of CstaLinkService: the state shared by its three source files. Private to the framework
// (it includes asio, which no public header may).
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <asio.hpp>

#include "framework/CstaLinkService.h"
#include "framework/CstaRequests.h"
#include "framework/CstaXml.h"
#include "framework/Logging.h"
#include "framework/WorkQueue.h"

#define CSTA_LOG(level, ...) logAppUni(fw::link::kLogHandle, __FILE__, level, __LINE__, __VA_ARGS__)

namespace fw {
namespace link {

constexpr const char* kLogHandle = "CSTA Service";
// The device object that modules use for the phone's own line.
constexpr const char* kLocalDevice = "localDeviceID";

// ---- XML of the requests and answers (CstaLinkXml.cpp) ----

std::string monitorStartXml(const std::string& device, const CSTAMonitorFilter* filter);
std::string monitorStopXml(const std::string& crossRefId);
std::string changeMonitorFilterXml(const std::string& crossRefId, const CSTAMonitorFilter& filter);
std::string systemRegisterXml();
std::string escapeXml(const CallLogEntryRequest& entry);
// Local name of the document element; empty when the document is not well-formed.
std::string documentElementName(const std::string& xml);
// The response to a request named `requestName` read from the switch's answer; never null. An
// error answer, or an answer of another kind, gives an error response (and is logged).
std::unique_ptr<CSTAResponse> parseResponse(const std::string& requestName, const std::string& xml);

}  // namespace link

struct CstaLinkService::Impl {
  explicit Impl(CstaLinkOptions o);

  // A request waiting for its answer; lives on the waiting thread's stack, under m_linkMutex.
  struct Pending {
    bool done = false;
    int code = kCstaLinkAnswered;
    std::string answerXml;
  };

  struct Answer {
    int code = kCstaLinkNotConnected;
    std::unique_ptr<CSTAResponse> response;
  };

  // A monitor a module started. The module keeps `moduleId` (the id of its first start); the
  // switch knows it as `currentId`, empty while it is not running on the switch.
  struct Monitor {
    CSTAEventIfc* sink = nullptr;
    std::string device;  // as the module named it
    CSTAMonitorFilter filter;
    bool hasFilter = false;
    std::string moduleId;
    std::string currentId;
  };

  const CstaLinkOptions options;

  // ---- I/O thread (CstaLinkIo.cpp) ----
  void connect();
  void connectFailed(const std::string& reason);
  void onConnected();
  void readMore();
  void handleFrame(csta_xml::CstaFrame& frame);
  void write(std::string frame);
  void writeNext();
  void dropLink(const std::string& reason);
  void scheduleReconnect();
  void finishFirstAttempt();

  asio::io_context io;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work;
  asio::ip::tcp::socket socket{io};
  asio::steady_timer retryTimer{io};
  std::optional<csta_xml::CstaFrameDecoder> decoder;
  std::deque<std::string> writeQueue;
  std::array<char, 16384> readBuffer{};
  int retryDelayMs = 0;
  bool everConnected = false;  // a later connection is a return
  bool outageLogged = false;   // the current outage was logged at level 2
  unsigned generation = 0;     // changes with each connection and each drop: stale handlers stop
  std::thread ioThread;

  // ---- requests, monitors and events (CstaLinkService.cpp) ----
  // Sends `xml` as a request and waits for its answer.
  Answer exchange(const char* requestName, const std::string& xml);
  // 0 when requests are answered here and the service runs; kCstaLinkNotConnected otherwise.
  int localState();
  std::string deviceOnWire(const std::string& device) const;
  void monitorStart(CSTAMonitorStartRequest& request);
  void monitorStop(CSTAMonitorStopRequest& request);
  void changeFilter(CSTAChangeMonitorFilterRequest& request);
  void systemRegister(CSTASystemStatusRequest& request);
  void escape(CSTAEscapeRequest& request);
  // Queues `task` for the event thread; dropped when the service is not running.
  void post(std::function<void()> task);
  void queueEvent(csta_xml::CstaParseResult parsed);
  // Event thread: hands the event to the monitor it names, or to every monitor.
  void routeEvent(CSTAEvent& event, const std::string& crossRefId, bool systemStatus);
  // Event thread: a CSTASystemStatusEvent with `status` to every registrant.
  void deliverStatus(const char* status);
  // Event thread: after a return, registers again and restarts the monitors.
  void resumeSession();
  std::vector<CSTAEventIfc*> registrants();

  mutable std::mutex m_linkMutex;  // leaf; guards the members down to m_monitorMutex
  std::condition_variable m_linkCv;
  std::map<int, Pending*> pending;
  int nextInvokeId = 0;
  bool running = false;
  bool stopping = false;
  bool firstAttemptDone = false;
  unsigned linkGeneration = 0;  // `generation` of the current connection
  std::shared_ptr<WorkQueue> events;
  std::atomic<bool> isConnected{false};

  std::mutex m_monitorMutex;  // leaf; guards the members below
  std::vector<Monitor> monitors;
  std::vector<CSTAEventIfc*> statusSinks;  // sources of SystemRegister requests
  bool systemRegisterMade = false;
  int localCrossRefId = 0;
};

}  // namespace fw
