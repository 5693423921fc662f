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
#include <sstream>
#include <thread>

#include "SqlRows.h"
#include "Subprocess.h"
#include "SwitchSimulator.h"
#include "client_server/JournalClient.h"
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

inline const std::string kNs = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\"";

// A callback request set (or cancelled) at the switch for `number`.
inline std::string callBack(const std::string& number, bool cancelled) {
  return "<CallBackEvent" + kNs + "><monitorCrossRefID/><originatingDevice><deviceIdentifier>N&lt;3100&gt;" +
         "</deviceIdentifier></originatingDevice><targetDevice><deviceIdentifier>N&lt;" + number +
         "&gt;</deviceIdentifier></targetDevice><callBackSetCanceled>" + (cancelled ? "true" : "false") +
         "</callBackSetCanceled></CallBackEvent>";
}

// A missed call from `number` as three events of the monitored line 3100.
inline std::vector<std::string> missedCall(const std::string& callId, const std::string& number) {
  const std::string conn = "<callID>" + callId + "</callID><deviceID>N&lt;3100&gt;</deviceID>";
  const std::string caller = "<deviceIdentifier>N&lt;" + number + "&gt;</deviceIdentifier>";
  const std::string own = "<deviceIdentifier>N&lt;3100&gt;</deviceIdentifier>";
  return {"<DeliveredEvent" + kNs + "><monitorCrossRefID/><connection>" + conn + "</connection><alertingDevice>" + own +
              "</alertingDevice><callingDevice>" + caller + "</callingDevice><calledDevice>" + own +
              "</calledDevice><lastRedirectionDevice><notRequired/></lastRedirectionDevice>"
              "<localConnectionInfo>alerting</localConnectionInfo><cause>newCall</cause></DeliveredEvent>",
          "<ConnectionClearedEvent" + kNs + "><monitorCrossRefID/><droppedConnection><callID>" + callId +
              "</callID><deviceID>N&lt;" + number + "&gt;</deviceID></droppedConnection><releasingDevice>" + caller +
              "</releasingDevice><localConnectionInfo>alerting</localConnectionInfo>"
              "<cause>normalClearing</cause></ConnectionClearedEvent>",
          "<ConnectionClearedEvent" + kNs + "><monitorCrossRefID/><droppedConnection>" + conn +
              "</droppedConnection><releasingDevice>" + own +
              "</releasingDevice>"
              "<localConnectionInfo>null</localConnectionInfo><cause>normalClearing</cause></ConnectionClearedEvent>"};
}

// The lines of `text` that hold `part`.
inline std::vector<std::string> linesWith(const std::string& text, const std::string& part) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (line.find(part) != std::string::npos) lines.push_back(line);
  return lines;
}

inline std::string lastLine(const std::string& text) {
  std::string line, last;
  std::istringstream in(text);
  while (std::getline(in, line))
    if (!line.empty()) last = line;
  return last;
}

// The rows of a database file (see sqlRows), as a set.
inline std::set<std::string> storedRows(const std::string& path, const std::string& sql) {
  const std::vector<std::string> rows = sqlRows(path, sql);
  return {rows.begin(), rows.end()};
}

class DaemonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/journal-e2e-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
    socket = dir + "/journal.sock";
    writeConfig("software-type = Velmora SIP\nsystem-identifier = 0\nserver-based-features = true\nphonebook = " +
                    std::string(EXAMPLES_DIR) + "/phonebook.csv\n",
                sim.port());
  }
  void TearDown() override {
    daemon.reset();
    std::system(("rm -rf '" + dir + "'").c_str());
  }

  // The daemon's configuration: `settings`, the switch at `switchPort` (none for 0), the phone's
  // line, the database and the client socket in the test's folder.
  void writeConfig(const std::string& settings, int switchPort = 0) {
    std::ofstream(dir + "/calljournald.conf")
        << settings << (switchPort ? "switch = 127.0.0.1:" + std::to_string(switchPort) + "\n" : std::string())
        << "monitored-device = 3100\ndatabase = " << dir << "/journal.db\nclient-socket = " << socket << "\n";
  }

  // Starts calljournald on the configuration (run by `prefix` when given, with `extra` arguments)
  // and waits until it serves clients.
  void launch(std::vector<std::string> prefix = {}, const std::vector<std::string>& extra = {}) {
    prefix.insert(prefix.end(), {CALLJOURNALD_PATH, "--config", dir + "/calljournald.conf"});
    prefix.insert(prefix.end(), extra.begin(), extra.end());
    daemon = std::make_unique<Subprocess>(prefix);
    ASSERT_TRUE(daemon->start());
    ASSERT_TRUE(eventually([&] {
      fw::JournalClient probe;
      std::string error;
      return probe.connect(socket, error);
    })) << daemon->err();
  }

  // launch(), then waits until the daemon has asked the switch for its monitor once more.
  void startDaemon(const std::vector<std::string>& prefix = {}) {
    const size_t monitors = sim.requests("MonitorStart").size();
    launch(prefix);
    ASSERT_TRUE(sim.waitForRequest("MonitorStart", 15000, monitors + 1)) << daemon->err();
  }

  void sendAll(const std::vector<std::string>& events) {
    for (const std::string& event : events) ASSERT_TRUE(sim.sendEvent(event));
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

  // The numbers of the missed entries, newest first.
  std::vector<std::string> missedNumbers() {
    const json all = lists();
    std::vector<std::string> numbers;
    for (const auto& e : all["missed"]) numbers.push_back(e["infos"][0]["number"]);
    return numbers;
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
};

inline fw::JournalClient connectTo(const std::string& socket) {
  fw::JournalClient client;
  std::string error;
  EXPECT_TRUE(client.connect(socket, error)) << error;
  return client;
}

}  // namespace e2e
