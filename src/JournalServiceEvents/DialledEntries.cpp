// Dialled calls: an outgoing call is filed under the number looked up for it (the entry's group-by
// text), merged with that number's earlier entry (whose names are refreshed from the phonebook),
// kept within the list's limit, stored and announced. A KPX call that was talked also clears the
// party's missed entry.
#include "JournalServiceEvents/EntryFiling.h"

using journal::kCoreLog;
using DialledInfo = DialledCallItem::DialledCallInfo;

bool JournalService::newDialledCallEntry(const std::string& entryId, const std::string& dialledParty,
                                         const std::string& remoteParty, const std::string& remotePartyName,
                                         const std::string& connectedParty, const std::string& connectedPartyName,
                                         long timeSec, long startSec, long endSec,
                                         CallLogEntryEvent::_LogTarget logTarget,
                                         CallLogEntryEvent::_PresentationValue numberPresentation,
                                         CallLogEntryEvent::_PresentationValue namePresentation,
                                         const std::string& timeDate, CallLogEntryEvent::_TFormat timeFormat) {
  JLOG(kCoreLog, 5,
       "%s():sDialledParty {%s}, Remote Party: %s, Remote Party Name: %s, sConnectedParty: %s, sConnectedPartyName: "
       "%s, timeSec: %ld, startSec: %ld, endSec: %ld",
       __func__, dialledParty.c_str(), remoteParty.c_str(), remotePartyName.c_str(), connectedParty.c_str(),
       connectedPartyName.c_str(), timeSec, startSec, endSec);
  const bool sip = isSipSwitch();
  Contact contact;
  contact.setNumber(remoteParty.empty() ? dialledParty : remoteParty);
  if (contactNotInPhonebook(contact)) {
    populateContactSurname(contact, dialledParty, remoteParty);
    contact.setNumberType(NumberType::NT_NONE);
  }
  DialledInfo info;
  info.entryId = entryId;
  populateDialledCallInfoNumber(info, dialledParty, remoteParty);
  info.numberType = contact.getNumberType();
  info.logTarget = logTarget;
  info.numberPresentation = numberPresentation;
  info.namePresentation = namePresentation;
  info.timeFormat = timeFormat;
  if (partiesAreNotTheSame(connectedParty, remoteParty))
    fillConnectedParty(info, remoteParty, connectedParty, connectedPartyName);
  else
    populateInfoConnectedNumber(info, dialledParty, connectedParty, remoteParty);
  populateDialledCallInfoTimeAndDate(info, timeDate, startSec, timeSec, endSec);

  // A call that another party answered is filed under the party that answered.
  const bool redirected = isUsingLumaUX() && logTarget == CallLogEntryEvent::LT_DIALLED &&
                          partiesAreNotTheSame(connectedParty, remoteParty);
  if (redirected) {
    contact = lookUpParty(connectedParty, connectedPartyName);
    info.connectedSurname.clear();
    info.connectedFirstname.clear();
    info.connectedNumberType = NumberType::NT_NONE;
    populateDialledCallInfoNumber(info, connectedParty, connectedParty);
  }

  // What the switch is to forget is noted under the lists' locks and sent once they are given.
  PendingSwitchReports reports(*this);
  FilingRules<DialledCallItem> rules;
  rules.matches = [&](const DialledCallItem& item) { return contactMatchesDialledCall(item, contact); };
  rules.matchKeys = {contact.getNumber()};
  rules.makeEntry = [&] {
    JLOG(kCoreLog, 5, "%s():New Dialled call item", "newDialledCallEntry");
    if (!redirected) populateRemoteContactSurname(contact, remotePartyName, false);
    DialledCallItem item(entryId, contact.getSurname(), contact.getFirstname(), {});
    item.setJournalSeviceGroupBy(contact.getNumber());
    populateDialledCallItemWithPicture(contact, item);
    return item;
  };
  rules.beforeMerge = [&](DialledCallItem& merged) {
    if (!redirected) populateRemoteContactSurname(contact, remotePartyName, true);
    populateItemNames(merged, contact);
    reportCallsPushedOut(merged.infos(), info, reports);
    JLOG(kCoreLog, 5, "%s():Adding to exsiting Dialled Call identity", "newDialledCallEntry");
  };
  rules.isRepeat = [&](const DialledCallItem& entry) { return firstInfoListItemIsIdentical(info, entry); };
  // A talked call reached the party: its missed entry goes, and observers hear of that first.
  std::optional<MissedRemoval> missedRemoval;
  auto filed = fileOccurrence(info, rules, [&] {
    if (sip) return;
    JLOG(kCoreLog, 5, "New Dialled Call Remove Missed");
    if (startSec == -1 || endSec == -1) return;
    JLOG(kCoreLog, 5, "New Dialled Call Remove Missed:  Unknown Time");
    missedRemoval = removeMissedEntryOf(remoteParty, reports);
  });
  reports.send();
  if (filed.repeated) {
    JLOG(kCoreLog, 5, "%s():Entry already exists, ignore", __func__);
    return false;
  }
  if (missedRemoval) notifyMissedRemoval(*missedRemoval);
  m_pObserverNotifier->updateDialledCalls(std::move(filed.front), filed.removedId, filed.action);
  return true;
}

