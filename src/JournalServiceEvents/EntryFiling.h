// The list work every call entry type shares: filing a new occurrence under its party's entry (or
// a new entry), keeping the list at its limit and storing the front entry; and taking occurrences
// away again when the switch deletes them from its call log. Private to the module.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "JournalService/ListAccess.h"

// How one list files an occurrence; what is left empty does nothing. Each runs under the list's
// lock, so what the switch is to forget is noted in a PendingSwitchReports, never sent from here.
template <class Item>
struct FilingRules {
  std::function<bool(const Item&)> matches;   // the entry of the occurrence's party
  std::function<Item()> makeEntry;            // a new entry for the party, without occurrences
  std::function<void(Item&)> beforeMerge;     // on the party's entry, before the occurrence joins it
  std::function<void(const Item&)> onDrop;    // on the entry the limit pushes out
  std::vector<std::string> matchKeys;         // when set, only an entry holding one can match
  std::function<bool(const Item&)> isRepeat;  // the occurrence is already the entry's newest: refused
};

// What filing did, for the observers.
template <class Item>
struct FiledOccurrence {
  bool repeated = false;  // refused: nothing changed
  std::string removedId;  // unique id of the entry merged (it moved) or dropped by the limit
  JournalServiceObserverIfc::ActionType action = JournalServiceObserverIfc::NEW_ENTRY;
  Item front;
};

// The same occurrence reported twice: a KPX switch may send a call's log data again.
template <class Info>
bool sameOccurrence(const Info& a, const Info& b) {
  return a.number == b.number && a.numberType == b.numberType && a.timeDate == b.timeDate;
}

// The first entry of `list` that rules.matches, or end. A party has no entry when no entry holds
// its number (or, for a phonebook person, its name); when it has, only the entries holding one of
// its keys are looked at, found by their list order. The caller holds the list's lock.
template <class Item>
typename std::deque<Item>::iterator JournalService::findPartyEntry(std::deque<Item>& list,
                                                                   const FilingRules<Item>& rules) {
  using T = JournalListTraits<Item>;
  if constexpr (T::indexed) {
    if (!rules.matchKeys.empty()) {
      const auto byOrder = [](const Item& item, int64_t order) { return item.getListOrder() > order; };
      for (int64_t order : T::numbers(*this).ordersHolding(list, rules.matchKeys)) {
        auto at = std::lower_bound(list.begin(), list.end(), order, byOrder);
        if (at == list.end() || at->getListOrder() != order) {
          // The index names an entry the list does not hold at that order: search the whole list.
          JLOG(journal::kCoreLog, 2, "%s():table %s: the number index is stale; searching the list", __func__,
               T::table);
          listChanged<Item>();
          return std::find_if(list.begin(), list.end(), rules.matches);
        }
        if (rules.matches(*at)) return at;
      }
      return list.end();
    }
  }
  return std::find_if(list.begin(), list.end(), rules.matches);
}

// Files `info`, then runs underLock() before the list's lock is given.
template <class Item, class UnderLock>
FiledOccurrence<Item> JournalService::fileOccurrence(const typename Item::InfoList::value_type& info,
                                                     const FilingRules<Item>& rules, UnderLock underLock) {
  using T = JournalListTraits<Item>;
  FiledOccurrence<Item> filed;
  std::string trimmedId;
  CriticalSection guard(T::lock(*this));
  auto& list = T::list(*this);
  auto found = findPartyEntry(list, rules);
  if (found == list.end()) {
    Item item = rules.makeEntry();
    item.addCallInfoToList(info);
    list.push_front(std::move(item));
  } else {
    if (rules.isRepeat && rules.isRepeat(*found)) {
      filed.repeated = true;
      return filed;
    }
    mergingInList(*found);
    forgetWaitingWrite<Item>(found->getListOrder());  // it is written at its new place
    Item merged = std::move(*found);
    list.erase(found);
    filed.removedId = merged.getUniqueId();
    if (rules.beforeMerge) rules.beforeMerge(merged);
    merged.addCallInfoToList(info);
    list.push_front(std::move(merged));
    filed.action = JournalServiceObserverIfc::MERGED_ENTRY;
  }
  placeEntry(list, 0);
  if (filed.action == JournalServiceObserverIfc::MERGED_ENTRY)
    mergedInList(list.front());  // indexed under the order it has now
  else
    arrivingInList(list.front());
  if (list.size() > kMaxListEntries) {
    if (rules.onDrop) rules.onDrop(list.back());
    trimmedId = list.back().getUniqueId();
    filed.removedId = trimmedId;
    leavingList(list.back());
    forgetWaitingWrite<Item>(list.back().getListOrder());  // its row is taken over, not deleted
    list.pop_back();
  }
  storeFrontEntry(list, trimmedId);
  underLock();
  filed.front = list.front();
  return filed;
}

