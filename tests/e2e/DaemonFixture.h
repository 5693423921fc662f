// The programs end to end over real sockets: the fixture every end-to-end test file shares. A
// scripted switch (SwitchSimulator, in this process) -> calljournald (a child process) -> calljournal
// (child processes) and clients speaking the protocol directly, on temporary files.
//
// Test files derive their own fixture from DaemonTest under a suite name ending in "DaemonTest"
// when they are to run under the thread sanitizer too (scripts/test.sh selects them by that name).
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "Subprocess.h"
#include "SwitchSimulator.h"
#include "framework/JournalClient.h"
#include "framework/JournalServiceHelper.h"

namespace e2e {

using Helper = JournalServiceHelper;
using nlohmann::json;


inline const std::string kTrace = std::string(EXAMPLES_DIR) + "/traces/office-day.xml";

// Polls `condition` every 20 ms for up to `timeoutMs`.
inline bool eventually(const std::function<bool()>& condition, int timeoutMs = 15000) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (std::chrono::steady_clock::now() < deadline) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return condition();
}

// A missed call from `number` as three events of the monitored line 3100.
inline std::vector<std::string> missedCall(const std::string& callId, const std::string& number) {
  const std::string ns = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\"";
  const std::string conn = "<callID>" + callId + "</callID><deviceID>N&lt;3100&gt;</deviceID>";
  const std::string caller = "<deviceIdentifier>N&lt;" + number + "&gt;</deviceIdentifier>";
  const std::string own = "<deviceIdentifier>N&lt;3100&gt;</deviceIdentifier>";
  return {"<DeliveredEvent" + ns + "><monitorCrossRefID/><connection>" + conn + "</connection><alertingDevice>" + own +
              "</alertingDevice><callingDevice>" + caller + "</callingDevice><calledDevice>" + own +
              "</calledDevice><lastRedirectionDevice><notRequired/></lastRedirectionDevice>"
              "<localConnectionInfo>alerting</localConnectionInfo><cause>newCall</cause></DeliveredEvent>",
          "<ConnectionClearedEvent" + ns + "><monitorCrossRefID/><droppedConnection><callID>" + callId +
              "</callID><deviceID>N&lt;" + number + "&gt;</deviceID></droppedConnection><releasingDevice>" + caller +
              "</releasingDevice><localConnectionInfo>alerting</localConnectionInfo>"
              "<cause>normalClearing</cause></ConnectionClearedEvent>",
          "<ConnectionClearedEvent" + ns + "><monitorCrossRefID/><droppedConnection>" + conn +
              "</droppedConnection><releasingDevice>" + own +
              "</releasingDevice>"
              "<localConnectionInfo>null</localConnectionInfo><cause>normalClearing</cause></ConnectionClearedEvent>"};
}

class DaemonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/journal-e2e-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
    socket = dir + "/journal.sock";
    std::ofstream(dir + "/calljournald.conf")
        << "software-type = Velmora SIP\nsystem-identifier = 0\nserver-based-features = true\n"
        << "switch = 127.0.0.1:" << sim.port() << "\nmonitored-device = 3100\n"
        << "database = " << dir << "/journal.db\nclient-socket = " << socket << "\n"
        << "phonebook = " << EXAMPLES_DIR << "/phonebook.csv\n";
  }
  void TearDown() override {
    daemon.reset();
    std::system(("rm -rf '" + dir + "'").c_str());
  }

  void startDaemon() {
    daemon = std::make_unique<Subprocess>(
        std::vector<std::string>{CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf"});
    ASSERT_TRUE(daemon->start());
    ASSERT_TRUE(eventually([&] {
      fw::JournalClient probe;
      std::string error;
      return probe.connect(socket, error);
    })) << daemon->err();
    ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000, ++monitorStarts)) << daemon->err();
  }

  Subprocess::Result cli(std::vector<std::string> args) {
    args.insert(args.begin(), {CALLJOURNAL_PATH, "--socket", socket});
    return Subprocess::run(args);
  }

  json lists() {
    Subprocess::Result r = cli({"list", "--json"});
    EXPECT_EQ(r.code, 0) << r.err;
    return r.code == 0 ? json::parse(r.out) : json();
  }

  // Which parties each list holds, as "list:number" texts. The switch here sends the day's events
  // within a second, so occurrences that the trace spreads over hours share one time stamp: the
  // counts of occurrences are the replay's business, not this comparison's.
  static std::set<std::string> shape(const json& j) {
    std::set<std::string> out;
    for (const char* list : {"missed", "received", "dialled", "forwarded"})
      for (const auto& e : j[list]) out.insert(std::string(list) + ":" + e["infos"][0]["number"].get<std::string>());
    return out;
  }

  void playDay() {
    std::string error;
    ASSERT_GT(sim.playTrace(kTrace, 0, error), 0) << error;
  }

  std::string dir, socket;
  SwitchSimulator sim;
  std::unique_ptr<Subprocess> daemon;
  size_t monitorStarts = 0;
};

inline fw::JournalClient connectTo(const std::string& socket) {
  fw::JournalClient client;
  std::string error;
  EXPECT_TRUE(client.connect(socket, error)) << error;
  return client;
}

}  // namespace e2e
