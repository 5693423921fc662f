// Entry ids: `calljournal replay` of the sample office day and of a busy day of 2,000 calls in a
// few seconds on hexadecimal call ids gives every entry an id of its own; a phone started on the
// database it kept then marks and deletes, for each id taken from the replay's JSON, exactly the
// entry of that id.
#include <unistd.h>

#include <cstdio>
#include <set>

#include "TraceDay.h"

namespace {

using namespace scenario;

const std::string kNs = " xmlns=\"http://www.ecma-international.org/standards/ecma-323/csta/ed4\"";

std::string device(const std::string& number) { return "<deviceIdentifier>N&lt;" + number + "&gt;</deviceIdentifier>"; }
std::string connection(const std::string& callId) {
  return "<callID>" + callId + "</callID><deviceID>N&lt;3100&gt;</deviceID>";
}
std::string step(const std::string& at, const std::string& element, const std::string& body) {
  return "<event at=\"" + at + "\"><" + element + kNs + "><monitorCrossRefID>1</monitorCrossRefID>" + body + "</" +
         element + "></event>\n";
}

// A busy day: `calls` calls, 500 a second, from and to 900 parties: missed, answered and dialled
// calls on hexadecimal call ids, and failed calls that the switch reports under call id "0".
std::string busyDay(int calls) {
  std::string trace = "<cstaTrace>\n";
  for (int i = 0; i < calls; ++i) {
    char at[32], callId[40];
    std::snprintf(at, sizeof at, "2026-04-02T09:00:%02d", i / 500);
    std::snprintf(callId, sizeof callId, "FF00010000000000EC6114647E57%04X", i);
    const std::string party = device(std::to_string(600000 + (i * 37) % 900)), own = device("3100");
    const std::string cleared =
        step(at, "ConnectionClearedEvent",
             "<droppedConnection>" + connection(callId) +
                 "</droppedConnection><localConnectionInfo>null</localConnectionInfo><cause>normalClearing</cause>");
    switch (i % 4) {
      case 0:  // rings unanswered
      case 1:  // answered
        trace += step(at, "DeliveredEvent",
                      "<connection>" + connection(callId) + "</connection><alertingDevice>" + own +
                          "</alertingDevice><callingDevice>" + party + "</callingDevice><calledDevice>" + own +
                          "</calledDevice><localConnectionInfo>alerting</localConnectionInfo>");
        if (i % 4 == 1)
          trace += step(at, "EstablishedEvent",
                        "<establishedConnection>" + connection(callId) + "</establishedConnection><answeringDevice>" +
                            own + "</answeringDevice><callingDevice>" + party + "</callingDevice><calledDevice>" + own +
                            "</calledDevice><localConnectionInfo>connected</localConnectionInfo>");
        trace += cleared;
        break;
      case 2:  // dialled
        trace += step(at, "OriginatedEvent",
                      "<originatedConnection>" + connection(callId) + "</originatedConnection><callingDevice>" + own +
                          "</callingDevice><calledDevice>" + party + "</calledDevice>");
        trace += step(at, "DeliveredEvent",
                      "<connection>" + connection(callId) + "</connection><alertingDevice>" + party +
                          "</alertingDevice><callingDevice>" + own + "</callingDevice><calledDevice>" + party +
                          "</calledDevice><localConnectionInfo>connected</localConnectionInfo>");
        trace += cleared;
        break;
      default:  // the line was busy
        trace += step(at, "FailedEvent",
                      "<failedConnection>" + connection("0") + "</failedConnection><callingDevice>" + party +
                          "</callingDevice><calledDevice>" + own + "</calledDevice><cause>busy</cause>");
    }
  }
  return trace + "</cstaTrace>\n";
}

class EntryIds : public TraceDay {
 protected:
  void TearDown() override {
    TraceDay::TearDown();
    if (!memoryDir.empty()) std::filesystem::remove_all(memoryDir);
  }

  // Replays `trace` with calljournal, keeping its database (in memory where the system has a
  // memory file system: these tests are about ids, not about the disk); the ids of its JSON
  // lists, which must all differ. The phone of this process then starts on that database.
  std::vector<std::pair<std::string, std::string>> replayAndStartOnIt(const std::string& trace,
                                                                      const std::string& software,
                                                                      const std::vector<std::string>& extra = {}) {
    std::string database = dir + "/replayed.db";
    std::string pattern = "/dev/shm/journal-ids-XXXXXX";
    if (access("/dev/shm", W_OK) == 0 && mkdtemp(pattern.data())) {
      memoryDir = pattern;
      database = memoryDir + "/replayed.db";
    }
    const auto ids = idsOf(replayWithCli(trace, software, database, extra));
    std::set<std::string> distinct, repeated, malformed;
    for (const auto& [id, kind] : ids) {
      if (!distinct.insert(id).second) repeated.insert(id);
      if (id.size() != 28 || id[19] != 'Z' || id.find_first_not_of("0123456789ABCDEF", 20) != std::string::npos)
        malformed.insert(id);  // not a time stamp and eight upper-case hexadecimal digits
    }
    EXPECT_EQ(repeated.size(), 0u) << "ids given more than once, such as " << *repeated.begin();
    EXPECT_EQ(malformed, std::set<std::string>{});
    reopenStore(database);
    start(software);
    return ids;
  }

