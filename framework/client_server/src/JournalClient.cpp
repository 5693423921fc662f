// The blocking client of the client server: POSIX sockets, poll() for the time-outs.
#include "client_server/JournalClient.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>

#include "ClientMessages.h"

namespace fw {

namespace {

// A frame larger than this is taken for a broken stream rather than allocated.
constexpr std::size_t kMaxIncomingFrame = 64u << 20;
// A frame from this size up is received straight into its payload.
constexpr std::size_t kDirectFrame = 64u << 10;

long long nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

long long deadlineAfter(int timeoutMs) { return timeoutMs < 0 ? -1 : nowMs() + timeoutMs; }

// The journal's observer messages and the host's own (its link messages) come unasked.
bool isEvent(const std::string& payload) {
  const std::string root = clientserver::rootElementName(payload);
  return root == "journalEvent" || root == "hostEvent";
}

int connectUnix(const std::string& path, std::string& reason) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    reason = "the path is too long";
    return -1;
  }
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    reason = std::strerror(errno);
    if (fd >= 0) ::close(fd);
    return -1;
  }
  return fd;
}

int connectTcp(const std::string& hostPort, std::string& reason) {
  const std::size_t colon = hostPort.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == hostPort.size()) {
    reason = "the address is not host:port";
    return -1;
  }
  std::string host = hostPort.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int rc = ::getaddrinfo(host.c_str(), hostPort.substr(colon + 1).c_str(), &hints, &found);
  if (rc != 0) {
    reason = ::gai_strerror(rc);
    return -1;
  }
  int fd = -1;
  reason = "no address";
  for (addrinfo* at = found; at && fd < 0; at = at->ai_next) {
    fd = ::socket(at->ai_family, at->ai_socktype | SOCK_CLOEXEC, at->ai_protocol);
    if (fd >= 0 && ::connect(fd, at->ai_addr, at->ai_addrlen) != 0) {
      reason = std::strerror(errno);
      ::close(fd);
      fd = -1;
    }
  }
  ::freeaddrinfo(found);
  return fd;
}

}  // namespace

JournalClient::JournalClient(JournalClient&& other) noexcept { *this = std::move(other); }

JournalClient& JournalClient::operator=(JournalClient&& other) noexcept {
  if (this != &other) {
    close();
    m_fd = other.m_fd;
    other.m_fd = -1;
    m_address = std::move(other.m_address);
    m_buffer = std::move(other.m_buffer);
    m_events = std::move(other.m_events);
    m_repliesToSkip = other.m_repliesToSkip;
  }
  return *this;
}

JournalClient::~JournalClient() { close(); }

bool JournalClient::connect(const std::string& address, std::string& error) {
  close();
  std::string reason;
  if (address.compare(0, 4, "tcp:") == 0) {
    m_address = address.substr(4);
    m_fd = connectTcp(m_address, reason);
  } else {
    m_address = address.compare(0, 5, "unix:") == 0 ? address.substr(5) : address;
    m_fd = connectUnix(m_address, reason);
  }
  if (m_fd < 0) {
    error = "cannot connect to " + m_address + ": " + reason;
    return false;
  }
  error.clear();
  return true;
}

void JournalClient::close() {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  m_buffer.clear();
  m_events.clear();
  m_repliesToSkip = 0;
}

bool JournalClient::fail(std::string& error, const std::string& text) {
  error = text;
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
  return false;
}

bool JournalClient::send(const std::string& message, std::string& error) {
  if (m_fd < 0) {
    error = "not connected";
    return false;
  }
  const auto length = static_cast<uint32_t>(message.size());
  std::string framed = {static_cast<char>(length >> 24), static_cast<char>((length >> 16) & 0xff),
                        static_cast<char>((length >> 8) & 0xff), static_cast<char>(length & 0xff)};
  framed += message;
  std::size_t sent = 0;
  while (sent < framed.size()) {
    const ssize_t n = ::send(m_fd, framed.data() + sent, framed.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const std::string reason = std::strerror(errno);
      keepWhatArrived();
      return fail(error, "cannot send to " + m_address + ": " + reason);
    }
    sent += static_cast<std::size_t>(n);
  }
  error.clear();
  return true;
}

// A server that closed the connection may have sent messages before it did; they are read into
// the buffer before the socket is closed, so that nextEvent still gives them.
void JournalClient::keepWhatArrived() {
  char chunk[65536];
  for (ssize_t n; (n = ::recv(m_fd, chunk, sizeof chunk, MSG_DONTWAIT)) > 0;)
    m_buffer.append(chunk, static_cast<std::size_t>(n));
}

