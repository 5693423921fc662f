// Conferences, the switch's own call log, callbacks and system status, driven through deliverEvent.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ScenarioFixture.h"

namespace {

using namespace scenario;
using E = CallLogEntryEvent;
using CB = CSTACallBackEvent;

// Call `id` with party "5" + `id`, first reported when they already talk: tracked as incoming.
Script talking(std::initializer_list<const char*> ids) {
  Script out;
  for (const char* id : ids) out.push_back({0, csta::established(id, dev(std::string("5") + id), kLine, kLine)});
  return out;
}
Script joined(const std::string& conferenceId, const std::string& a, const std::string& b) {
  return {{0, csta::conferenced(conferenceId, {a, dev("5" + a)}, {b, dev("5" + b)})}};
}
// The connection of `device` in the conference call `id` was cleared.
Script left(const std::string& id, const std::string& device, int wait = 0) {
  return {{wait, csta::cleared(id, EC_NONE, device)}};
}

class Journal : public Scenario {
 protected:
  void send(std::unique_ptr<CSTAEvent> event) { phone->service->deliverEvent(event.get()); }
  int tracked() { return phone->service->countTrackedCalls(); }
  // The numbers of all entries, list by list and newest first, then how many calls are still tracked.
  std::string state() {
    std::string out;
    for (const auto& s : entries()) out += s.number + " ";
    return out + "| " + std::to_string(tracked());
  }
};

class Conference : public Journal, public ::testing::WithParamInterface<std::string> {};

// The user answers a caller, dials a second party and joins both; the parties leave one by one.
TEST_P(Conference, EachMemberCallEndsInItsOwnEntryWhenItsLegLeaves) {
  start(GetParam());
  // A KPX switch names the leaving party's device; a SIP switch the conference leg "D" + old call.
  const std::string legOfCaller = GetParam() == kSip ? "D21" : "555", legOfCallee = GetParam() == kSip ? "D22" : "200";
  const std::string caller = R"(received "Net Caller" <555> @+0s for 01:38 x1)",
                    callee = R"(dialled "Net B" <200> @+10s for 01:05 x1)";
  const std::tuple<Script, Lines, int> steps[] = {
      {ringing("21", kCaller) + Script{{2, csta::established("21", kCaller, kLine, kLine)}} +
           dialling("22", kCallee, 8) + Script{{5, csta::established("22", kLine, kCallee, kCallee)}} +
           Script{{5, csta::conferenced("23", {"21", kCaller}, {"22", kCallee})}},
       {},
       2},
      {left("23", legOfCallee, 60), {callee}, 1},  // the caller is still in the conference
      {left("23", legOfCaller, 20), {caller, callee}, 0},
      // The conference is over: a later call under its identifier ends as a plain call.
      {ringing("23", kCallee, 10) + clearing("23", 5), {R"(missed "Net B" <200> @+110s x1)", caller, callee}, 0}};
  for (const auto& [script, shown, calls] : steps) {
    play(script);
    EXPECT_EQ(lines(entries()), shown);
    EXPECT_EQ(tracked(), calls);
  }
  EXPECT_EQ(kept(entries()), stored());
}

INSTANTIATE_TEST_SUITE_P(Both, Conference, ::testing::Values(kKpx, kSip),
                         [](const auto& info) { return info.param == kSip ? "Sip" : "Kpx"; });

// (Several conferences at once: the conference traces.) A KPX conference that grows takes in every
// call that joins it, the second one too.
TEST_F(Journal, KpxConferenceThatGrowsEndsEveryCallThatJoinedIt) {
  start(kKpx);
  play(talking({"47", "48", "49"}) + joined("33", "47", "48") + joined("33", "33", "49") + left("33", csta::kOwnLine));
  EXPECT_EQ(state(), "549 548 547 | 0");
  EXPECT_EQ(kept(entries()), stored());
}

const std::string kAt120 = "2024-03-05T07:10:09", kAt150 = "2024-03-05T07:10:39", kAt180 = "2024-03-05T07:11:09",
                  kAt200 = "2024-03-05T07:11:29", kAt240 = "2024-03-05T07:12:09", kAt260 = "2024-03-05T07:12:29";

TEST_F(Journal, ServerCallLogAddsAndDeletesEntriesAndCleansUpMissedEntries) {
  start(kKpx);
  // Private events of another type are ignored (the lists below would also show them).
  for (int type : {CSTAPrivateEvent::kPrivateEventUnknown, 1, 7})
    for (auto target : {E::LT_MISSED, E::LT_RECEIVED})
      send(csta::callLogEntry(E::ACTION_ADD, target, kCaller, kAt120, {}, {}, type));
  EXPECT_EQ(screen.take(), Lines{});
  send(csta::callLogEntry(E::ACTION_ADD, E::LT_MISSED, kCaller, kAt120, dev("7000")));
  send(csta::callLogEntry(E::ACTION_ADD, E::LT_MISSED, kCaller, kAt120, dev("7000")));  // the same again: no change
  send(csta::callLogEntry(E::ACTION_ADD, E::LT_MISSED_OTHER, kCallee, kAt150));
  send(csta::callLogEntry(E::ACTION_ADD, E::LT_MISSED, dev("4711", "Net D"), kAt200));
  // A dialled entry of target 6 leaves the party's missed entry alone.
  send(csta::callLogEntry(E::ACTION_ADD, E::LT_DIALLED_OTHER, dev("4711", "Net D"), kAt180, {}, dev("201", "Net C")));
  auto shown = entries();
  ASSERT_EQ(lines(shown), (Lines{R"(missed "Net D" <4711> @+200s x1)", R"(missed "Net B" <200> @+150s x1)",
                                 R"(missed "Net Caller" <555> @+120s to <7000> x1)",
                                 R"(dialled "Net D" <4711> @+180s to <201> x1)"}));
  const std::string missedOfCaller = shown[2].uniqueId;
  std::deque<MissedCallItem> missed;
  phone->service->getMissedCallList(missed);
  const auto& info = missed.back().infos().front();  // the server's values are passed on; the diverter had no name
  EXPECT_EQ(E::LT_MISSED, info.logTarget);
  EXPECT_EQ(E::PV_SHOWN, info.CallInfo::numberPresentation);
  EXPECT_EQ(E::PV_SHOWN, info.CallInfo::namePresentation);
  EXPECT_EQ(E::PV_SHOWN, info.Deflect::numberPresentation);
  EXPECT_EQ(E::PV_NONE, info.Deflect::namePresentation);
  screen.take();

  // A received call from a party removes the party's missed entry, after it is filed.
  send(csta::callLogEntry(E::ACTION_ADD, E::LT_RECEIVED, kCaller, kAt240));
  shown = entries();
  EXPECT_EQ(state(), "4711 200 555 4711 | 0");
  EXPECT_EQ(lines(shown)[2], R"(received "Net Caller" <555> @+240s x1)");
  EXPECT_EQ(screen.take(),
            (Lines{"received " + shown[2].entryId + "||0", "missedCount 2", "missed |" + missedOfCaller + "|2"}));
  // So does a dialled call of target 4.
  send(csta::callLogEntry(E::ACTION_ADD, E::LT_DIALLED, kCallee, kAt260));
  EXPECT_EQ(state(), "4711 555 200 4711 | 0");
  EXPECT_EQ(kept(entries()), stored());

  for (const auto& [target, party, at] : {std::tuple{E::LT_DIALLED, kCallee, kAt260},
                                          {E::LT_RECEIVED, kCaller, kAt240},
                                          {E::LT_DIALLED_OTHER, dev("4711"), kAt180},
                                          {E::LT_MISSED_OTHER, dev("4711"), kAt200}})
    send(csta::callLogEntry(E::ACTION_DELETE, target, party, at));
  EXPECT_EQ(lines(entries()), Lines{});
  EXPECT_EQ(stored(), Lines{});
}

// The nice value is process-wide: each case runs in a child process of its own. From 14 on the
// journal asks for 20, which the system caps at its lowest priority, PRIO_MAX - 1 (19).
class NiceValue : public ::testing::TestWithParam<std::pair<int, int>> {};

// A screen that notes the process's nice value when it is told of the new missed entry.
struct NiceProbe : RecordingObserver {
  void missedCallsUpdate(MissedCallItem item, std::string id, ActionType action) override {
    during = getpriority(PRIO_PROCESS, 0);
    RecordingObserver::missedCallsUpdate(std::move(item), std::move(id), action);
  }
  int during = -100;
};

TEST_P(NiceValue, IsRaisedWhileTheCallLogEntryIsFiledAndRestoredAfterwards) {
  const auto [before, during] = GetParam();
  constexpr int kNoPrivilege = 77, kNotRaised = 1, kNotRestored = 2;
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    // Going back to a lower nice value needs the privilege the journal's restore needs.
    if (setpriority(PRIO_PROCESS, 0, before + 1) != 0 || setpriority(PRIO_PROCESS, 0, before) != 0) _exit(kNoPrivilege);
    JournalHarness phone({{"software-type", kKpx}});
    phone.start();
    NiceProbe probe;
    phone.service->subscribe(&probe);
    phone.service->deliverEvent(csta::callLogEntry(E::ACTION_ADD, E::LT_MISSED, kCaller, kAt120).get());
    _exit((probe.during == during ? 0 : kNotRaised) | (getpriority(PRIO_PROCESS, 0) == before ? 0 : kNotRestored));
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
  if (WEXITSTATUS(status) == kNoPrivilege) GTEST_SKIP() << "lowering the nice value is not permitted";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: not raised to " << during << ", 2: not restored to " << before;
}

// A daemon that does not run as root may lower its priority but not raise it again: the thread that
// delivers the switch's call-log entries must keep its own priority anyway, entry after entry.
TEST(NiceValueOfAnOrdinaryUser, StaysWhatItWasAfterManyCallLogEntries) {
  constexpr int kNoUser = 77;
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    if (getuid() == 0 && setuid(65534) != 0) _exit(kNoUser);
    const int before = getpriority(PRIO_PROCESS, 0);
    JournalHarness phone({{"software-type", kKpx}});
    phone.start();
    for (int n = 0; n < 20; ++n)
      phone.service->deliverEvent(
          csta::callLogEntry(E::ACTION_ADD, E::LT_MISSED, dev(std::to_string(4000 + n)), kAt120).get());
    _exit(std::min(getpriority(PRIO_PROCESS, 0) - before + 1, 60));  // 1: unchanged
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "status " << status;
  if (WEXITSTATUS(status) == kNoUser) GTEST_SKIP() << "cannot become an ordinary user";
  EXPECT_EQ(WEXITSTATUS(status) - 1, 0) << "the nice value went up by this much";
}

INSTANTIATE_TEST_SUITE_P(Starts, NiceValue,
                         ::testing::Values(std::pair{10, 15}, std::pair{13, 18}, std::pair{14, PRIO_MAX - 1},
                                           std::pair{17, PRIO_MAX - 1}),
                         [](const auto& info) { return "From" + std::to_string(info.param.first); });

TEST_F(Journal, CallbacksAreAddedUpdatedDeletedAndCleared) {
  start(kKpx);
  const auto callbacks = [&] {
    std::deque<CallBackItem> list;
    phone->service->getCallBackList(list);
    Lines out;
    for (const auto& c : list)
      out.push_back(c.getEntryId() + " \"" + (c.getFirstname().empty() ? "" : c.getFirstname() + " ") + c.getSurname() +
                    "\" type " + std::to_string(c.getCallBackType()) + " state " +
                    std::to_string(c.getCallBackState()) + " by " + c.getDeviceId() + " " +
                    sinceStart(c.getTimeDate()));
    return out;
  };
  const auto update = [](const std::string& n, int a) { return "callbacks " + n + "|" + n + "|" + std::to_string(a); };
  const std::string annaMoved = R"(+4930555100 "Anna Berg" type 2 state 1 by 3101 @+60s)";
  send(csta::callBack(kAnnaOffice, CB::CB_TYPE_NO_REPLY, CB::CB_STATE_SET));
  play({{30, csta::callBack(kCallee, CB::CB_TYPE_BUSY, CB::CB_STATE_WAITING)}});
  EXPECT_EQ(callbacks(), (Lines{R"(200 "Net B" type 1 state 1 by 3100 @+30s)",
                                R"(+4930555100 "Anna Berg" type 2 state 1 by 3100 @+0s)"}));
  EXPECT_EQ(screen.take(), (Lines{update("+4930555100", 0), "callbackCount 1", update("200", 0), "callbackCount 2"}));

  // Values that map to nothing keep the earlier type and state; the entry moves up.
  play({{30, csta::callBack(dev(kAnnaOffice.number, "Someone"), CB::CB_TYPE_NONE, 9, "3101")}});
  EXPECT_EQ(callbacks(), (Lines{annaMoved, R"(200 "Net B" type 1 state 1 by 3100 @+30s)"}));
  play({{30, csta::callBack(dev("200", "Another Name"), CB::CB_TYPE_NO_REPLY, CB::CB_STATE_READY)}});  // keeps its name
  EXPECT_EQ(callbacks(), (Lines{R"(200 "Net B" type 2 state 2 by 3100 @+90s)", annaMoved}));
  EXPECT_EQ(screen.take(), (Lines{update("+4930555100", 1), update("200", 1)}));  // the count did not change

  send(csta::callBack(dev(""), CB::CB_TYPE_NONE, CB::CB_STATE_READY));  // no number: only a cancel clears all
  send(csta::callBack(kCallee, CB::CB_TYPE_BUSY, CB::CB_STATE_CANCELLED));
  EXPECT_EQ(callbacks(), (Lines{annaMoved}));
  send(csta::callBack(dev(""), CB::CB_TYPE_NONE, CB::CB_STATE_CANCELLED));
  EXPECT_EQ(callbacks(), Lines{});
  EXPECT_EQ(screen.take(), (Lines{"callbacks |200|2", "callbackCount 1", "callbacks ||3", "callbackCount 0"}));
}

// A callback is named by its number, which the switch chooses: one that reads like the id of an
// entry of the call lists gets an id of its own, and the switch's cancel by number still finds it.
TEST_F(Journal, ACallbackWhoseNumberIsAnEntryIdGetsAnIdOfItsOwn) {
  start(kKpx);
  play(ringing("21", kCaller) + clearing("21", 20));
  const std::string missedId = entries().at(0).entryId;
  const auto callbackIds = [&] {
    std::deque<CallBackItem> list;
    phone->service->getCallBackList(list);
    Lines ids;
    for (const auto& c : list) ids.push_back(c.getEntryId() + " <" + c.getNumber() + ">");
    return ids;
  };
  send(csta::callBack(dev(missedId), CB::CB_TYPE_BUSY, CB::CB_STATE_SET));
  ASSERT_EQ(callbackIds().size(), 1u);
  EXPECT_NE(callbackIds().front(), missedId + " <" + missedId + ">");
  EXPECT_EQ(callbackIds().front().substr(callbackIds().front().find(' ')), " <" + missedId + ">");
  EXPECT_EQ(phone->service->deleteCallBack(missedId), false);  // a client names the callback by its id
  EXPECT_EQ(entries().at(0).entryId, missedId);
  send(csta::callBack(dev(missedId), CB::CB_TYPE_BUSY, CB::CB_STATE_CANCELLED));
  EXPECT_EQ(callbackIds(), Lines{});
  EXPECT_EQ(entries().size(), 1u);
}

// Whether the status means the switch lost track of the phone's calls: the journal then forgets them.
class SystemStatus : public Journal, public ::testing::WithParamInterface<std::pair<std::string, bool>> {};

TEST_P(SystemStatus, ReleasesTrackedCallsAndConferencesWithoutEntries) {
  const auto& [status, releases] = GetParam();
  start(kKpx);
  // Two conferences and a caller ringing.
  play(talking({"21", "22", "31", "32"}) + joined("23", "21", "22") + joined("33", "31", "32") +
       ringing("41", kCaller));
  send(csta::systemStatus(status));
  play(clearing("21", 10) + clearing("22", 0) + clearing("31", 0) + clearing("32", 0) + clearing("41", 0));
  EXPECT_EQ(state(), releases ? "| 0" : "555 532 531 522 521 | 0");
  const Lines told = screen.take();
  if (releases) {
    EXPECT_EQ(Lines{}, told);
  } else {
    EXPECT_NE(Lines{}, told);
  }
  // A new conference is followed whatever became of the earlier ones.
  play(talking({"51", "52"}) + joined("53", "51", "52") + left("53", csta::kOwnLine, 5));
  EXPECT_EQ(state(), releases ? "552 551 | 0" : "555 552 551 532 531 522 521 | 0");
  EXPECT_EQ(kept(entries()), stored());
}

using S = std::pair<std::string, bool>;
INSTANTIATE_TEST_SUITE_P(Statuses, SystemStatus,
                         ::testing::Values(S{"cleanup", true}, S{"disabled", true}, S{"partiallyDisabled", true},
                                           S{"reset", true}, S{"stopped", true}, S{"normal", false},
                                           S{"overloadImminent", false}),
                         [](const auto& info) { return info.param.first; });

}  // namespace
