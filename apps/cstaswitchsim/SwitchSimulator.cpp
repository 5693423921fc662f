#include "SwitchSimulator.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <future>
#include <optional>
#include <pugixml.hpp>
#include <set>
#include <sstream>
#include <thread>

#include <asio.hpp>

#include "csta_link/CstaXml.h"
#include "framework/Mutex.h"
#include "framework/ThreadAnnotations.h"

namespace {

constexpr const char* kNamespace = "http://www.ecma-international.org/standards/ecma-323/csta/ed4";

const char* localName(const pugi::xml_node& node) {
  const char* name = node.name();
  const char* colon = std::strrchr(name, ':');
  return colon ? colon + 1 : name;
}

std::string childText(const pugi::xml_node& node, const char* name) {
  for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling())
    if (c.type() == pugi::node_element && std::strcmp(localName(c), name) == 0) return c.child_value();
  return std::string();
}

// Seconds of a stamp "YYYY-MM-DDThh:mm:ss" counted from a fixed day: only differences are used.
bool stampSeconds(const std::string& at, long long& seconds) {
  int year, month, day, hour, minute, second;
  char end;
  if (at.size() != 19 ||
      std::sscanf(at.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &year, &month, &day, &hour, &minute, &second, &end) != 6)
    return false;
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 59) return false;
  // Days from the civil date (proleptic Gregorian calendar), as in H. Hinnant's days_from_civil.
  const int y = year - (month <= 2 ? 1 : 0);
  const int era = y / 400;
  const int yearOfEra = y - era * 400;
  const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  const long long days = static_cast<long long>(era) * 146097 + dayOfEra;
  seconds = days * 86400 + hour * 3600 + minute * 60 + second;
  return true;
}

std::string document(const std::string& name, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><" + name + " xmlns=\"" + kNamespace + "\">" + body + "</" + name +
         ">";
}

}  // namespace

struct SwitchSimulator::Impl {
  // One phone's connection; handlers keep it alive.
  struct Connection {
    explicit Connection(asio::io_context& io) : socket(io) {}
    asio::ip::tcp::socket socket;
    csta_xml::CstaFrameDecoder decoder;
    std::array<char, 8192> buffer{};
    std::deque<std::string> writes;
  };

  explicit Impl(Options o) : options(o), acceptor(io) {}

