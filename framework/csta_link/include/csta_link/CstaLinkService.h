// The CSTA service over a TCP link to the switch, speaking ECMA-323 XML in the framing of CstaXml.h.
//
// Threads: an I/O thread connects, reconnects, writes and reads; an event thread (a WorkQueue)
// delivers every event to the modules, one at a time and in arrival order. sendRequest blocks its
// caller until the answer is read by the I/O thread, so it may be called from any thread, the event
// thread included.
//
// Session: no application session is opened. When the switch sends its SystemStatus request first,
// it is answered under the same invoke id and also delivered as a CSTASystemStatusEvent to the
// system-status registrants (the CSTAEventIfc of each SystemRegister's source service and every
// monitor's sink). When a connected link drops, the registrants get a CSTASystemStatusEvent
// "disabled"; when it comes back, one "enabled".
//
// Monitors: the link keeps every monitor a module asked for (one per sink and device) until the
// module stops it, and has it running on the switch whenever the link is up. A MonitorStart while
// the switch cannot be reached is answered at once with an id of the link's own and started at the
// switch when the link comes up; one the switch refuses or leaves unanswered is reported to the
// module as that failure and tried again, with growing delays, while the link is up. After every
// connection the SystemRegister (if one was made) is sent and the monitors that do not run are
// started, on the event thread before any later event. A module keeps the cross-reference id it
// was handed first: a MonitorStop with it is sent with the monitor's current id; a monitor whose
// module was never handed an id is stopped by stopUnclaimedMonitors(). A monitor is
// registered before its MonitorStart goes out and gets the switch's id as the answer is read, so
// that events right behind the answer reach it.
//
// State listener: setStateListener() is told on the I/O thread of every change the link sees
// itself: the link is up, it dropped, a monitor started running at the switch. No lock of the link
// is held while it runs; it must not block and must not send requests through the link.
//
// Reconnects and monitor retries wait reconnectInitialMs, doubling after each failed attempt up to
// reconnectMaxMs; a successful connection resets both delays.
//
// Locks (all leaves: none is held while another is taken, while a module's sink is called, while
// waiting for an answer, or during socket work):
//   Impl::m_linkMutex     guards the pending requests, the invoke id counter, the connection flags,
//                         the time and reason of the last change, the state listener, the event
//                         queue pointer and the held events.
//   Impl::m_monitorMutex  guards the monitors and the system-status registrants.
// Everything else of the link (socket, decoder, write queue, reconnect and monitor retry delays and
// timers) belongs to the I/O thread alone.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "csta_link/CstaXml.h"
#include "framework/Csta.h"
#include "framework/Executable.h"

#pragma GCC visibility push(default)

namespace fw {

struct CstaLinkOptions {
  std::string host = "127.0.0.1";
  int port = 0;                  // 0: no switch; see answerLocally
  std::string monitoredDevice;   // the number that the device object "localDeviceID" stands for
  int requestTimeoutMs = 5000;   // time limit of a synchronous request
  int reconnectInitialMs = 500;  // first delay after a lost/failed connection, doubling ...
  int reconnectMaxMs = 30000;    // ... up to this
  bool answerLocally = false;    // no switch at all (trace replay): requests are answered here as a
                                 // switch would (MonitorStart gets a cross-reference id, others succeed)
  std::size_t maxFrameSize = csta_xml::kDefaultMaxFrameSize;
};

// Response codes that sendRequest sets besides 0 (an answer arrived; the answer itself may still be
// an error response, see CSTAResponse::isError).
enum CstaLinkResponseCode {
  kCstaLinkAnswered = 0,
  kCstaLinkNotConnected = 1,  // no connection to the switch (or the service is not running)
  kCstaLinkTimedOut = 2,      // no answer within requestTimeoutMs
  kCstaLinkDropped = 3,       // the connection dropped, or the service stopped, while waiting
  kCstaLinkNoMonitor = 4,     // ChangeMonitorFilter for a device without a monitor started here
  kCstaLinkUnsupported = 5    // a request this service cannot encode
};

class CstaLinkService : public Service, public CSTAServiceIfc {
 public:
  explicit CstaLinkService(CstaLinkOptions options);
  ~CstaLinkService() override;  // stop()

  CstaLinkService(const CstaLinkService&) = delete;
  CstaLinkService& operator=(const CstaLinkService&) = delete;

  // Starts the I/O thread (connect + reconnect loop) and the event thread. Returns once the first
  // connection attempt has finished (at most requestTimeoutMs). Call once.
  void start();
  // Closes the link and joins the threads; waiting requests fail with kCstaLinkDropped. Events
  // already queued are still delivered. Not to be called from the event thread.
  void stop();

  // Synchronous, any thread, including the event thread. Sets the response code (above) and, when
  // the switch answered, the response: CSTAMonitorStartResponse for MonitorStart, else
  // CSTAGenericResponse; an error answer of the switch gives a response whose isError() is true.
  void sendRequest(CSTARequest& request) override;

  // Parses one event document as if the switch had sent it and queues it for the event thread
  // (trace replay). False with `error` for a document that is not an event, or before start().
  bool deliverDocument(const std::string& xml, std::string& error);

  // Events (and the link's own session work on the event thread) wait from holdEvents() until
  // releaseEvents(), then are delivered in arrival order. A host holds them while its module
  // starts and reads its lists. May be called before start(); stop() releases them.
  void holdEvents();
  void releaseEvents();

  // Returns when every event queued so far has been delivered (held events are not waited for).
  // Not from the event thread.
  void drainEvents();

  bool connected() const;
  // Monitors the modules asked for, and how many of them run at the switch now.
  struct MonitorCount {
    std::size_t asked = 0;
    std::size_t running = 0;
  };
  MonitorCount monitors() const;

  // The link as a status shows it: up or down, since when, why it is down, and the monitors.
  struct LinkState {
    bool connected = false;
    // When the link took this state; for a link that was never up, when start() ran.
    std::chrono::system_clock::time_point since;
    // Why the link is down: the drop or the failed attempt last seen; empty while it is up.
    std::string reason;
    MonitorCount monitors;
  };
  LinkState linkState() const;
  // Called on the I/O thread after each change: connected, dropped, a monitor now running at the
  // switch. Set it before start(); an empty function turns it off.
  using StateListener = std::function<void(const LinkState&)>;
  void setStateListener(StateListener listener);

  // Stops the monitors whose start was reported to their module as failed and that the link
  // started later on its own: the module holds no id of them and so cannot stop them itself. A
  // host calls this when its module no longer wants its monitor (call-log access taken away).
  // Returns how many were stopped. Any thread but the I/O thread.
  std::size_t stopUnclaimedMonitors();

  struct Impl;

 private:
  std::unique_ptr<Impl> m_impl;
};

}  // namespace fw

#pragma GCC visibility pop
