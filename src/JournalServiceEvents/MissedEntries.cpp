// Missed calls: a call that rang and was not answered is filed under its party, merged with the
// party's earlier entry, kept within the list's limit, stored and announced; and the party's entry
// goes when the party is reached.
#include "JournalServiceEvents/EntryFiling.h"

using journal::kCoreLog;

namespace {

constexpr long kForwardEchoSeconds = 5;

}  // namespace

Contact JournalService::lookUpParty(const std::string& number, const std::string& name) {
  Contact contact;
  contact.setNumber(number);
  if (!contactIsInPhonebook(contact)) {
    contact.setSurname(name);
    contact.setNumberType(NumberType::NT_NONE);
  }
  return contact;
}

bool JournalService::newMissedCallEntry(
    const std::string& entryId, const std::string& remoteParty, const std::string& remotePartyName, long timeSec,
    CallLogEntryEvent::_LogTarget logTarget, CallLogEntryEvent::_PresentationValue numberPresentation,
    CallLogEntryEvent::_PresentationValue namePresentation,
    CallLogEntryEvent::_PresentationValue deflectNumberPresentation, const std::string& deflectNumber,
    CallLogEntryEvent::_PresentationValue deflectNamePresentation, const std::string& deflectName,
    const std::string& timeDate, CallLogEntryEvent::_TFormat timeFormat, bool completedElsewhere) {
  Contact contact = lookUpParty(remoteParty, remotePartyName);
  JLOG(kCoreLog, 5,
       "%s():Missed call: {%s} Remote Party: %s, Remote Party Name: %s, Surname: %s, Firstname: %s, completed "
       "elsewhere: %d",
       __func__, entryId.c_str(), remoteParty.c_str(), remotePartyName.c_str(), contact.getSurname().c_str(),
       contact.getFirstname().c_str(), completedElsewhere);
  if (completedElsewhere && !m_missedLogging) {
    JLOG(kCoreLog, 5,
         "%s():The call was completed elsewhere, not remotely answered calls are just logged - this call will not be "
         "logged",
         __func__);
    return true;
  }
  if (m_serverBasedFeatures && !sscfw_canAddMissedCall(contact)) {
    JLOG(kCoreLog, 5, "%s():New missed entry relates to previous forwarded entry. No new entry has been added",
         __func__);
    return true;
  }

  const bool sip = isSipSwitch();
  MissedCallItem::MissedCallInfo info;
  info.entryId = entryId;
  info.number = remoteParty;
  info.numberType = contact.getNumberType();
  info.completedElsewhere = completedElsewhere;
  if (!sip) {  // a KPX switch sends its call-log data with the call
    fillSwitchLogData(info, {logTarget, numberPresentation, namePresentation, deflectNumberPresentation, deflectNumber,
                             deflectNamePresentation, deflectName, timeFormat, timeDate});
  } else {
    info.timeDate = timeDate;  // an entry of the switch's call log has the switch's time only
  }
  fillConnectedParty(info, remoteParty, deflectNumber, deflectName);
  if (timeSec != -1) info.timeDate = formatTimeDate(timeSec);

  // What the switch is to forget is noted under the list's lock and sent once it is given.
  PendingSwitchReports reports(*this);
  FilingRules<MissedCallItem> rules;
  rules.matches = [&](const MissedCallItem& item) { return contactMatchesMissedCall(item, contact); };
  rules.matchKeys = matchKeysOf(contact);
  rules.makeEntry = [&] {
    if (!sip && contact.getSurname().empty() && contact.getFirstname().empty()) contact.setSurname(remotePartyName);
    MissedCallItem item(entryId, contact.getSurname(), contact.getFirstname(), {}, false);
    item.setPictureClip(contact.getPictureClip());
    return item;
  };
  rules.beforeMerge = [&](MissedCallItem& merged) {
    if (!sip && m_serverCallLog) {
      if (const auto* dropped = droppedOccurrence(merged.infos(), info.number)) reports.deleteCall(*dropped);
    }
    if (sip) m_savedMissedViewed = merged.getViewed();
    merged.setViewed(false);
  };
  if (!sip)
    rules.onDrop = [&](const MissedCallItem& item) {
      JournalListTraits<MissedCallItem>::reportToServer(*this, item, reports);
    };
  if (!sip) {  // a KPX switch may send a call's log data again
    rules.isRepeat = [&](const MissedCallItem& entry) {
      return !entry.infos().empty() && sameOccurrence(entry.infos().front(), info);
    };
  }
  unsigned unviewed = 0;
  auto filed = fileOccurrence(info, rules, [&]() REQUIRES(m_missedLock) { unviewed = getUnviewedMissedCallsCount(); });
  reports.send();
  if (filed.repeated) {
    JLOG(kCoreLog, 5, "%s():newMissedCallEntry: Entry already exists, ignore", __func__);
    return false;
  }
  m_pObserverNotifier->updateMissedCallCountAndCalls(std::move(filed.front), unviewed, filed.removedId, filed.action);
  return true;
}