  // ---- I/O thread ----
  void listen() {
    asio::ip::tcp::endpoint endpoint(asio::ip::make_address("127.0.0.1"), static_cast<unsigned short>(boundPort));
    acceptor.open(endpoint.protocol());
    acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true));
    acceptor.bind(endpoint);
    acceptor.listen();
    boundPort = acceptor.local_endpoint().port();
    accept();
  }

  void accept() {
    auto connection = std::make_shared<Connection>(io);
    acceptor.async_accept(connection->socket, [this, connection](const asio::error_code& error) {
      if (error) return;  // the acceptor was closed
      close();
      current = connection;
      {
        fw::MutexLock guard(mutex);
        ++connections;
      }
      cv.notifyAll();
      if (options.sendSystemStatus)
        write(connection, options.systemStatusInvokeId,
              document("SystemStatus", "<systemStatus>normal</systemStatus>"));
      read(connection);
      accept();
    });
  }

  void close() {
    if (!current) return;
    asio::error_code ignored;
    current->socket.close(ignored);
    current.reset();
  }

  void read(const std::shared_ptr<Connection>& connection) {
    connection->socket.async_read_some(asio::buffer(connection->buffer),
                                       [this, connection](const asio::error_code& error, std::size_t n) {
                                         if (error || connection != current) return;
                                         connection->decoder.feed(connection->buffer.data(), n);
                                         try {
                                           for (csta_xml::CstaFrame frame; connection->decoder.next(frame);)
                                             handle(connection, frame);
                                         } catch (const csta_xml::CstaFramingError&) {
                                           close();
                                           return;
                                         }
                                         read(connection);
                                       });
  }

  void write(const std::shared_ptr<Connection>& connection, int invokeId, const std::string& xml) {
    writeRaw(connection, csta_xml::encodeFrame(invokeId, xml));
  }

  void writeRaw(const std::shared_ptr<Connection>& connection, std::string bytes) {
    connection->writes.push_back(std::move(bytes));
    if (connection->writes.size() == 1) writeNext(connection);
  }

  void writeNext(const std::shared_ptr<Connection>& connection) {
    asio::async_write(connection->socket, asio::buffer(connection->writes.front()),
                      [this, connection](const asio::error_code& error, std::size_t) {
                        if (error) return;
                        connection->writes.pop_front();
                        if (!connection->writes.empty()) writeNext(connection);
                      });
  }

  void handle(const std::shared_ptr<Connection>& connection, const csta_xml::CstaFrame& frame) {
    pugi::xml_document doc;
    doc.load_buffer(frame.xml.data(), frame.xml.size());
    pugi::xml_node root = doc.document_element();
    const std::string name = root ? localName(root) : std::string();
    std::string body;
    Answer answer = Answer::Normal;
    Timing timing;
    {
      fw::MutexLock guard(mutex);
      received.push_back({frame.invokeId, name, frame.xml});
      const auto set = answers.find(name);
      if (set != answers.end()) answer = set->second;
      timing = timingOf(name);
      if (answer == Answer::Normal && name == "MonitorStart") {
        monitorId = std::to_string(nextMonitorId++);
        body = "<monitorCrossRefID>" + monitorId + "</monitorCrossRefID>";
      } else if (answer == Answer::Normal && name == "MonitorStop" &&
                 childText(root, "monitorCrossRefID") == monitorId) {
        monitorId.clear();
      } else if (name == "SystemRegister") {
        body = "<sysStatRegisterID>1</sysStatRegisterID>";
      }
    }
    cv.notifyAll();
    if (name == "SystemStatusResponse" || answer == Answer::None) return;
    if (answer == Answer::Error) {
      answerWhenDue(connection, name, timing,
                    csta_xml::encodeFrame(frame.invokeId, document("CSTAErrorCode", "<operation>generic</operation>")));
      return;
    }
    std::string reply = csta_xml::encodeFrame(frame.invokeId, document(name + "Response", body));
    if (name == "MonitorStart") {
      // The events go out in the same write as the answer: the phone reads them together.
      std::vector<std::string> events;
      std::string id;
      {
        fw::MutexLock guard(mutex);
        events = eventsAfterMonitorStart;
        id = monitorId;
      }
      for (const std::string& event : events)
        reply += csta_xml::encodeFrame(csta_xml::kEventInvokeId, fillMonitorId(event, id));
    }
    answerWhenDue(connection, name, timing, std::move(reply));
  }

  // When the answers to a kind of request go out (setAnswerDelay, holdAnswers).
  struct Timing {
    int delayMs = 0;
    bool held = false;
  };
  Timing timingOf(const std::string& name) const REQUIRES(mutex) {
    Timing timing;
    const auto delay = answerDelays.find(name);
    if (delay != answerDelays.end()) timing.delayMs = delay->second;
    timing.held = heldNames.count(name) != 0;
    return timing;
  }

  // Writes `reply` now, after the request's delay, or when its hold ends.
  void answerWhenDue(const std::shared_ptr<Connection>& connection, const std::string& name, const Timing& timing,
                     std::string reply) {
    if (timing.held) {
      heldAnswers.push_back({connection, name, std::move(reply)});
    } else if (timing.delayMs > 0) {
      auto timer = std::make_shared<asio::steady_timer>(io, std::chrono::milliseconds(timing.delayMs));
      timer->async_wait([this, connection, timer, reply = std::move(reply)](const asio::error_code& error) mutable {
        if (!error && connection == current) writeRaw(connection, std::move(reply));
      });
    } else {
      writeRaw(connection, std::move(reply));
    }
  }

  // Sends the held answers to requests named `name` whose connection is still the current one.
  void releaseHeld(const std::string& name) {
    for (auto it = heldAnswers.begin(); it != heldAnswers.end();) {
      if (it->name != name) {
        ++it;
        continue;
      }
      if (it->connection == current) writeRaw(it->connection, std::move(it->reply));
      it = heldAnswers.erase(it);
    }
  }

  // Runs `task` on the I/O thread and returns its result.
  template <class Task>
  auto onIoThread(Task task) -> decltype(task()) {
    std::packaged_task<decltype(task())()> packaged(std::move(task));
    auto result = packaged.get_future();
    asio::post(io, [&packaged] { packaged(); });
    return result.get();
  }

  std::string withMonitorId(const std::string& xml) {
    std::string id;
    {
      fw::MutexLock guard(mutex);
      id = monitorId;
    }
    return fillMonitorId(xml, id);
  }

  static std::string fillMonitorId(std::string xml, const std::string& id) {
    const std::string filled = "<monitorCrossRefID>" + id + "</monitorCrossRefID>";
    for (const char* placeholder : {"<monitorCrossRefID/>", "<monitorCrossRefID></monitorCrossRefID>",
                                    "<monitorCrossRefID>*</monitorCrossRefID>"}) {
      const auto at = xml.find(placeholder);
      if (at != std::string::npos) return xml.replace(at, std::strlen(placeholder), filled);
    }
    return xml;
  }

  const Options options;
  asio::io_context io;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work;
  asio::ip::tcp::acceptor acceptor;
  std::shared_ptr<Connection> current;  // I/O thread only
  struct HeldAnswer {
    std::shared_ptr<Connection> connection;
    std::string name;
    std::string reply;
  };
  std::deque<HeldAnswer> heldAnswers;  // I/O thread only; in the order the requests came
  int boundPort = 0;                   // set before the I/O thread starts
  std::thread thread;

  mutable fw::Mutex mutex;  // guards the members below
  fw::CondVar cv;
  std::vector<Received> received GUARDED_BY(mutex);
  std::map<std::string, Answer> answers GUARDED_BY(mutex);
  std::map<std::string, int> answerDelays GUARDED_BY(mutex);
  std::set<std::string> heldNames GUARDED_BY(mutex);
  std::string monitorId GUARDED_BY(mutex);
  int nextMonitorId GUARDED_BY(mutex) = 0;
  std::vector<std::string> eventsAfterMonitorStart GUARDED_BY(mutex);
  std::size_t connections GUARDED_BY(mutex) = 0;

  // The number of requests named `name` received so far.
  std::size_t receivedCount(const std::string& name) const REQUIRES(mutex) {
    std::size_t n = 0;
    for (const Received& r : received) n += r.name == name;
    return n;
  }
};

