// A slow switch and the lists. Where the switch keeps the call log, every call the phone drops is
// reported to it, one request at a time, each waiting for the switch's answer. A client that reads
// a list meanwhile is answered while the switch still holds its answer: the reports go out after
// the list's lock is given. Each case changes the lists on a thread of its own, waits until the
// switch has the first report and holds its answer, then reads from another thread.
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <thread>

#include "Items.h"
#include "JournalHarness.h"
#include "framework/JournalServiceHelper.h"

namespace {

using E = CallLogEntryEvent;
using H = JournalServiceHelper;
// Far beyond any read of a list here; reached only when the read waits for the switch.
constexpr int kDeadlineMs = 10000;

template <class Item>
size_t entriesOf(bool (JournalService::*get)(std::deque<Item>&), JournalService& journal) {
  std::deque<Item> list;
  (journal.*get)(list);
  return list.size();
}
size_t missed(JournalService& j) { return entriesOf(&JournalService::getMissedCallList, j); }
size_t dialled(JournalService& j) { return entriesOf(&JournalService::getDialledCallList, j); }
size_t received(JournalService& j) { return entriesOf(&JournalService::getReceivedCallList, j); }

// A full entry of `number` (ten calls) whose oldest call came from 901: a new call of `number`
// merged into it pushes that call out, and the switch is told.
template <class Item>
Item fullEntry(const std::string& id, const std::string& number) {
  Item item = makeEntry<Item>(id, number, "2024-03-05T10:00:00", kMaxCallInfos);
  item.infos().back().number = "901";
  return item;
}

struct Case {
  const char* name;
  std::function<void(JournalService&)> change;
  std::function<size_t(JournalService&)> read;  // of the list the change holds the lock of
  size_t entriesAfter;                          // in the list read
  size_t reports;                               // requests the switch gets in all
};
void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

// A dialled entry of `number`, filed under that number as the journal files it.
DialledCallItem dialledEntry(const std::string& id, const std::string& number, const std::string& time) {
  DialledCallItem item = makeEntry<DialledCallItem>(id, number, time);
  item.setJournalSeviceGroupBy(number);
  return item;
}

class SlowSwitch : public ::testing::TestWithParam<Case> {
 protected:
  // A KPX phone whose switch keeps the call log. Missed: M1 (100, three calls), M2 (200, full);
  // dialled: D1 (100), D2 (200); received: R1 (100, full), R2 (200).
  void SetUp() override {
    phone.store.setReply("<storeReply><result>ok</result><lastUniqueId>7</lastUniqueId></storeReply>");
    phone.start();
    phone.service->refreshCallLog();
    phone.mgmt.setValue("system-identifier", "2");  // the switch keeps the call log
    phone.mgmt.drainNotifications();
    const std::string t9 = "2024-03-05T09:00:00", t10 = "2024-03-05T10:00:00";
    phone.loadAsStored(&JournalService::processMissedCallDbXml, &H::createXMLMissedCallItemBody,
                       {makeEntry<MissedCallItem>("M1", "100", t10, 3), fullEntry<MissedCallItem>("M2", "200")});
    phone.loadAsStored(&JournalService::processDialledCallDbXml, &H::createXMLDialledCallItemBody,
                       {dialledEntry("D1", "100", t10), dialledEntry("D2", "200", t9)});
    phone.loadAsStored(&JournalService::processReceivedCallDbXml, &H::createXMLReceivedCallItemBody,
                       {fullEntry<ReceivedCallItem>("R1", "100"), makeEntry<ReceivedCallItem>("R2", "200", t9)});
  }

  JournalHarness phone{{{"software-type", "Velmora KPX"}}};
};

TEST_P(SlowSwitch, AListIsReadWhileTheSwitchHoldsItsAnswerToAReport) {
  const Case& c = GetParam();
  JournalService& journal = *phone.service;
  phone.csta.holdEscapes();
  std::thread changer([&] { c.change(journal); });
  EXPECT_TRUE(phone.csta.waitForEscapes(1, kDeadlineMs));  // not ASSERT: the changer is joined below

  auto reading = std::async(std::launch::async, [&] { return c.read(journal); });
  const bool answered = reading.wait_for(std::chrono::milliseconds(kDeadlineMs)) == std::future_status::ready;
  const size_t reportsWhenAnswered = phone.csta.escapes().size();
  phone.csta.releaseEscapes();
  const size_t entries = reading.get();
  changer.join();

  EXPECT_TRUE(answered) << "the read waited for the switch's answer";
  EXPECT_EQ(1u, reportsWhenAnswered);  // the switch still held its answer to the first report
  EXPECT_EQ(c.entriesAfter, entries);  // the change was made before its reports went out
  EXPECT_EQ(c.reports, phone.csta.escapes().size());
}

const std::string kEleven = "2024-03-05T11:00:00";

INSTANTIATE_TEST_SUITE_P(
    ListChanges, SlowSwitch,
    ::testing::Values(
        Case{"WholeMissedList", [](JournalService& j) { j.deleteMissedCallList(); }, missed, 0, 3 + kMaxCallInfos},
        Case{"WholeDialledList", [](JournalService& j) { j.deleteDialledCallList(); }, dialled, 0, 2},
        Case{"WholeReceivedList", [](JournalService& j) { j.deleteReceivedCallList(); }, received, 0,
             kMaxCallInfos + 1},
        Case{"AllCallLists", [](JournalService& j) { j.deleteCallLists(); }, missed, 0,
             3 + kMaxCallInfos + 2 + kMaxCallInfos + 1},
        Case{"OneDialledEntry", [](JournalService& j) { j.deleteDialledCall("D1"); }, dialled, 1, 1},
        Case{"ASetOfMissedEntries", [](JournalService& j) { j.deleteMissedCallList(std::set<std::string>{"M1"}); },
             missed, 1, 3},
        Case{"AMissedCallMergedIntoAFullEntry",
             [](JournalService& j) {
               j.newMissedCallEntry("M3", "200", "", -1, E::LT_MISSED, E::PV_SHOWN, E::PV_SHOWN, E::PV_NONE, "",
                                    E::PV_NONE, "", kEleven, E::TF_LOCAL, false);
             },
             missed, 2, 1},
        Case{"AReceivedCallMergedIntoAFullEntry",
             [](JournalService& j) {
               j.newReceivedCallEntry("R3", "100", "", "", "", -1, -1, -1, E::LT_RECEIVED, E::PV_SHOWN, E::PV_SHOWN,
                                      E::PV_NONE, "", E::PV_NONE, "", kEleven, E::TF_LOCAL);
             },
             received, 2, 1},
        // The call reached the party of M1, whose entry goes while the dialled list's lock is held too.
        Case{"ATalkedDialledCallToAMissedParty",
             [](JournalService& j) {
               j.newDialledCallEntry("D3", "100", "100", "", "", "", -1, 1000, 1060, E::LT_DIALLED, E::PV_SHOWN,
                                     E::PV_SHOWN, kEleven, E::TF_LOCAL);
             },
             dialled, 2, 3}),
    [](const ::testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

}  // namespace
