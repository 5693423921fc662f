// A scripted switch on the loopback interface for the CSTA link's tests and the cstaswitchsim
// program: it speaks the CSTA XML framing, serves one phone at a time (a new connection replaces
// the current one), answers the requests the link makes and sends events on command.
//
// Thread-safe: its socket work runs on its own I/O thread; the methods below may be called from
// any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class SwitchSimulator {
 public:
  struct Options {
    int port = 0;                     // 0: an ephemeral port, see port()
    bool sendSystemStatus = true;     // send a SystemStatus request first on each connection
    int systemStatusInvokeId = 4711;  // ... under this invoke id
    int firstMonitorId = 100;         // cross-reference ids handed out count up from here
  };

  // How a kind of request is answered.
  enum class Answer { Normal, Error, None };

  // A request received (or the phone's SystemStatusResponse).
  struct Received {
    int invokeId = 0;
    std::string name;  // local name of the document element
    std::string xml;
  };

  explicit SwitchSimulator(Options options);
  SwitchSimulator() : SwitchSimulator(Options()) {}
  ~SwitchSimulator();
  SwitchSimulator(const SwitchSimulator&) = delete;
  SwitchSimulator& operator=(const SwitchSimulator&) = delete;

  int port() const;

  // Answers every later request named `requestName` ("MonitorStart", ...) the given way.
  void setAnswer(const std::string& requestName, Answer answer);
  // A slow switch: answers every later request named `requestName` `delayMs` after it came (0:
  // at once again). Other requests and events are not held up meanwhile.
  void setAnswerDelay(const std::string& requestName, int delayMs);
  // Holds the answers to later requests named `requestName` until releaseAnswers(): each request
  // is received (waitForRequest and requests() see it) and its answer waits.
  void holdAnswers(const std::string& requestName);
  // Sends the held answers, in the order their requests came, and answers later requests again.
  void releaseAnswers(const std::string& requestName);

  // Sends `xml` as an event (invoke id 9999). An empty <monitorCrossRefID/> or one holding "*"
  // gets the id of the monitor started last. False when no phone is connected.
  bool sendEvent(const std::string& xml);
  // Sends bytes as they are (to break the framing). False when no phone is connected.
  bool sendRaw(const std::string& bytes);
  // Sends the event documents of a trace file (root cstaTrace; each <event> holds one event
  // document; <set> elements are ignored), waiting `delayMs` between events. Only the events
  // numbered `first` up to before `end` (counted from 0) are sent. Returns the number sent, or -1
  // with `error` when the file cannot be read or no phone is connected.
  int playTrace(const std::string& path, int delayMs, std::string& error, std::size_t first = 0,
                std::size_t end = SIZE_MAX);
  // The event documents of a trace file, in order; false with `error` when it cannot be read.
  static bool readTraceEvents(const std::string& path, std::vector<std::string>& events, std::string& error);
  // Plays a trace at the pace of its events' `at` stamps (YYYY-MM-DDThh:mm:ss): the time between
  // two events' stamps is waited, divided by `pace` (60: a minute of the trace in a second; 1: as
  // it happened). A pause between two events longer than `maxGapSeconds` of the trace's time (0:
  // no limit) is cut to that, so that the idle hours of a day do not hold up its calls. Events
  // from number `first` on. Stops early when `*stop` becomes true. Returns the number sent, or -1
  // with `error` when the file cannot be read, an event has no such stamp or no phone is connected.
  int playTraceAtPace(const std::string& path, double pace, std::string& error, std::size_t first = 0,
                      const std::atomic<bool>* stop = nullptr, long long maxGapSeconds = 0);

  // Sends `events` right behind the answer to every later MonitorStart that is answered normally,
  // in the same write, as a switch does that reports a call the moment the monitor runs. Their
  // monitorCrossRefID is filled as sendEvent does. An empty list turns this off.
  void setEventsAfterMonitorStart(std::vector<std::string> events);

  // Closes the current connection and refuses new ones until restore().
  void dropConnection();
  void restore();

  // Waits until `count` requests named `name` have been received in all; true when they have.
  bool waitForRequest(const std::string& name, int timeoutMs, std::size_t count = 1);
  // Waits until `count` connections have been accepted in all.
  bool waitForConnections(std::size_t count, int timeoutMs);
  std::vector<Received> requests(const std::string& name) const;
  // Cross-reference id of the monitor started last and not stopped since; empty when none.
  std::string currentMonitorId() const;

  struct Impl;

 private:
  // The event documents of a trace and their `at` stamps, in order.
  static bool readTrace(const std::string& path, std::vector<std::string>& events, std::vector<std::string>& stamps,
                        std::string& error);

  std::unique_ptr<Impl> m_impl;
};
