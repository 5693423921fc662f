// Inside of CstaLinkService: the state shared by its three source files. Private to the framework
// (it includes asio, which no public header may).
#pragma once

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <asio.hpp>

#include "csta_link/CstaLinkService.h"
#include "csta_link/CstaXml.h"
#include "framework/CstaRequests.h"
#include "framework/Logging.h"
#include "framework/Mutex.h"
#include "framework/ThreadAnnotations.h"
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

  // Called on the I/O thread with the answer's XML before the waiting thread is woken and before
  // any later frame is read.
  using AnswerHook = std::function<void(const std::string& answerXml)>;

  // A request waiting for its answer; lives on the waiting thread's stack, under m_linkMutex (its
  // fields are read and written with m_linkMutex held while `pending` holds it).
  struct Pending {
    bool done = false;
    int code = kCstaLinkAnswered;
    std::string answerXml;
    AnswerHook onAnswer;
  };

  struct Answer {
    int code = kCstaLinkNotConnected;
    std::unique_ptr<CSTAResponse> response;
    unsigned connection = 0;  // the linkGeneration it was sent on; 0 when not sent
  };

  // A monitor a module asked for, kept until the module stops it. The module keeps `moduleId` (the
  // id of its first successful start, or one of the link's own when the start was accepted while
  // the switch could not be reached); the switch knows it as `currentId`, empty while it is not
  // running on the switch. One monitor per sink and device.
  struct Monitor {
    unsigned serial = 0;  // the link's own key
    CSTAEventIfc* sink = nullptr;
    std::string device;  // as the module named it
    CSTAMonitorFilter filter;
    bool hasFilter = false;
    std::string moduleId;
    std::string currentId;
    bool starting = false;  // a MonitorStart for it is on its way to the switch
    bool claimed = false;   // its module was handed moduleId in an answer without error
  };

  // What a module's MonitorStart comes to (see claimMonitor).
  struct Claim {
    enum Action { Running, Accepted, Send } action = Send;
    unsigned serial = 0;
    std::string moduleId;
    std::string device;
    std::optional<CSTAMonitorFilter> filter;
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
  // Arms the next connection attempt; returns its delay in ms.
  int scheduleReconnect();
  void finishFirstAttempt();
  // Any thread: after a monitor could not be started while the link is up, arms the next attempt
  // to start the monitors that do not run, with growing delays (logged with `reason`).
  void scheduleMonitorRetry(const std::string& reason);
  std::string address() const;
  // I/O thread, no lock held: tells the state listener what the link is now.
  void reportState();
  // Records a change of the link (under m_linkMutex): up, or down for `reason`.
  void noteLinkChange(bool up, const std::string& reason) REQUIRES(m_linkMutex);

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
  asio::steady_timer monitorRetryTimer{io};
  int monitorRetryDelayMs = 0;
  bool monitorRetryArmed = false;
  unsigned monitorRetryToken = 0;     // a timer's handler acts only while it matches
  bool monitorFailureLogged = false;  // on this connection
  unsigned generation = 0;            // changes with each connection and each drop: stale handlers stop
  std::thread ioThread;

  // ---- requests and events (CstaLinkService.cpp) ----
  // Sends `xml` as a request and waits for its answer; `onAnswer` sees the answer first.
  Answer exchange(const char* requestName, const std::string& xml, AnswerHook onAnswer = {});
  // 0 when requests are answered here and the service runs; kCstaLinkNotConnected otherwise.
  int localState();
  // The next free invoke id of a request. The caller holds m_linkMutex.
  int takeInvokeId() REQUIRES(m_linkMutex);
  // The monitor of a MonitorStart's sink and device, made at its first request, with the
  // request's filter. The caller holds m_monitorMutex.
  Monitor* monitorOf(const CSTAMonitorStartRequest& request) REQUIRES(m_monitorMutex);
  // I/O thread: an answer no request waits for any more. A monitor the switch started for a
  // MonitorStart that timed out belongs to nobody: it is stopped at the switch.
  void lateAnswer(const std::string& xml);
  std::string deviceOnWire(const std::string& device) const;
  void systemRegister(CSTASystemStatusRequest& request);
  // Records the outcome of a SystemRegister sent to the switch.
  void noteRegistration(const Answer& answer);
  unsigned currentConnection();
  void escape(CSTAEscapeRequest& request);
  // Queues `task` for the event thread (or keeps it while events are held); dropped when the
  // service is not running.
  void post(std::function<void()> task);
  // Hands the held tasks to the event thread in order; tasks posted meanwhile follow them.
  void releaseHeld();
  void queueEvent(csta_xml::CstaParseResult parsed);
  // Event thread: hands the event to the monitor it names, or to every monitor.
  void routeEvent(CSTAEvent& event, const std::string& crossRefId, bool systemStatus);
  // Event thread: a CSTASystemStatusEvent with `status` to every registrant.
  void deliverStatus(const char* status);
  std::vector<CSTAEventIfc*> registrants();

  // ---- monitors (CstaLinkMonitors.cpp) ----
  void monitorStart(CSTAMonitorStartRequest& request);
  void monitorStartLocally(CSTAMonitorStartRequest& request);
  // Finds or adds the monitor of the request's sink and device and decides what its start comes
  // to: Running (it runs: the module gets its id), Accepted (it starts when the switch can be
  // reached, or its start is on its way: the module gets its id now) or Send (marked starting).
  Claim claimMonitor(const CSTAMonitorStartRequest& request);
  // Sends the MonitorStart of a monitor marked starting; logs the outcome and, on a failure,
  // arms a retry. `running` (when given) tells whether the monitor runs now.
  Answer startAtSwitch(const Claim& claim, bool* running);
  // I/O thread: the switch's answer to the start of monitor `serial`.
  void monitorAnswered(unsigned serial, const std::string& answerXml);
  void monitorStop(CSTAMonitorStopRequest& request);
  void changeFilter(CSTAChangeMonitorFilterRequest& request);
  // I/O thread: the link dropped; no monitor runs on the switch any more.
  void forgetRunningMonitors();
  void markClaimed(unsigned serial);
  std::size_t stopUnclaimedMonitors();
  // Event thread: after every connection, reports a return, registers again and starts the
  // monitors that do not run.
  void resumeSession(bool isReturn);
  // Event thread: starts, one after the other, the monitors that neither run nor are starting;
  // stops at the first failure (a retry is armed).
  void startIdleMonitors();

  mutable Mutex m_linkMutex;  // leaf; guards the members down to m_monitorMutex
  CondVar m_linkCv;
  std::map<int, Pending*> pending GUARDED_BY(m_linkMutex);
  int nextInvokeId GUARDED_BY(m_linkMutex) = 0;
  bool running GUARDED_BY(m_linkMutex) = false;
  bool stopping GUARDED_BY(m_linkMutex) = false;
  bool firstAttemptDone GUARDED_BY(m_linkMutex) = false;
  unsigned linkGeneration GUARDED_BY(m_linkMutex) = 0;  // `generation` of the current connection
  std::shared_ptr<WorkQueue> events GUARDED_BY(m_linkMutex);
  bool eventsHeld GUARDED_BY(m_linkMutex) = false;  // holdEvents() until releaseEvents()
  bool releasing GUARDED_BY(m_linkMutex) = false;   // held tasks are being handed over
  // Posted while held or releasing, in order.
  std::deque<std::function<void()>> heldTasks GUARDED_BY(m_linkMutex);
  std::atomic<bool> isConnected{false};  // written under m_linkMutex, read without it
  std::chrono::system_clock::time_point stateSince GUARDED_BY(m_linkMutex);  // of the last change
  std::string downReason GUARDED_BY(m_linkMutex);                            // empty while up
  StateListener stateListener GUARDED_BY(m_linkMutex);

  mutable Mutex m_monitorMutex;  // leaf; guards the members below
  std::vector<Monitor> monitors GUARDED_BY(m_monitorMutex);
  std::vector<CSTAEventIfc*> statusSinks GUARDED_BY(m_monitorMutex);  // sources of SystemRegister requests
  bool systemRegisterMade GUARDED_BY(m_monitorMutex) = false;
  bool registering GUARDED_BY(m_monitorMutex) = false;   // a SystemRegister is on its way
  unsigned registeredOn GUARDED_BY(m_monitorMutex) = 0;  // linkGeneration of the last accepted SystemRegister
  int localCrossRefId GUARDED_BY(m_monitorMutex) = 0;    // ids the link hands out itself
  unsigned monitorSerial GUARDED_BY(m_monitorMutex) = 0;
};

}  // namespace fw
