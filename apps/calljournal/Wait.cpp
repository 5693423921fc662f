// "calljournal wait": for scripts that start the daemon and go on once it serves clients. Tries
// every 100 ms to connect and have a status request answered; the socket may not exist yet.
#include <chrono>
#include <iostream>
#include <thread>

#include "Commands.h"
#include "Management.h"
#include "client_server/JournalClient.h"

namespace cli {

namespace {

constexpr auto kRetryPause = std::chrono::milliseconds(100);
// One try's limit on an answer: a daemon that accepted the connection but is busy gets this long
// before the next try (never beyond the deadline).
constexpr int kTryTimeoutMs = 2000;

// True when the daemon at `address` answered a status request; `error` says why not.
bool daemonAnswers(const std::string& address, int timeoutMs, std::string& error) {
  fw::JournalClient client;
  if (!client.connect(address, error)) return false;
  std::string text;
  if (!client.call(host::managementStatusRequest(), text, error, timeoutMs)) {
    if (error.empty()) error = "no answer";
    return false;
  }
  host::ManagementReply reply;
  if (host::parseManagementReply(text, reply)) return true;
  error = "the answer was no status";
  return false;
}

}  // namespace

int waitCommand(const Connection& c, int timeoutSeconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeoutSeconds);
  std::string error;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) break;
    if (daemonAnswers(c.address, static_cast<int>(std::min<long long>(left, kTryTimeoutMs)), error)) return 0;
    std::this_thread::sleep_for(kRetryPause);
  }
  return fail("the journal daemon at " + c.address + " did not answer within " + std::to_string(timeoutSeconds) +
              " s (last try: " + error + "); is calljournald running? (--socket chooses another)");
}

}  // namespace cli