  unsigned unviewed() { return phone->service->countUnviewedMissedCalls(); }

  std::string memoryDir;

  // Each missed id marked viewed marks its entry alone; each id deleted (a missed one by the
  // missed list's request, the others by deleteCalls) deletes its entry alone. With `everyStep`
  // the whole lists are compared after each step, else what the screen is told.
  void eachIdActsOnItsEntryAlone(const std::vector<std::pair<std::string, std::string>>& ids, bool everyStep) {
    ASSERT_FALSE(ids.empty());
    Lines ours;
    for (const auto& s : entries()) ours.push_back(s.entryId);
    Lines theirs;
    for (const auto& [id, kind] : ids) theirs.push_back(id);
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    ASSERT_EQ(ours, theirs) << "the phone did not read back the lists calljournal printed";

    for (const auto& [id, kind] : ids) {
      if (kind != "missed") continue;
      const unsigned before = unviewed();
      EXPECT_TRUE(phone->service->setMissedCallListAsViewed({id}));
      const unsigned after = unviewed();
      EXPECT_EQ(after, before - 1) << "marking " << id << " viewed";
      if (after != before - 1) break;  // one report is enough
    }
    screen.take();
    auto remaining = entries();
    for (const auto& [id, kind] : ids) {
      const bool deleted = kind == "missed" ? phone->service->deleteMissedCall(id) : phone->service->deleteCalls({id});
      EXPECT_TRUE(deleted) << id;
      remaining.erase(
          std::remove_if(remaining.begin(), remaining.end(), [&id = id](const Shown& s) { return s.entryId == id; }),
          remaining.end());
      if (everyStep) {
        const Lines left = kept(entries());
        EXPECT_EQ(left, kept(remaining)) << "after deleting " << id;
        if (left != kept(remaining)) return;
      } else {
        // The screen hears of the deletion of this id, in its list, and of no other.
        Lines deletions;
        for (const std::string& call : screen.take())
          if (call.size() > 2 && call.compare(call.size() - 2, 2, "|2") == 0)
            deletions.push_back(call.substr(0, call.find(' ')) + " " + call.substr(call.find('|')));
        EXPECT_EQ(deletions, Lines{kind + " |" + id + "|2"});
        if (deletions != Lines{kind + " |" + id + "|2"}) return;
      }
    }
    EXPECT_EQ(entries().size(), 0u);
    EXPECT_EQ(stored(), Lines{});
    // An id that names no entry deletes and marks nothing.
    EXPECT_FALSE(phone->service->deleteCalls({ids.front().first}));
    EXPECT_FALSE(phone->service->deleteMissedCall(ids.front().first));
  }
};

TEST_F(EntryIds, OfTheOfficeDayEachNameOneEntry) {
  const auto ids =
      replayAndStartOnIt(EXAMPLES_DIR "/traces/office-day.xml", kSip, {"--phonebook", EXAMPLES_DIR "/phonebook.csv"});
  EXPECT_EQ(ids.size(), 9u);
  eachIdActsOnItsEntryAlone(ids, true);
}

class BusyDay : public EntryIds, public ::testing::WithParamInterface<std::string> {};

TEST_P(BusyDay, OfTwoThousandCallsInFourSecondsEachNameOneEntry) {
  const std::string trace = dir + "/busy-day.xml";
  std::ofstream(trace) << busyDay(2000);
  const auto ids = replayAndStartOnIt(trace, GetParam());
  // Hundreds of entries were made within one second.
  std::map<std::string, int> perSecond;
  for (const auto& [id, kind] : ids) ++perSecond[id.substr(0, 20)];
  EXPECT_GT(std::max_element(perSecond.begin(), perSecond.end(), [](auto& a, auto& b) { return a.second < b.second; })
                ->second,
            200);
  eachIdActsOnItsEntryAlone(ids, false);
}

INSTANTIATE_TEST_SUITE_P(Both, BusyDay, ::testing::Values(kKpx, kSip), flavourName);

}  // namespace
