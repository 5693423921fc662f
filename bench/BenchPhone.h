// A journal service on a store file in a real framework context, and full lists to fill it
// with: what the store and client benchmarks measure on. The journal runs in a
// fw::JournalRuntime on a manual clock, as every benchmark's does (linkJournal, startJournal).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <type_traits>

#include "BenchSupport.h"
#include "FakeServices.h"
#include "JournalService.h"
#include "JournalServiceInvoker.h"
#include "framework/JournalRuntime.h"
#include "framework/JournalServiceHelper.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace bench {

using Helper = JournalServiceHelper;

constexpr int kEntries = 1000;
constexpr int kOccurrences = 10;

// Which list an item type fills; it goes into the entry ids, which the journal keeps unique over
// all lists (ids held twice would be renamed and written again on the first load).
template <class Item>
constexpr unsigned listTag() {
  if constexpr (std::is_same_v<Item, MissedCallItem>) return 1;
  if constexpr (std::is_same_v<Item, DialledCallItem>) return 2;
  if constexpr (std::is_same_v<Item, ReceivedCallItem>) return 3;
  return 4;
}

// The number of party `n` of the list of Item: each list has parties of its own, so that a call
// with a party of one list never touches an entry of another (a SIP journal takes a party's missed
// entry away when the party is called back).
template <class Item>
std::string partyNumber(int n) {
  return "+4930" + std::to_string(listTag<Item>() * 1000000 + unsigned(n));
}

template <class Item>
Item makeEntry(int n, int occurrences) {
  Item item;
  char id[48];
  std::snprintf(id, sizeof id, "2024-03-05T10:%02d:%02dZ%08X", n / 60 % 60, n % 60,
                listTag<Item>() << 24 | unsigned(n));
  item.setEntryId(id);
  item.setSurname("Surname of party " + std::to_string(n));
  item.setFirstname("Firstname");
  // Entry n is the n-th from the front: list orders fall from the front to the back, 2^20 apart as
  // the journal numbers a list, so that a load keeps the list as it is stored.
  item.setListOrder(static_cast<int64_t>(kEntries - n) << 20);
  // A dialled entry is found by the number it groups its calls by, as the journal files it.
  if constexpr (std::is_same_v<Item, DialledCallItem>) item.setJournalSeviceGroupBy(partyNumber<Item>(n));
  for (int i = 0; i < occurrences; ++i) {
    typename Item::InfoList::value_type info;
    info.entryId = id;
    info.number = partyNumber<Item>(n);
    info.connectedNumber = "3301";
    char time[32];
    std::snprintf(time, sizeof time, "2024-03-%02dT%02d:%02d:00", 1 + n % 28, i, n % 60);
    info.timeDate = time;
    info.logTarget = CallLogEntryEvent::LT_MISSED;
    info.CallInfo::numberPresentation = CallLogEntryEvent::PV_SHOWN;
    info.CallInfo::namePresentation = CallLogEntryEvent::PV_SHOWN;
    info.numberType = NumberType::NT_BUSINESS;
    if constexpr (std::is_base_of_v<Duration, typename Item::InfoList::value_type>) info.duration = "03:25";
    item.infos().push_back(info);
  }
  return item;
}

// Gives `runtime` a journal service linked into the benchmark, with its request invoker (the
// runtime owns both); the caller provides the services, then calls startJournal.
inline JournalService& linkJournal(fw::JournalRuntime& runtime) {
  auto service = std::make_unique<JournalService>(nullptr);
  JournalService& linked = *service;
  runtime.useModule(std::move(service), std::make_unique<JournalServiceInvoker>());
  return linked;
}

inline void startJournal(fw::JournalRuntime& runtime) {
  std::string error;
  check(runtime.start(error), error);
}

// A SIP journal service (it keeps all four lists) on a store file, with the tests' fake switch,
// on a manual clock. The runtime is declared after the services, so it stops the journal first.
struct Phone {
  explicit Phone(const std::string& path,
                 SqliteDataAccessService::Durability durability = SqliteDataAccessService::Full)
      : store(durability),
        runtime(fw::JournalRuntime::Clock::Manual, "2024-03-05T10:00:00"),
        service(linkJournal(runtime)) {
    std::string error;
    check(store.open(path, error), error);
    runtime.mgmt().setValue("software-type", "Velmora SIP");
    runtime.provide("CSTAServiceIfc", &csta);
    runtime.provide("DataAccessServiceIfc", &store);
    startJournal(runtime);
  }

  SqliteDataAccessService store;
  RecordingCstaService csta;
  fw::JournalRuntime runtime;
  JournalService& service;
};

inline std::string bodyOf(const MissedCallItem& i) { return Helper::createXMLMissedCallItemBody(i, false); }
inline std::string bodyOf(const DialledCallItem& i) { return Helper::createXMLDialledCallItemBody(i, false); }
inline std::string bodyOf(const ReceivedCallItem& i) { return Helper::createXMLReceivedCallItemBody(i, false); }
inline std::string bodyOf(const ForwardedCallItem& i) { return Helper::createXMLForwardedCallItemBody(i, false); }

// How many entries a missed list's reply (of the store or of the journal) holds, parsed as a
// client parses it.
inline size_t parsedMissedEntries(const std::string& reply) {
  std::deque<MissedCallItem> list;
  Helper::parseXMLMissedCallList(reply, list);
  return list.size();
}

// Fills one stored table with a full list in one transaction.
template <class Item>
void fill(JournalService& service, const char* table) {
  std::string body;
  for (int n = 0; n < kEntries; ++n)
    body += Helper::createXMLField(Helper::ENTRY, bodyOf(makeEntry<Item>(n, kOccurrences)));
  service.updateEntries(body, Helper::WRITEREQUEST, table);
}

inline void fillAllTables(JournalService& service) {
  fill<MissedCallItem>(service, Helper::DAS_CALLLOGMISSEDCALLS);
  fill<DialledCallItem>(service, Helper::DAS_CALLLOGDIALLEDCALLS);
  fill<ReceivedCallItem>(service, Helper::DAS_CALLLOGRECEIVEDCALLS);
  fill<ForwardedCallItem>(service, Helper::DAS_CALLLOGFORWARDEDCALLS);
}

}  // namespace bench
