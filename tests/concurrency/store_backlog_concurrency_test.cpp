// Calls and deletions on their threads while the store file keeps failing and working again (a
// full disk) and the journal's retries run on the timer thread: afterwards the file holds exactly the lists, one
// row per entry, and the lock-order checker stayed silent.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "JournalHarness.h"
#include "Printers.h"
#include "SqlRows.h"
#include "SqliteFaultVfs.h"
#include "framework/JournalServiceHelper.h"
#include "framework/LockOrder.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace {

using Lines = std::vector<std::string>;

constexpr int kCalls = 200;
constexpr int kParties = 25;

// Call `n`: a missed call of one of kParties parties, filed as entry "E<n>".
void fileMissedCall(JournalService& journal, int n) {
  journal.newMissedCallEntry("E" + std::to_string(n), std::to_string(5000 + n % kParties), "", -1,
                             CallLogEntryEvent::LT_MISSED, CallLogEntryEvent::PV_SHOWN, CallLogEntryEvent::PV_SHOWN,
                             CallLogEntryEvent::PV_NONE, "", CallLogEntryEvent::PV_NONE, "",
                             "2024-03-05T10:00:" + std::to_string(10 + n % 50), CallLogEntryEvent::TF_LOCAL, false);
}

TEST(StoreBacklogConcurrency, CallsAndDeletionsWhileTheStoreFailsOnAndOffEndWithTheFileHoldingTheLists) {
  fw::LockOrderChecker::clearReports();
  std::string dir = ::testing::TempDir() + "/journal-backlog-XXXXXX", error;
  ASSERT_NE(mkdtemp(dir.data()), nullptr);
  SqliteFaultVfs vfs;
  SqliteDataAccessService store;
  ASSERT_TRUE(store.open(dir + "/journal.db", SqliteDataAccessService::Normal, error)) << error;
  JournalHarness phone(std::map<std::string, std::string>{{"software-type", "Velmora KPX"}});
  phone.useStore(&store);
  phone.start();
  JournalService& journal = *phone.service;
  journal.refreshCallLog();

  std::atomic<bool> go{false}, calling{true};
  std::thread calls([&] {  // the switch's calls: parties calling again and again
    while (!go) std::this_thread::yield();
    for (int n = 0; n < kCalls; ++n) {
      // The disk is full for twenty calls, then has room for twenty, and so on.
      if (n % 20 == 0) vfs.setFault(n % 40 ? SqliteFaultVfs::kNone : SqliteFaultVfs::kDiskFull);
      fileMissedCall(journal, n);
    }
    calling = false;
  });
  std::thread client([&] {  // a client deleting entries and marking them viewed
    while (!go) std::this_thread::yield();
    for (int n = 0; calling; n = (n + 7) % kCalls) {
      journal.deleteMissedCall("E" + std::to_string(n));
      journal.setMissedCallListAsViewed({"E" + std::to_string((n + 3) % kCalls)});
    }
  });
  std::thread timer([&] {  // time passes: the journal's retries run on the timer thread
    while (!go) std::this_thread::yield();
    while (calling) phone.advance(4000);
  });
  go = true;
  for (std::thread* thread : {&calls, &client, &timer}) thread->join();

  vfs.setFault(SqliteFaultVfs::kNone);
  for (int retry = 0; retry < 10 && journal.storeHealth().failing; ++retry) phone.advance(16000);
  EXPECT_GT(vfs.refusedWrites(), 0);
  EXPECT_FALSE(journal.storeHealth().failing);
  EXPECT_EQ(journal.storeHealth().waitingChanges, 0u);

  std::deque<MissedCallItem> shown, loaded;
  journal.getMissedCallList(shown);
  const std::string path = dir + "/journal.db";
  EXPECT_EQ(sqlRows(path, "select count(*) from callLogMissedCalls"), Lines{std::to_string(shown.size())});
  EXPECT_EQ(sqlRows(path, "select count(distinct number) from callLogMissedCalls"),
            Lines{std::to_string(shown.size())});
  journal.loadCallListsFromDb();
  journal.getMissedCallList(loaded);
  EXPECT_EQ(loaded, shown);
  EXPECT_TRUE(fw::LockOrderChecker::reports().empty()) << fw::LockOrderChecker::reports().front().message;
  std::filesystem::remove_all(dir);
}

}  // namespace
