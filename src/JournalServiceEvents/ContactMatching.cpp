// Whether a journal entry stands for the party of a phonebook contact, and the small phonebook
// and dialling-plan queries the entry rules use.
#include "JournalService.h"

namespace {

template <class Item>
bool newestOccurrenceMatches(const JournalService& service, const Item& item, const Contact& contact) {
  return !item.infos().empty() && service.contactMatchesCallInfo(item, item.infos().front(), contact);
}

}  // namespace

bool JournalService::contactMatchesMissedCall(MissedCallItem item, Contact contact) const {
  return newestOccurrenceMatches(*this, item, contact);
}

bool JournalService::contactMatchesReceivedCall(ReceivedCallItem item, Contact contact) const {
  return newestOccurrenceMatches(*this, item, contact);
}

bool JournalService::contactMatchesForwardedCall(ForwardedCallItem item, Contact contact) const {
  return newestOccurrenceMatches(*this, item, contact);
}

bool JournalService::contactMatchesDialledCall(DialledCallItem item, Contact contact) const {
  return !item.infos().empty() && contact.getNumber() == item.getJournalSeviceGroupBy();
}

bool JournalService::contactMatchesCallBack(CallBackItem item, Contact contact) const {
  return item.getNumber() == contact.getNumber();
}

// A named contact matches by number; one from the phonebook (number type set) also matches the
// same person reached under another of their numbers. An unnamed contact matches by number only,
// and two anonymous calls without any name merge.
bool JournalService::contactMatchesCallInfo(const CallItem& item, const CallInfo& info, const Contact& contact) const {
  const std::string& number = contact.getNumber();
  if (!contact.getSurname().empty()) {
    if (number.empty()) return namesMatch(item, contact) && info.number.empty();
    if (info.number == number) return true;
    return namesMatch(item, contact) && !info.number.empty() && contact.getNumberType() != NumberType::NT_NONE;
  }
  if (!number.empty()) return info.number == number;
  return info.number.empty() && item.getFirstname().empty() && item.getSurname().empty();
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