// A forwarded call rings on as a missed call at the phone: within 5 s of a forwarded entry of the
// same party the missed call is its echo, not a call of its own.
bool JournalService::sscfw_canAddMissedCall(const Contact& contact) {
  const long now = getCurrentTimeSec();
  JLOG(kCoreLog, 5, "%s():current time: %ld, m_lastForwardedTimeSec: %ld", __func__, now, m_lastForwardedTimeSec);
  if (now == -1) return true;
  if (m_lastForwardedTimeSec == -1 ||
      (now >= m_lastForwardedTimeSec && now - m_lastForwardedTimeSec > kForwardEchoSeconds)) {
    m_lastMissedTimeSec = now;
    return true;
  }
  bool echo;
  {
    CriticalSection guard(m_forwardedLock);
    echo = !m_forwardedCallList.empty() && contactMatchesForwardedCall(m_forwardedCallList.front(), contact);
  }
  m_lastMissedTimeSec = echo ? -1 : now;
  return !echo;
}

bool JournalService::searchRemoveMissedCallEntry(const std::string& subscriberNumber) {
  PendingSwitchReports reports(*this);
  auto removal = removeMissedEntryOf(subscriberNumber, reports);
  reports.send();
  if (removal) notifyMissedRemoval(*removal);
  return removal.has_value();
}

// The entry holding an occurrence of the number goes, whichever of its occurrences it is; what the
// switch and the observers are to be told is handed back, for the caller to send once it holds no
// list lock.
std::optional<JournalService::MissedRemoval> JournalService::removeMissedEntryOf(const std::string& subscriberNumber,
                                                                                 PendingSwitchReports& reports) {
  JLOG(kCoreLog, 5, "%s():Subscriber Number: %s", __func__, subscriberNumber.c_str());
  // A party without a number cannot be told from another caller without one.
  if (subscriberNumber.empty()) {
    JLOG(kCoreLog, 5, "%s():no number: no entry has been removed", __func__);
    return std::nullopt;
  }
  CriticalSection guard(m_missedLock);
  auto& list = m_missedCallList;
  if (!m_missedNumbers.mayHold(list, subscriberNumber)) {
    JLOG(kCoreLog, 5, "%s():no entry has been removed", __func__);
    return std::nullopt;
  }
  auto found = std::find_if(list.begin(), list.end(), [&](const MissedCallItem& item) {
    return std::any_of(item.infos().begin(), item.infos().end(), [&](const MissedCallItem::MissedCallInfo& info) {
      return sameNumber(info.number, subscriberNumber);
    });
  });
  if (found == list.end()) {
    JLOG(kCoreLog, 5, "%s():no entry has been removed", __func__);
    return std::nullopt;
  }
  JLOG(kCoreLog, 5, "%s():entry found", __func__);
  if (m_serverCallLog) {
    JLOG(kCoreLog, 5, "%s():send CSTAEscapeRequest", __func__);
    reports.deleteCalls(found->infos());
  }
  storeDelete(*found);
  MissedRemoval removal{found->getUniqueId(), 0};
  leavingList(*found);
  list.erase(found);
  removal.unviewed = getUnviewedMissedCallsCount();
  return removal;
}

void JournalService::notifyMissedRemoval(const MissedRemoval& removal) {
  m_pObserverNotifier->updateMissedCallCountAndCalls(removal.unviewed, removal.removedId);
}

// The user reached a party that had called: the party's missed entry has served its purpose.
void JournalService::findAndDeleteMissedEntryWhenCalled(Call* call) {
  if (!call) return;
  const std::string& called = call->divertedParty.empty() ? call->remoteParty : call->divertedParty;
  const std::string& calledName = call->divertedParty.empty() ? call->remotePartyName : call->divertedPartyName;
  JLOG(kCoreLog, 5,
       "%s():Dialled party: '%s', Called party: '%s;, Called party name: '%s', Remote party: '%s' Remote party name: "
       "'%s'",
       __func__, call->dialled.c_str(), called.c_str(), calledName.c_str(), call->remoteParty.c_str(),
       call->remotePartyName.c_str());
  const Contact contact = lookUpParty(called, calledName);
  unsigned unviewed = 0;
  {
    CriticalSection guard(m_missedLock);
    auto& list = m_missedCallList;
    auto found = std::find_if(list.begin(), list.end(),
                              [&](const MissedCallItem& item) { return contactMatchesMissedCall(item, contact); });
    if (found == list.end()) return;
    JLOG(kCoreLog, 5, "%s():Found entry for '%s' - remove it from missed calls list", __func__, called.c_str());
    storeDelete(*found);
    leavingList(*found);
    list.erase(found);
    unviewed = getUnviewedMissedCallsCount();
  }
  m_pObserverNotifier->updateMissedCallCountAndCalls(unviewed);
}

bool JournalService::removeMissedCallEntry(const std::string& subscriberNumber, const std::string& entryTime) {
  JLOG(kCoreLog, 5, "%s():Subscriber Number: %s, entryTime: %s", __func__, subscriberNumber.c_str(), entryTime.c_str());
  // A re-placed entry shows as viewed when it lands below an entry that was viewed.
  auto replace = [this](std::deque<MissedCallItem>& list, MissedCallItem& rebuilt) {
    const std::string& newest = rebuilt.infos().front().timeDate;
    bool viewed = rebuilt.getViewed();
    for (auto it = list.begin(); it != list.end(); ++it) {
      int order = 0;
      if (!it->infos().empty() && compareTimes(newest, it->infos().front().timeDate, order) && order == 1) {
        rebuilt.setViewed(viewed);
        list.insert(it, rebuilt);
        return;
      }
      viewed = viewed || it->getViewed();
    }
    list.push_back(rebuilt);
  };
  if (!removeOccurrencesUpTo<MissedCallItem>(subscriberNumber, entryTime, replace)) return false;
  m_pObserverNotifier->updateMissedCallCountAndCalls(countUnviewedMissedCalls());
  return true;
}
