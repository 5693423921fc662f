// Forwarded calls: a call that reached the phone and was diverted elsewhere is filed under its
// party, merged with the party's earlier entry, kept within the list's limit, stored and
// announced. A missed occurrence the switch reported for the same call a moment earlier is taken
// back, so that one diverted call is listed once.
#include "JournalServiceEvents/EntryFiling.h"

using journal::kCoreLog;

namespace {
constexpr long kMissedEchoSeconds = 5;
}

bool JournalService::newForwardedCallEntry(const std::string& entryId, const std::string& remoteParty,
                                           const std::string& remotePartyName, const std::string& divertedParty,
                                           const std::string& divertedPartyName, long startTime, long connectTime,
                                           long endTime) {
  const Contact contact = lookUpParty(remoteParty, remotePartyName);
  if (contact.getNumberType() != NumberType::NT_NONE)
    JLOG(kCoreLog, 5, "%s():{%s} Remote Party: %s, Remote Party Name: %s, Surname: %s, Firstname: %s", __func__,
         entryId.c_str(), remoteParty.c_str(), remotePartyName.c_str(), contact.getSurname().c_str(),
         contact.getFirstname().c_str());
  if (m_serverBasedFeatures) sscfw_checkNewForwardedCall(contact);

  ForwardedCallItem::ForwardedCallInfo info;
  info.entryId = entryId;
  info.number = remoteParty;
  info.numberType = contact.getNumberType();
  fillConnectedParty(info, remoteParty, divertedParty, divertedPartyName);
  if (startTime != -1) info.timeDate = formatTimeDate(startTime);
  if (connectTime != -1 && endTime != -1) info.duration = formatDuration(connectTime, endTime);

  FilingRules<ForwardedCallItem> rules;
  rules.matches = [&](const ForwardedCallItem& item) { return contactMatchesForwardedCall(item, contact); };
  rules.matchKeys = matchKeysOf(contact);
  rules.makeEntry = [&] {
    ForwardedCallItem item(entryId, contact.getSurname(), contact.getFirstname(), {});
    item.setPictureClip(contact.getPictureClip());
    return item;
  };
  auto filed = fileOccurrence(info, rules, [] {});
  m_pObserverNotifier->updateForwardedCalls(std::move(filed.front), filed.removedId, filed.action);
  return true;
}

// A missed occurrence of the same party less than 5 s old (or from a clock that went back) is the
// switch's report of this very call ringing: its newest occurrence goes.
void JournalService::sscfw_checkNewForwardedCall(const Contact& contact) {
  const long now = getCurrentTimeSec();
  JLOG(kCoreLog, 5, "%s():current time: %ld, m_lastMissedTimeSec: %ld", __func__, now, m_lastMissedTimeSec);
  if (now == -1) return;
  if (m_lastMissedTimeSec != -1 && (now < m_lastMissedTimeSec || now - m_lastMissedTimeSec <= kMissedEchoSeconds)) {
    if (auto unviewed = withdrawNewestMissedOccurrence(contact))
      m_pObserverNotifier->updateMissedCallCountAndCalls(*unviewed);
  }
  m_lastForwardedTimeSec = now;
}

// When the front missed entry was the contact's and lost its newest occurrence: the unviewed
// count afterwards. A shortened entry gets back the viewed flag the merge of that occurrence reset.
std::optional<unsigned> JournalService::withdrawNewestMissedOccurrence(const Contact& contact) {
  CriticalSection guard(m_missedLock);
  auto& list = m_missedCallList;
  if (list.empty() || !contactMatchesMissedCall(list.front(), contact)) return std::nullopt;
  MissedCallItem& front = list.front();
  listChanged<MissedCallItem>();
  auto infos = front.getMissedCallInfoList();
  infos.erase(infos.begin());
  if (infos.empty()) {
    JLOG(kCoreLog, 5, "%s():removing whole entry", "sscfw_checkNewForwardedCall");
    storeDelete(front);
    m_entryIds.release(front.getEntryId());
    list.pop_front();
  } else {
    JLOG(kCoreLog, 5, "%s():updating shortened info list", "sscfw_checkNewForwardedCall");
    front.setMissedCallInfoList(infos);
    if (isSipSwitch()) front.setViewed(m_savedMissedViewed);
    storeWrite(front);
  }
  return getUnviewedMissedCallsCount();
}