bool JournalService::removeDialledCallEntry(const std::string& subscriberNumber, const std::string& entryTime) {
  JLOG(kCoreLog, 5, "%s():Subscriber Number: %s, entryTime: %s", __func__, subscriberNumber.c_str(), entryTime.c_str());
  if (!removeOccurrencesUpTo<DialledCallItem>(subscriberNumber, entryTime,
                                              insertByNewestOccurrenceOf<DialledCallItem>()))
    return false;
  m_pObserverNotifier->updateDialledCalls(getFrontDialledCall());
  return true;
}

// A KPX switch may send a call's log data again: the same number, number type and time as the
// entry's newest occurrence.
bool JournalService::firstInfoListItemIsIdentical(const DialledInfo& info, const DialledCallItem& entry) const {
  return !isSipSwitch() && !entry.infos().empty() && sameOccurrence(entry.infos().front(), info);
}

// A SIP phone files what was dialled; a feature access code keeps the digits and notes the number
// it reached. A KPX switch reports the number reached.
void JournalService::populateDialledCallInfoNumber(DialledInfo& info, const std::string& dialledParty,
                                                   const std::string& remoteParty) {
  if (!isSipSwitch()) {
    info.number = remoteParty;
    info.isFeatureAccessCode = false;
    return;
  }
  info.number = dialledParty;
  info.isFeatureAccessCode = isaFeatureAccessCode(dialledParty);
  if (info.isFeatureAccessCode && dialledParty != remoteParty) info.dialledNumber = remoteParty;
}

void JournalService::populateInfoConnectedNumber(DialledInfo& info, const std::string& /*dialledParty*/,
                                                 const std::string& connectedParty,
                                                 const std::string& /*remoteParty*/) {
  if (!info.isFeatureAccessCode) return;
  if (!connectedParty.empty())
    info.connectedNumber = connectedParty;
  else if (!info.dialledNumber.empty())
    info.connectedNumber = info.dialledNumber;
}

void JournalService::populateDialledCallInfoTimeAndDate(DialledInfo& info, const std::string& timeDate, long startSec,
                                                        long timeSec, long endSec) {
  info.timeDate = timeSec != -1 ? formatTimeDate(timeSec) : timeDate;
  if (startSec != -1 && endSec != -1) info.duration = formatDuration(startSec, endSec);
}

// Only a contact without a number (nothing was dialled) is named after the call here.
void JournalService::populateContactSurname(Contact& contact, const std::string& dialledParty,
                                            const std::string& remoteParty) {
  if (!contact.getNumber().empty()) return;
  contact.setSurname(isSipSwitch() ? dialledParty : remoteParty);
}

void JournalService::populateRemoteContactSurname(Contact& contact, const std::string& remotePartyName, bool found) {
  if (isSipSwitch()) {
    if (contact.getSurname().empty()) contact.setSurname(remotePartyName);
  } else if (!found && contact.getSurname().empty() && contact.getFirstname().empty()) {
    contact.setSurname(remotePartyName);
  }
}

// The phonebook's names (which may have changed since the last call) replace the entry's; a party
// without a name this time (not in the phonebook, and the switch sent none) keeps the name the
// entry has.
void JournalService::populateItemNames(DialledCallItem& item, const Contact& contact) {
  if (contact.getSurname().empty() && contact.getFirstname().empty()) return;
  item.setSurname(contact.getSurname());
  item.setFirstname(contact.getFirstname());
}

void JournalService::populateDialledCallItemWithPicture(const Contact& contact, DialledCallItem& item) {
  if (!contact.getPictureClip().empty()) item.setPictureClip(contact.getPictureClip());
}