SwitchSimulator::SwitchSimulator(Options options) : m_impl(std::make_unique<Impl>(options)) {
  m_impl->boundPort = options.port;
  m_impl->nextMonitorId = options.firstMonitorId;
  m_impl->listen();
  m_impl->work.emplace(asio::make_work_guard(m_impl->io));
  m_impl->thread = std::thread([this] { m_impl->io.run(); });
}

SwitchSimulator::~SwitchSimulator() {
  m_impl->io.stop();
  m_impl->thread.join();
}

int SwitchSimulator::port() const { return m_impl->boundPort; }

void SwitchSimulator::setAnswer(const std::string& requestName, Answer answer) {
  fw::MutexLock guard(m_impl->mutex);
  m_impl->answers[requestName] = answer;
}

void SwitchSimulator::setAnswerDelay(const std::string& requestName, int delayMs) {
  fw::MutexLock guard(m_impl->mutex);
  m_impl->answerDelays[requestName] = delayMs;
}

void SwitchSimulator::holdAnswers(const std::string& requestName) {
  fw::MutexLock guard(m_impl->mutex);
  m_impl->heldNames.insert(requestName);
}

void SwitchSimulator::releaseAnswers(const std::string& requestName) {
  m_impl->onIoThread([this, requestName] {  // no request is handled in between
    {
      fw::MutexLock guard(m_impl->mutex);
      m_impl->heldNames.erase(requestName);
    }
    m_impl->releaseHeld(requestName);
    return true;
  });
}

bool SwitchSimulator::sendEvent(const std::string& xml) {
  return sendRaw(csta_xml::encodeFrame(csta_xml::kEventInvokeId, m_impl->withMonitorId(xml)));
}

bool SwitchSimulator::sendRaw(const std::string& bytes) {
  return m_impl->onIoThread([this, bytes] {
    if (!m_impl->current) return false;
    m_impl->writeRaw(m_impl->current, bytes);
    return true;
  });
}

bool SwitchSimulator::readTraceEvents(const std::string& path, std::vector<std::string>& events, std::string& error) {
  std::vector<std::string> stamps;
  return readTrace(path, events, stamps, error);
}

