// Missed calls: a call that rang and was not answered is filed under its party, merged with the
// party's earlier entry, kept within the list's limit, stored and announced; and the party's entry
// goes when the party is reached.
#include "JournalService/ListAccess.h"

using journal::kCoreLog;

namespace {

constexpr long kForwardEchoSeconds = 5;

// An occurrence that is already the entry's newest: a KPX switch may report a call twice.
bool sameOccurrence(const MissedCallItem::MissedCallInfo& a, const MissedCallItem::MissedCallInfo& b) {
  return a.number == b.number && a.numberType == b.numberType && a.timeDate == b.timeDate;
}

// An entry full of occurrences drops its oldest when merged; the switch forgets it too, unless the
// same number stays in the entry or is the new call's.
template <class Info>
const Info* droppedOccurrence(const std::list<Info>& infos, const std::string& newNumber) {
  if (infos.size() < kMaxCallInfos) return nullptr;
  const Info& oldest = infos.back();
  bool stays = oldest.number == newNumber ||
               std::any_of(infos.begin(), std::prev(infos.end()), [&](const Info& i) { return i.number == oldest.number; });
  return stays ? nullptr : &oldest;
}

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

bool JournalService::newMissedCallEntry(const std::string& entryId, const std::string& remoteParty,
                                        const std::string& remotePartyName, long timeSec,
                                        CallLogEntryEvent::_LogTarget logTarget,
                                        CallLogEntryEvent::_PresentationValue numberPresentation,
                                        CallLogEntryEvent::_PresentationValue namePresentation,
                                        CallLogEntryEvent::_PresentationValue deflectNumberPresentation,
                                        const std::string& deflectNumber,
                                        CallLogEntryEvent::_PresentationValue deflectNamePresentation,
                                        const std::string& deflectName, const std::string& timeDate,
                                        CallLogEntryEvent::_TFormat timeFormat, bool completedElsewhere) {
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

  const bool sip = m_softwareType == journal::kSipSoftware;
  MissedCallItem::MissedCallInfo info;
  info.entryId = entryId;
  info.number = remoteParty;
  info.numberType = contact.getNumberType();
  info.completedElsewhere = completedElsewhere;
  if (!sip) {  // a KPX switch sends its call-log data with the call
    info.logTarget = logTarget;
    info.CallInfo::numberPresentation = numberPresentation;
    info.CallInfo::namePresentation = namePresentation;
    info.deflectNumber = deflectNumber;
    info.deflectName = deflectName;
    info.Deflect::numberPresentation = deflectNumberPresentation;
    info.Deflect::namePresentation = deflectNamePresentation;
    info.deflectNumberType = deflectNumber.empty() ? NumberType::NT_NONE : lookUpParty(deflectNumber, "").getNumberType();
    info.timeFormat = timeFormat;
    info.timeDate = timeDate;
  }
  if (partiesAreNotTheSame(deflectNumber, remoteParty)) {
    Contact deflecting = lookUpParty(deflectNumber, deflectName);
    info.connectedNumberType = deflecting.getNumberType();
    info.connectedSurname = deflecting.getSurname();
    info.connectedFirstname = deflecting.getFirstname();
    info.connectedNumber = deflectNumber;
  }
  if (timeSec != -1) info.timeDate = formatTimeDate(timeSec);

  std::string removedId, trimmedId;
  auto action = JournalServiceObserverIfc::NEW_ENTRY;
  unsigned unviewed = 0;
  MissedCallItem front;
  {
    CriticalSection guard(m_missedLock);
    auto& list = m_missedCallList;
    auto found = std::find_if(list.begin(), list.end(),
                              [&](const MissedCallItem& item) { return contactMatchesMissedCall(item, contact); });
    if (found == list.end()) {
      if (!sip && contact.getSurname().empty() && contact.getFirstname().empty()) contact.setSurname(remotePartyName);
      MissedCallItem item(entryId, contact.getSurname(), contact.getFirstname(), {}, false);
      item.addCallInfoToList(info);
      if (!contact.getPictureClip().empty()) item.setPictureClip(contact.getPictureClip());
      list.push_front(std::move(item));
    } else {
      if (!sip && !found->infos().empty() && sameOccurrence(found->infos().front(), info)) {
        JLOG(kCoreLog, 5, "%s():newMissedCallEntry: Entry already exists, ignore", __func__);
        return false;
      }
      MissedCallItem merged = std::move(*found);
      list.erase(found);
      removedId = merged.getUniqueId();
      if (!sip && m_serverCallLog) {
        if (const auto* dropped = droppedOccurrence(merged.infos(), info.number)) sendMissedCallLogEntryRequest(dropped);
      }
      merged.addCallInfoToList(info);
      if (sip) m_savedMissedViewed = merged.getViewed();
      merged.setViewed(false);
      list.push_front(std::move(merged));
      action = JournalServiceObserverIfc::MERGED_ENTRY;
    }
    if (list.size() > kMaxListEntries) {
      if (!sip && m_serverCallLog) sendMissedCallLogEntryRequests(list.back().infos());
      trimmedId = list.back().getUniqueId();
      removedId = trimmedId;
      list.pop_back();
    }
    storeFrontEntry(list, trimmedId, action == JournalServiceObserverIfc::NEW_ENTRY);
    unviewed = getUnviewedMissedCallsCount();
    front = list.front();
  }
  m_pObserverNotifier->updateMissedCallCountAndCalls(front, unviewed, removedId, action);
  return true;
}

// A forwarded call rings on as a missed call at the phone: within 5 s of a forwarded entry of the
// same party the missed call is its echo, not a call of its own.
bool JournalService::sscfw_canAddMissedCall(const Contact& contact) {
  const long now = getCurrentTimeSec();
  JLOG(kCoreLog, 5, "%s():current time: %ld, m_lastForwardedTimeSec: %ld", __func__, now, m_lastForwardedTimeSec);
  if (now == -1) return true;
  if (m_lastForwardedTimeSec == -1 || (now >= m_lastForwardedTimeSec && now - m_lastForwardedTimeSec > kForwardEchoSeconds)) {
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
  JLOG(kCoreLog, 5, "%s():Subscriber Number: %s", __func__, subscriberNumber.c_str());
  std::string removedId;
  unsigned unviewed = 0;
  {
    CriticalSection guard(m_missedLock);
    auto& list = m_missedCallList;
    auto found = std::find_if(list.begin(), list.end(), [&](const MissedCallItem& item) {
      return std::any_of(item.infos().begin(), item.infos().end(),
                         [&](const MissedCallItem::MissedCallInfo& info) { return info.number == subscriberNumber; });
    });
    if (found == list.end()) {
      JLOG(kCoreLog, 5, "%s():no entry has been removed", __func__);
      return false;
    }
    JLOG(kCoreLog, 5, "%s():entry found", __func__);
    if (m_serverCallLog) {
      JLOG(kCoreLog, 5, "%s():send CSTAEscapeRequest", __func__);
      sendMissedCallLogEntryRequests(found->infos());
    }
    updateMissedEntry(*found, Helper::DELETEREQUEST);
    removedId = found->getUniqueId();
    list.erase(found);
    unviewed = getUnviewedMissedCallsCount();
  }
  m_pObserverNotifier->updateMissedCallCountAndCalls(unviewed, removedId);
  return true;
}
