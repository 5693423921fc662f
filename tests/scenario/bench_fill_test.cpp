// The full lists the benchmarks write (bench/BenchPhone.h) are lists as the journal keeps them: a
// journal started on the file loads them without writing a row again, and a call with a party of
// a full list merges into that party's entry. Otherwise the daemon benchmark would measure the
// rewrite of every row at its start and calls that make new entries instead of merging.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "BenchPhone.h"
#include "CstaEventFactory.h"
#include "SqlRows.h"

namespace {

using namespace bench;

const char* const kTables[] = {Helper::DAS_CALLLOGMISSEDCALLS, Helper::DAS_CALLLOGRECEIVEDCALLS,
                               Helper::DAS_CALLLOGDIALLEDCALLS, Helper::DAS_CALLLOGFORWARDEDCALLS};

class BenchFill : public ::testing::Test {
 protected:
  void SetUp() override {
    Phone filling(path);
    fillAllTables(filling.service);
  }

  // Every row of every list's table, in row order.
  std::vector<std::vector<std::string>> rows() const {
    std::vector<std::vector<std::string>> all;
    for (const char* table : kTables)
      all.push_back(sqlRows(path, std::string("SELECT * FROM ") + table + " ORDER BY 1"));
    return all;
  }

  TempDir dir;
  const std::string path = dir.file("journal.db");
};

TEST_F(BenchFill, AJournalLoadingTheFullListsWritesNoRowAgain) {
  const auto before = rows();
  {
    Phone loading(path);
    loading.service.loadCallListsFromDb();
  }
  const auto after = rows();
  for (size_t t = 0; t < before.size(); ++t) {
    ASSERT_EQ(static_cast<size_t>(kEntries), before[t].size()) << kTables[t];
    ASSERT_EQ(before[t].size(), after[t].size()) << kTables[t];
    size_t rewritten = 0;
    for (size_t row = 0; row < before[t].size(); ++row) rewritten += before[t][row] != after[t][row];
    EXPECT_EQ(0u, rewritten) << kTables[t];
  }
}

TEST_F(BenchFill, ACallWithAPartyOfAFullListMergesIntoItsEntry) {
  Phone phone(path);
  phone.service.loadCallListsFromDb();
  const CSTADeviceID own = csta::dev(csta::kOwnLine);
  const CSTADeviceID dialled = csta::dev(partyNumber<DialledCallItem>(500));
  const CSTADeviceID missed = csta::dev(partyNumber<MissedCallItem>(700));
  const auto deliver = [&phone](auto event) { phone.service.deliverEvent(event.get()); };
  deliver(csta::originated("1", dialled));
  deliver(csta::delivered("1", CSTA_LCS_Connected, own, dialled, dialled));
  deliver(csta::established("1", own, dialled, dialled));
  deliver(csta::cleared("1", EC_NORMAL_CLEARING));
  deliver(csta::delivered("2", CSTA_LCS_Alerting, missed, own, own));
  deliver(csta::cleared("2", EC_NORMAL_CLEARING));

  std::deque<DialledCallItem> dialledList;
  phone.service.getDialledCallList(dialledList);
  ASSERT_EQ(static_cast<size_t>(kEntries), dialledList.size());
  EXPECT_EQ(makeEntry<DialledCallItem>(500, 1).getEntryId(), dialledList.front().getEntryId());
  EXPECT_EQ(static_cast<size_t>(kOccurrences), dialledList.front().infos().size());
  std::deque<MissedCallItem> missedList;
  phone.service.getMissedCallList(missedList);
  ASSERT_EQ(static_cast<size_t>(kEntries), missedList.size());
  EXPECT_EQ(makeEntry<MissedCallItem>(700, 1).getEntryId(), missedList.front().getEntryId());
  EXPECT_EQ(static_cast<size_t>(kOccurrences), missedList.front().infos().size());
}

}  // namespace