int SwitchSimulator::playTraceAtPace(const std::string& path, double pace, std::string& error, std::size_t first,
                                     const std::atomic<bool>* stop, long long maxGapSeconds) {
  std::vector<std::string> events, stamps;
  if (!readTrace(path, events, stamps, error)) return -1;
  std::vector<long long> seconds(stamps.size());
  for (std::size_t i = first; i < stamps.size(); ++i)
    if (!stampSeconds(stamps[i], seconds[i])) {
      error = path + ": event " + std::to_string(i) + " has at=\"" + stamps[i] +
              "\", not a time YYYY-MM-DDThh:mm:ss to pace it by";
      return -1;
    }
  // Each event's time in the trace from the first one played, long pauses cut to maxGapSeconds.
  std::vector<long long> offset(stamps.size(), 0);
  for (std::size_t i = first + 1; i < stamps.size(); ++i) {
    const long long gap = seconds[i] - seconds[i - 1];
    offset[i] = offset[i - 1] + (maxGapSeconds > 0 ? std::min(gap, maxGapSeconds) : gap);
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  int sent = 0;
  for (std::size_t i = first; i < events.size(); ++i) {
    // Due times count from the first event, so that rounding of one wait does not add up.
    const auto due = start + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(static_cast<double>(offset[i]) / pace));
    while (Clock::now() < due) {
      if (stop != nullptr && *stop) return sent;
      std::this_thread::sleep_until(std::min(due, Clock::now() + std::chrono::milliseconds(100)));
    }
    if (!sendEvent(events[i])) {
      error = "no phone connected";
      return -1;
    }
    ++sent;
  }
  return sent;
}

bool SwitchSimulator::readTrace(const std::string& path, std::vector<std::string>& events,
                                std::vector<std::string>& stamps, std::string& error) {
  pugi::xml_document trace;
  const pugi::xml_parse_result parsed = trace.load_file(path.c_str());
  if (!parsed) {
    error = path + ": " + parsed.description();
    return false;
  }
  pugi::xml_node root = trace.document_element();
  if (std::strcmp(localName(root), "cstaTrace") != 0) {
    error = path + ": the document element is not cstaTrace";
    return false;
  }
  events.clear();
  stamps.clear();
  for (pugi::xml_node event = root.child("event"); event; event = event.next_sibling("event")) {
    pugi::xml_node content = event.first_child();
    while (content && content.type() != pugi::node_element) content = content.next_sibling();
    if (!content) continue;
    std::ostringstream xml;
    content.print(xml, "", pugi::format_raw | pugi::format_no_declaration);
    events.push_back(xml.str());
    stamps.push_back(event.attribute("at").value());
  }
  return true;
}

int SwitchSimulator::playTrace(const std::string& path, int delayMs, std::string& error, std::size_t first,
                               std::size_t end) {
  std::vector<std::string> events;
  if (!readTraceEvents(path, events, error)) return -1;
  int sent = 0;
  for (std::size_t i = first; i < std::min(end, events.size()); ++i) {
    if (sent > 0 && delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
    if (!sendEvent(events[i])) {
      error = "no phone connected";
      return -1;
    }
    ++sent;
  }
  return sent;
}

void SwitchSimulator::setEventsAfterMonitorStart(std::vector<std::string> events) {
  fw::MutexLock guard(m_impl->mutex);
  m_impl->eventsAfterMonitorStart = std::move(events);
}

void SwitchSimulator::dropConnection() {
  m_impl->onIoThread([this] {
    asio::error_code ignored;
    m_impl->acceptor.close(ignored);
    m_impl->close();
    return true;
  });
}

void SwitchSimulator::restore() {
  m_impl->onIoThread([this] {
    if (!m_impl->acceptor.is_open()) m_impl->listen();
    return true;
  });
}

bool SwitchSimulator::waitForRequest(const std::string& name, int timeoutMs, std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  Impl& d = *m_impl;
  fw::MutexLock guard(d.mutex);
  while (d.receivedCount(name) < count && d.cv.waitUntil(d.mutex, deadline)) {
  }
  return d.receivedCount(name) >= count;
}

bool SwitchSimulator::waitForConnections(std::size_t count, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  Impl& d = *m_impl;
  fw::MutexLock guard(d.mutex);
  while (d.connections < count && d.cv.waitUntil(d.mutex, deadline)) {
  }
  return d.connections >= count;
}

std::vector<SwitchSimulator::Received> SwitchSimulator::requests(const std::string& name) const {
  fw::MutexLock guard(m_impl->mutex);
  std::vector<Received> result;
  for (const Received& r : m_impl->received)
    if (r.name == name) result.push_back(r);
  return result;
}

std::string SwitchSimulator::currentMonitorId() const {
  fw::MutexLock guard(m_impl->mutex);
  return m_impl->monitorId;
}
