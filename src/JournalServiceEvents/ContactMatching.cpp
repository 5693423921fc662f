// Whether a journal entry stands for the party of a phonebook contact, and the small phonebook
// and dialling-plan queries the entry rules use.
#include "JournalService.h"

namespace {

template <class Item>
bool newestOccurrenceMatches(const JournalService& service, const Item& item, const Contact& contact) {
  return !item.infos().empty() && service.contactMatchesCallInfo(item, item.infos().front(), contact);
}

}  // namespace

bool JournalService::contactMatchesMissedCall(const MissedCallItem& item, const Contact& contact) const {
  return newestOccurrenceMatches(*this, item, contact);
}

bool JournalService::contactMatchesReceivedCall(const ReceivedCallItem& item, const Contact& contact) const {
  return newestOccurrenceMatches(*this, item, contact);
}

bool JournalService::contactMatchesForwardedCall(const ForwardedCallItem& item, const Contact& contact) const {
  return newestOccurrenceMatches(*this, item, contact);
}

bool JournalService::contactMatchesDialledCall(const DialledCallItem& item, const Contact& contact) const {
  return !item.infos().empty() && sameNumber(contact.getNumber(), item.getJournalSeviceGroupBy());
}

bool JournalService::contactMatchesCallBack(const CallBackItem& item, const Contact& contact) const {
  return sameNumber(item.getNumber(), contact.getNumber());
}

// A named contact matches by number; one from the phonebook (number type set) also matches the
// same person reached under another of their numbers. An unnamed contact matches by number only,
// and two anonymous calls without any name merge.
bool JournalService::contactMatchesCallInfo(const CallItem& item, const CallInfo& info, const Contact& contact) const {
  const std::string& number = contact.getNumber();
  if (!contact.getSurname().empty()) {
    if (number.empty()) return info.number.empty() && namesMatch(item, contact);
    if (sameNumber(info.number, number)) return true;
    return contact.getNumberType() != NumberType::NT_NONE && !info.number.empty() && namesMatch(item, contact);
  }
  if (!number.empty()) return sameNumber(info.number, number);
  return info.number.empty() && item.getFirstname().empty() && item.getSurname().empty();
}

// A contact with a number matches an entry holding that number; one from the phonebook also
// matches an entry of the same name. A contact without a number has no keys: its search runs.
std::vector<std::string> JournalService::matchKeysOf(const Contact& contact) {
  if (contact.getNumber().empty()) return {};
  if (contact.getSurname().empty() || contact.getNumberType() == NumberType::NT_NONE) return {contact.getNumber()};
  return {contact.getNumber(), nameKey(contact.getSurname(), contact.getFirstname())};
}

bool JournalService::namesMatch(const CallItem& item, const Contact& contact) {
  return item.getSurname() == contact.getSurname() && item.getFirstname() == contact.getFirstname();
}

bool JournalService::partiesAreNotTheSame(const std::string& a, const std::string& b) { return !a.empty() && a != b; }

bool JournalService::contactIsInPhonebook(Contact& contact) {
  return m_pDirectorySvc != nullptr && m_pDirectorySvc->lookupContact(contact);
}

bool JournalService::contactNotInPhonebook(Contact& contact) { return !contactIsInPhonebook(contact); }

bool JournalService::isaFeatureAccessCode(const std::string& digits) {
  return m_pDigitAnalysisSvc != nullptr && m_pDigitAnalysisSvc->isFeatureAccessCode(digits);
}
