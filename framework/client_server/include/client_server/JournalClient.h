// A small blocking client of the client server (ClientServer.h): connects over a Unix socket or
// TCP, sends framed messages and waits for their replies. Observer messages (root element
// `journalEvent`, or `hostEvent` for the daemon's own) that arrive while a reply is awaited are
// kept, in order, for nextEvent.
//
// One thread at a time: the client has no lock of its own.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#pragma GCC visibility push(default)

namespace fw {

class JournalClient {
 public:
  JournalClient() = default;
  ~JournalClient();  // close()
  JournalClient(const JournalClient&) = delete;
  JournalClient& operator=(const JournalClient&) = delete;
  // The connection moves with the object; the one moved from is left closed.
  JournalClient(JournalClient&& other) noexcept;
  JournalClient& operator=(JournalClient&& other) noexcept;

  // "unix:/path", a plain path, or "tcp:host:port". False with a plain-language error
  // ("cannot connect to /run/x.sock: No such file or directory").
  bool connect(const std::string& address, std::string& error);
  void close();
  bool connected() const { return m_fd >= 0; }

  // Sends one message and waits for its reply; observer messages arriving meanwhile are kept for
  // nextEvent. On a time-out the reply, when it comes later, is skipped.
  bool call(const std::string& request, std::string& reply, std::string& error, int timeoutMs = 10000);
  // The next observer message; false on time-out (error empty) or a closed connection (error set).
  // A negative time-out waits without limit.
  bool nextEvent(std::string& message, std::string& error, int timeoutMs = -1);
  // One raw frame, nothing awaited (for tests).
  bool send(const std::string& message, std::string& error);

 private:
  enum class Read { kFrame, kTimeout, kFailed };
  // The next complete frame, reading from the socket until `deadlineMs` (monotonic clock, -1 none).
  Read readFrame(std::string& payload, std::string& error, long long deadlineMs);
  Read readLargeFrame(std::size_t length, std::string& payload, std::string& error, long long deadlineMs);
  // Waits until the socket has bytes (kFrame), the deadline passes or the wait fails.
  Read waitReadable(std::string& error, long long deadlineMs);
  // One recv() of at most `room` bytes; false (connection closed) when the server closed it or
  // the read failed.
  bool receive(char* into, std::size_t room, std::size_t& received, std::string& error);
  bool fail(std::string& error, const std::string& text);
  // Reads what the server sent and nobody read yet into m_buffer, without waiting.
  void keepWhatArrived();
  // Files an observer message for nextEvent and drops the late reply of a timed-out call; true
  // when `payload` is the reply a call is waiting for.
  bool isAwaitedReply(std::string& payload);

  int m_fd = -1;
  std::string m_address;
  std::string m_buffer;              // bytes received and not yet taken as frames
  std::deque<std::string> m_events;  // observer messages kept for nextEvent
  int m_repliesToSkip = 0;           // replies of calls that timed out
};

}  // namespace fw

#pragma GCC visibility pop
