#include "framework/CallItems.h"

CallItem::~CallItem() = default;
CallItemWithPicture::~CallItemWithPicture() = default;
MissedCallItem::~MissedCallItem() = default;
ReceivedCallItem::~ReceivedCallItem() = default;
DialledCallItem::~DialledCallItem() = default;
ForwardedCallItem::~ForwardedCallItem() = default;
CallBackItem::~CallBackItem() = default;
Contact::~Contact() = default;

bool CallInfo::operator==(const CallInfo& o) const {
  return entryId == o.entryId && number == o.number && connectedNumber == o.connectedNumber &&
         connectedSurname == o.connectedSurname && connectedFirstname == o.connectedFirstname &&
         timeDate == o.timeDate && logTarget == o.logTarget && numberPresentation == o.numberPresentation &&
         namePresentation == o.namePresentation && numberType == o.numberType &&
         connectedNumberType == o.connectedNumberType;
}

bool Deflect::operator==(const Deflect& o) const {
  return deflectNumber == o.deflectNumber && deflectName == o.deflectName && deflectNumberType == o.deflectNumberType &&
         numberPresentation == o.numberPresentation && namePresentation == o.namePresentation;
}

bool MissedCallInfoRecord::operator==(const MissedCallInfoRecord& o) const {
  return CallInfo::operator==(o) && TimeFormat::operator==(o) && Deflect::operator==(o) &&
         completedElsewhere == o.completedElsewhere;
}

bool ReceivedCallInfoRecord::operator==(const ReceivedCallInfoRecord& o) const {
  return CallInfo::operator==(o) && Duration::operator==(o) && TimeFormat::operator==(o) && Deflect::operator==(o);
}

bool DialledCallInfoRecord::operator==(const DialledCallInfoRecord& o) const {
  return CallInfo::operator==(o) && Duration::operator==(o) && TimeFormat::operator==(o) &&
         dialledNumber == o.dialledNumber && isFeatureAccessCode == o.isFeatureAccessCode;
}

bool ForwardedCallInfoRecord::operator==(const ForwardedCallInfoRecord& o) const {
  return CallInfo::operator==(o) && Duration::operator==(o);
}

bool CallBackItem::operator==(const CallBackItem& o) const {
  return sameCallItem(o) && m_number == o.m_number && m_numberType == o.m_numberType && m_timeDate == o.m_timeDate &&
         m_type == o.m_type && m_state == o.m_state && m_deviceId == o.m_deviceId;
}

bool Contact::operator==(const Contact& o) const {
  return m_firstname == o.m_firstname && m_surname == o.m_surname && m_pictureClip == o.m_pictureClip &&
         m_numberType == o.m_numberType && m_number == o.m_number && title == o.title && company == o.company &&
         department == o.department && jobTitle == o.jobTitle && street == o.street && city == o.city &&
         postcode == o.postcode && country == o.country && email == o.email && note == o.note;
}
