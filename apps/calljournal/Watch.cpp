// "calljournal watch": subscribes to the journal's changes and to the daemon's link messages,
// and prints each message as it arrives, one line each, until the daemon goes away, the time
// asked for is over (--for) or the user presses Ctrl-C.
#include <chrono>
#include <cmath>
#include <iostream>

#include "Commands.h"
#include "JournalLists.h"
#include "Management.h"
#include "Status.h"
#include "client_server/JournalClient.h"
#include "framework/JournalServiceHelper.h"

using Helper = JournalServiceHelper;

namespace cli {

int watchCommand(const Connection& c, bool json, double forSeconds) {
  fw::JournalClient client;
  std::string error, reply;
  if (!client.connect(c.address, error))
    return fail("cannot reach the journal daemon (" + error + "); is calljournald running? (--socket chooses another)");
  if (!client.call(Helper::createMethodRequest(Helper::SUBSCRIBE), reply, error))
    return fail("the journal daemon did not answer (" + error + ")");
  bool subscribed = false;
  if (!Helper::parseRespBool(reply, subscribed) || !subscribed) return fail("the journal refused the subscription");
  // The link's state comes first (the daemon sends it at once), then each change.
  // A daemon that went away meanwhile is reported below, after the messages it sent before.
  host::ManagementReply linkReply;
  if (!client.call(host::managementSubscribeLinkRequest(), reply, error) ||
      !host::parseManagementReply(reply, linkReply) || !linkReply.ok)
    std::cerr << "calljournal: the daemon sends no news of the switch link; watching the lists only\n";
  if (!json)
    std::cerr << (forSeconds > 0 ? "watching the journal for " + std::to_string(std::lround(forSeconds)) +
                                       " s; Ctrl-C stops sooner\n"
                                 : std::string("watching the journal; Ctrl-C stops\n"));
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(forSeconds));
  for (;;) {
    int waitMs = -1;  // without --for: until the daemon goes away
    if (forSeconds > 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
      if (left <= 0) return 0;
      waitMs = static_cast<int>(left);
    }
    std::string message;
    if (!client.nextEvent(message, error, waitMs)) {
      if (error.empty()) continue;
      return fail("the journal daemon closed the connection (" + error + ")");
    }
    std::string line = linkMessageLine(message, json);
    if (line.empty()) line = observerMessageLine(message, json);
    std::cout << (line.empty() ? "unreadable message: " + message : line) << std::endl;
  }
}

}  // namespace cli