// The connected party of an occurrence, when it is another than the remote party: named from the
// phonebook, or by the name the call brought.
template <class Info>
void JournalService::fillConnectedParty(Info& info, const std::string& remoteParty, const std::string& connectedParty,
                                        const std::string& connectedName) {
  if (!partiesAreNotTheSame(connectedParty, remoteParty)) return;
  const Contact connected = lookUpParty(connectedParty, connectedName);
  info.connectedNumberType = connected.getNumberType();
  info.connectedSurname = connected.getSurname();
  info.connectedFirstname = connected.getFirstname();
  info.connectedNumber = connectedParty;
}

// The call-log data a switch sends with a call: log target, presentations, the deflecting party
// and the switch's time text.
template <class Info>
void JournalService::fillSwitchLogData(Info& info, const SwitchLogData& data) {
  info.logTarget = data.logTarget;
  info.CallInfo::numberPresentation = data.numberPresentation;
  info.CallInfo::namePresentation = data.namePresentation;
  info.deflectNumber = data.deflectNumber;
  info.deflectName = data.deflectName;
  info.Deflect::numberPresentation = data.deflectNumberPresentation;
  info.Deflect::namePresentation = data.deflectNamePresentation;
  info.deflectNumberType =
      data.deflectNumber.empty() ? NumberType::NT_NONE : lookUpParty(data.deflectNumber, "").getNumberType();
  info.timeFormat = data.timeFormat;
  info.timeDate = data.timeDate;
}

// An entry full of occurrences drops its oldest when merged; the switch forgets it too, unless the
// same number stays in the entry or is the new call's.
template <class InfoList>
const typename InfoList::value_type* droppedOccurrence(const InfoList& infos, const CompactString& newNumber) {
  using Info = typename InfoList::value_type;
  if (infos.size() < kMaxCallInfos) return nullptr;
  const Info& oldest = infos.back();
  bool stays = oldest.number == newNumber || std::any_of(infos.begin(), std::prev(infos.end()),
                                                         [&](const Info& i) { return i.number == oldest.number; });
  return stays ? nullptr : &oldest;
}

// The switch deleted the occurrences of `number` up to `entryTime` from its call log: the first
// entry holding such occurrences loses them. An entry left without occurrences is deleted; one
// that lost its newest occurrence is re-placed by `replace(list, rebuilt)`, which inserts it where
// its new newest occurrence belongs. The caller notifies after the lock is given. False when
// nothing was removed.
template <class Item, class Replace>
bool JournalService::removeOccurrencesUpTo(const std::string& number, const std::string& entryTime, Replace replace) {
  using T = JournalListTraits<Item>;
  CriticalSection guard(T::lock(*this));
  auto& list = T::list(*this);
  for (auto entry = list.begin(); entry != list.end(); ++entry) {
    auto infos = entry->infos();
    bool removedNewest = false, removedAny = false;
    for (auto info = infos.begin(); info != infos.end();) {
      int order = 0;
      bool removable = false;
      if (info->number == number) {
        if (compareTimes(entryTime, info->timeDate, order))
          removable = order == 0 || order == 1;  // not later than the deleted time
        else
          JLOG(journal::kCoreLog, 5, "%s():ClockSvc not available", "removeOccurrencesUpTo");
      }
      if (!removable) {
        ++info;
        continue;
      }
      removedNewest |= info == infos.begin();
      info = infos.erase(info);
      removedAny = true;
    }
    if (!removedAny) continue;
    listChanged<Item>();
    if (infos.empty()) {
      storeDelete(*entry);
      m_entryIds.release(entry->getEntryId());
      list.erase(entry);
    } else if (removedNewest) {
      Item rebuilt = T::rebuild(*entry, infos);
      forgetWaitingWrite<Item>(entry->getListOrder());
      rebuilt.setListOrder(kUnplacedOrder);  // finds it again wherever `replace` puts it
      list.erase(entry);
      replace(list, rebuilt);
      const auto placed = std::find_if(list.begin(), list.end(),
                                       [](const Item& item) { return item.getListOrder() == kUnplacedOrder; });
      if (placed != list.end()) {
        const auto index = static_cast<size_t>(placed - list.begin());
        placeEntry(list, index);
        storeWrite(list[index]);
      }
    } else {
      entry->infos() = infos;
      storeWrite(*entry);
    }
    return true;
  }
  JLOG(journal::kCoreLog, 5, "%s():no entry has been removed", "removeOccurrencesUpTo");
  return false;
}

// Inserts `item` before the first entry whose newest occurrence is older than its own, or last.
template <class Item>
void insertByNewestOccurrence(std::deque<Item>& list, const Item& item, const JournalService& service) {
  const std::string& newest = item.infos().front().timeDate;
  auto before = std::find_if(list.begin(), list.end(), [&](const Item& other) {
    int order = 0;
    return !other.infos().empty() && service.compareTimes(newest, other.infos().front().timeDate, order) && order == 1;
  });
  list.insert(before, item);
}

// The re-placing of removeOccurrencesUpTo for lists without a viewed flag.
template <class Item>
auto JournalService::insertByNewestOccurrenceOf() {
  return [this](std::deque<Item>& list, const Item& rebuilt) { insertByNewestOccurrence(list, rebuilt, *this); };
}