JournalClient::Read JournalClient::waitReadable(std::string& error, long long deadlineMs) {
  for (;;) {
    if (m_fd < 0) {
      error = "not connected";
      return Read::kFailed;
    }
    int waitMs = -1;
    if (deadlineMs >= 0) {
      const long long left = deadlineMs - nowMs();
      if (left <= 0) return Read::kTimeout;
      waitMs = static_cast<int>(left);
    }
    pollfd pfd{m_fd, POLLIN, 0};
    const int ready = ::poll(&pfd, 1, waitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) {
      fail(error, std::string("cannot wait for the server: ") + std::strerror(errno));
      return Read::kFailed;
    }
    if (ready > 0) return Read::kFrame;
  }
}

bool JournalClient::receive(char* into, std::size_t room, std::size_t& received, std::string& error) {
  for (;;) {
    const ssize_t n = ::recv(m_fd, into, room, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      return fail(error, n == 0 ? "the server at " + m_address + " closed the connection"
                                : "cannot read from " + m_address + ": " + std::strerror(errno));
    }
    received = static_cast<std::size_t>(n);
    return true;
  }
}

// A large frame (a full list's reply is megabytes) is received straight into its payload: no
// chunk copied into the buffer and no header moved off its front. On a time-out or a failure what
// arrived goes back into the buffer, as the chunked reading would have left it.
JournalClient::Read JournalClient::readLargeFrame(std::size_t length, std::string& payload, std::string& error,
                                                  long long deadlineMs) {
  std::string frame(length, '\0');
  std::size_t have = m_buffer.size() - 4;
  std::memcpy(&frame[0], m_buffer.data() + 4, have);
  std::string header = m_buffer.substr(0, 4);
  m_buffer.clear();
  m_buffer.shrink_to_fit();
  Read read = Read::kFrame;
  while (have < length) {
    read = waitReadable(error, deadlineMs);
    std::size_t received = 0;
    if (read == Read::kFrame && !receive(&frame[have], length - have, received, error)) read = Read::kFailed;
    if (read != Read::kFrame) {
      m_buffer = std::move(header);
      m_buffer.append(frame, 0, have);
      return read;
    }
    have += received;
  }
  payload = std::move(frame);
  return Read::kFrame;
}

JournalClient::Read JournalClient::readFrame(std::string& payload, std::string& error, long long deadlineMs) {
  for (;;) {
    if (m_buffer.size() >= 4) {
      const auto* b = reinterpret_cast<const unsigned char*>(m_buffer.data());
      const std::size_t length =
          (std::size_t{b[0]} << 24) | (std::size_t{b[1]} << 16) | (std::size_t{b[2]} << 8) | b[3];
      if (length > kMaxIncomingFrame) {
        fail(error, "the server at " + m_address + " sent a frame of " + std::to_string(length) + " bytes");
        return Read::kFailed;
      }
      if (m_buffer.size() >= 4 + length) {
        if (m_buffer.size() == 4 + length) {
          // The buffer holds this frame alone and becomes the payload.
          m_buffer.erase(0, 4);
          payload = std::move(m_buffer);
          m_buffer.clear();
        } else {
          payload = m_buffer.substr(4, length);
          m_buffer.erase(0, 4 + length);
        }
        return Read::kFrame;
      }
      if (length >= kDirectFrame) return readLargeFrame(length, payload, error, deadlineMs);
    }
    const Read ready = waitReadable(error, deadlineMs);
    if (ready != Read::kFrame) return ready;
    char chunk[65536];
    std::size_t received = 0;
    if (!receive(chunk, sizeof chunk, received, error)) return Read::kFailed;
    m_buffer.append(chunk, received);
  }
}

bool JournalClient::isAwaitedReply(std::string& payload) {
  if (isEvent(payload)) {
    m_events.push_back(std::move(payload));
    return false;
  }
  if (m_repliesToSkip > 0) {
    --m_repliesToSkip;  // the late reply of a call that timed out
    return false;
  }
  return true;
}

bool JournalClient::call(const std::string& request, std::string& reply, std::string& error, int timeoutMs) {
  if (!send(request, error)) return false;
  const long long deadline = deadlineAfter(timeoutMs);
  std::string payload;
  for (;;) {
    switch (readFrame(payload, error, deadline)) {
      case Read::kFailed:
        return false;
      case Read::kTimeout:
        ++m_repliesToSkip;
        error = "no reply from " + m_address + " within " + std::to_string(timeoutMs) + " ms";
        return false;
      case Read::kFrame:
        break;
    }
    if (isAwaitedReply(payload)) {
      reply = std::move(payload);
      error.clear();
      return true;
    }
  }
}

bool JournalClient::nextEvent(std::string& message, std::string& error, int timeoutMs) {
  error.clear();
  const long long deadline = deadlineAfter(timeoutMs);
  std::string payload;
  while (m_events.empty()) {
    if (readFrame(payload, error, deadline) != Read::kFrame) return false;
    isAwaitedReply(payload);  // no call awaits a reply here: only events and late replies come
  }
  message = std::move(m_events.front());
  m_events.pop_front();
  return true;
}

}  // namespace fw
