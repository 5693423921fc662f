// Received calls: an answered incoming call is filed under its party, merged with the party's
// earlier entry, kept within the list's limit, stored and announced; a talked call also clears the
// party's missed entry (KPX phones).
#include "JournalServiceEvents/EntryFiling.h"

using journal::kCoreLog;

bool JournalService::newReceivedCallEntry(
    const std::string& entryId, const std::string& remoteParty, const std::string& remotePartyName,
    const std::string& connectedParty, const std::string& connectedPartyName, long timeSec, long startSec, long endSec,
    CallLogEntryEvent::_LogTarget logTarget, CallLogEntryEvent::_PresentationValue numberPresentation,
    CallLogEntryEvent::_PresentationValue namePresentation,
    CallLogEntryEvent::_PresentationValue deflectNumberPresentation, const std::string& deflectNumber,
    CallLogEntryEvent::_PresentationValue deflectNamePresentation, const std::string& deflectName,
    const std::string& timeDate, CallLogEntryEvent::_TFormat timeFormat) {
  Contact contact = lookUpParty(remoteParty, remotePartyName);
  JLOG(kCoreLog, 5, "%s():{%s} Remote Party: %s, Remote Party Name: %s, Surname: %s, Firstname: %s", __func__,
       entryId.c_str(), remoteParty.c_str(), remotePartyName.c_str(), contact.getSurname().c_str(),
       contact.getFirstname().c_str());
  const bool sip = isSipSwitch();
  ReceivedCallItem::ReceivedCallInfo info;
  info.entryId = entryId;
  info.number = remoteParty;
  info.numberType = contact.getNumberType();
  fillSwitchLogData(info, {logTarget, numberPresentation, namePresentation, deflectNumberPresentation, deflectNumber,
                           deflectNamePresentation, deflectName, timeFormat, timeDate});
  if (timeSec != -1) info.timeDate = formatTimeDate(timeSec);
  fillConnectedParty(info, remoteParty, connectedParty, connectedPartyName);
  const bool talked = startSec != -1 && endSec != -1;
  if (talked) info.duration = formatDuration(startSec, endSec);

  // What the switch is to forget is noted under the list's lock and sent once it is given.
  PendingSwitchReports reports(*this);
  FilingRules<ReceivedCallItem> rules;
  rules.matches = [&](const ReceivedCallItem& item) { return contactMatchesReceivedCall(item, contact); };
  rules.matchKeys = matchKeysOf(contact);
  rules.makeEntry = [&] {
    if (!sip && contact.getSurname().empty() && contact.getFirstname().empty()) contact.setSurname(remotePartyName);
    ReceivedCallItem item(entryId, contact.getSurname(), contact.getFirstname(), {});
    item.setPictureClip(contact.getPictureClip());
    return item;
  };
  rules.beforeMerge = [&](ReceivedCallItem& merged) {
    if (!m_serverCallLog) return;
    if (const auto* dropped = droppedOccurrence(merged.infos(), info.number)) reports.deleteCall(*dropped);
  };
  rules.onDrop = [&](const ReceivedCallItem& item) {
    JournalListTraits<ReceivedCallItem>::reportToServer(*this, item, reports);
  };
  if (!sip) {  // a KPX switch may send a call's log data again
    rules.isRepeat = [&](const ReceivedCallItem& entry) {
      return !entry.infos().empty() && sameOccurrence(entry.infos().front(), info);
    };
  }
  auto filed = fileOccurrence(info, rules, [] {});
  reports.send();
  if (filed.repeated) {
    JLOG(kCoreLog, 5, "%s():Entry already exists, ignore", __func__);
    return false;
  }
  if (!sip && talked) searchRemoveMissedCallEntry(remoteParty);  // the party was reached
  m_pObserverNotifier->updateReceivedCalls(std::move(filed.front), filed.removedId, filed.action);
  return true;
}

bool JournalService::removeReceivedCallEntry(const std::string& subscriberNumber, const std::string& entryTime) {
  JLOG(kCoreLog, 5, "%s():Subscriber Number: %s, entryTime: %s", __func__, subscriberNumber.c_str(), entryTime.c_str());
  if (!removeOccurrencesUpTo<ReceivedCallItem>(subscriberNumber, entryTime,
                                               insertByNewestOccurrenceOf<ReceivedCallItem>()))
    return false;
  m_pObserverNotifier->updateReceivedCalls();
  return true;
}
