// The journal's entry model: one entry per party, holding its occurrences ("infos"), newest first.
//
//   CallItem                      entry id, surname, first name
//    +- CallItemWithPicture       + unique id in the store, picture clip, place in its list
//    |   +- CallItemWithInfos<I>  + list of occurrence records I
//    |       +- MissedCallItem    + viewed flag
//    |       +- ReceivedCallItem
//    |       +- DialledCallItem   + group-by text
//    |       +- ForwardedCallItem
//    +- CallBackItem              + number, number type, time, callback type and state, device id
//
// Infos are CallInfo plus the small groups TimeFormat, Duration and Deflect: value types without
// virtual functions whose texts are CompactStrings (most fit in place), kept in a vector per entry,
// so that a full list of occurrences costs little more than their characters. The entries' own
// texts (ids, names, picture clip, group-by text) are CompactStrings too: an entry merged with a
// call moves to the front of its list past hundreds of others, and each of those moves copies a
// few fixed words per text instead of string bookkeeping. Their getters hand out the
// CompactString, which converts to std::string where a caller needs one. Contact is the
// phonebook record entries are matched against. All are plain value types (copyable, not
// thread-safe); the journal guards each list with its own lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/CallLogEntryEvent.h"
#include "framework/CompactString.h"

#pragma GCC visibility push(default)

namespace NumberType {
// Phonebook type of a number; NT_NONE also means "not in the phonebook".
enum NT { NT_NONE = 0, NT_BUSINESS = 1, NT_MOBILE = 2, NT_HOME = 3, NT_OTHER = 4 };
}  // namespace NumberType

// Most occurrences kept per entry; addCallInfoToList drops the oldest beyond it.
constexpr size_t kMaxCallInfos = 10;

// Puts `info` at the front of `infos` and drops the last records beyond kMaxCallInfos. The
// vector grows one slot at a time: a list holds thousands of them, none with spare slots.
template <class Info>
void addCallInfoToList(std::vector<Info>& infos, const Info& info) {
  if (infos.size() >= kMaxCallInfos) infos.resize(kMaxCallInfos - 1);
  if (infos.size() == infos.capacity()) infos.reserve(infos.size() + 1);
  infos.insert(infos.begin(), info);
}

// The entry classes have virtual destructors, so their copy and move operations are declared
// explicitly: without them every move (sorting, inserting into a list) would be a deep copy.
class CallItem {
 public:
  CallItem() = default;
  CallItem(std::string entryId, std::string surname, std::string firstname)
      : m_entryId(entryId), m_surname(surname), m_firstname(firstname) {}
  virtual ~CallItem();
  CallItem(const CallItem&) = default;
  CallItem(CallItem&&) noexcept = default;
  CallItem& operator=(const CallItem&) = default;
  CallItem& operator=(CallItem&&) noexcept = default;

  const CompactString& getEntryId() const { return m_entryId; }
  const CompactString& getSurname() const { return m_surname; }
  const CompactString& getFirstname() const { return m_firstname; }
  void setEntryId(const std::string& id) { m_entryId = id; }
  void setSurname(const std::string& surname) { m_surname = surname; }
  void setFirstname(const std::string& firstname) { m_firstname = firstname; }

 protected:
  bool sameCallItem(const CallItem& other) const {
    return m_entryId == other.m_entryId && m_surname == other.m_surname && m_firstname == other.m_firstname;
  }

 private:
  CompactString m_entryId;
  CompactString m_surname;
  CompactString m_firstname;
};

class CallItemWithPicture : public CallItem {
 public:
  using CallItem::CallItem;
  ~CallItemWithPicture() override;
  CallItemWithPicture() = default;
  CallItemWithPicture(const CallItemWithPicture&) = default;
  CallItemWithPicture(CallItemWithPicture&&) noexcept = default;
  CallItemWithPicture& operator=(const CallItemWithPicture&) = default;
  CallItemWithPicture& operator=(CallItemWithPicture&&) noexcept = default;

  const CompactString& getUniqueId() const { return m_uniqueId; }
  void setUniqueId(const std::string& id) { m_uniqueId = id; }
  const CompactString& getPictureClip() const { return m_pictureClip; }
  void setPictureClip(const std::string& clip) { m_pictureClip = clip; }
  // The entry's place in its list, kept by the journal so that a stored list comes back in its
  // order: larger is nearer the front; 0 is no place yet (an entry of an older store file).
  int64_t getListOrder() const { return m_listOrder; }
  void setListOrder(int64_t order) { m_listOrder = order; }

 protected:
  // The list order is where the entry stands, not what it holds: it takes no part in equality.
  bool sameItemWithPicture(const CallItemWithPicture& other) const {
    return sameCallItem(other) && m_uniqueId == other.m_uniqueId && m_pictureClip == other.m_pictureClip;
  }

 private:
  CompactString m_uniqueId;
  CompactString m_pictureClip;
  int64_t m_listOrder = 0;
};

// One occurrence of a call.
class CallInfo {
 public:
  CompactString entryId;
  CompactString number;
  CompactString connectedNumber;
  CompactString connectedSurname;
  CompactString connectedFirstname;
  CompactString timeDate;  // "YYYY-MM-DDThh:mm:ss"; the sort key
  CallLogEntryEvent::_LogTarget logTarget = CallLogEntryEvent::LT_RECEIVED;
  CallLogEntryEvent::_PresentationValue numberPresentation = CallLogEntryEvent::PV_NONE;
  CallLogEntryEvent::_PresentationValue namePresentation = CallLogEntryEvent::PV_NONE;
  NumberType::NT numberType = NumberType::NT_NONE;
  NumberType::NT connectedNumberType = NumberType::NT_NONE;

  bool operator==(const CallInfo& o) const;
};

class TimeFormat {
 public:
  CallLogEntryEvent::_TFormat timeFormat = CallLogEntryEvent::TF_LOCAL;
  bool operator==(const TimeFormat& o) const { return timeFormat == o.timeFormat; }
};

class Duration {
 public:
  CompactString duration;  // "mm:ss", minutes not folded into hours
  bool operator==(const Duration& o) const { return duration == o.duration; }
};

// The party that deflected or diverted the call. Its presentation fields share their names with
// CallInfo's: reach them as info.Deflect::numberPresentation.
class Deflect {
 public:
  CompactString deflectNumber;
  CompactString deflectName;
  NumberType::NT deflectNumberType = NumberType::NT_NONE;
  CallLogEntryEvent::_PresentationValue numberPresentation = CallLogEntryEvent::PV_NONE;
  CallLogEntryEvent::_PresentationValue namePresentation = CallLogEntryEvent::PV_NONE;
  bool operator==(const Deflect& o) const;
};

// The occurrence records of the four call entry types. Each entry type names its own as a nested
// type (MissedCallItem::MissedCallInfo, ...).
class MissedCallInfoRecord : public CallInfo, public TimeFormat, public Deflect {
 public:
  bool completedElsewhere = false;  // answered at another device of the same line
  bool operator==(const MissedCallInfoRecord& o) const;
};

class ReceivedCallInfoRecord : public CallInfo, public Duration, public TimeFormat, public Deflect {
 public:
  bool operator==(const ReceivedCallInfoRecord& o) const;
};

class DialledCallInfoRecord : public CallInfo, public Duration, public TimeFormat {
 public:
  CompactString dialledNumber;  // the digits as dialled, when they were a feature access code
  bool isFeatureAccessCode = false;
  bool operator==(const DialledCallInfoRecord& o) const;
};

class ForwardedCallInfoRecord : public CallInfo, public Duration {
 public:
  bool operator==(const ForwardedCallInfoRecord& o) const;
};

// What the four call entry types share: the picture fields and a list of occurrences, newest first.
template <class Info>
class CallItemWithInfos : public CallItemWithPicture {
 public:
  using InfoList = std::vector<Info>;

  CallItemWithInfos() = default;
  CallItemWithInfos(std::string entryId, std::string surname, std::string firstname, InfoList infos)
      : CallItemWithPicture(std::move(entryId), std::move(surname), std::move(firstname)), m_infos(std::move(infos)) {}

  const InfoList& infos() const { return m_infos; }
  InfoList& infos() { return m_infos; }
  void addCallInfoToList(const Info& info) { ::addCallInfoToList(m_infos, info); }

 protected:
  bool sameItemWithInfos(const CallItemWithInfos& o) const { return sameItemWithPicture(o) && m_infos == o.m_infos; }

 private:
  InfoList m_infos;
};

class MissedCallItem : public CallItemWithInfos<MissedCallInfoRecord> {
 public:
  using MissedCallInfo = MissedCallInfoRecord;

  MissedCallItem() = default;
  MissedCallItem(std::string entryId, std::string surname, std::string firstname, InfoList infos, bool viewed)
      : CallItemWithInfos(std::move(entryId), std::move(surname), std::move(firstname), std::move(infos)),
        m_viewed(viewed) {}
  ~MissedCallItem() override;
  MissedCallItem(const MissedCallItem&) = default;
  MissedCallItem(MissedCallItem&&) noexcept = default;
  MissedCallItem& operator=(const MissedCallItem&) = default;
  MissedCallItem& operator=(MissedCallItem&&) noexcept = default;

  const InfoList& getMissedCallInfoList() const { return infos(); }
  InfoList& getMissedCallInfoList() { return infos(); }
  void setMissedCallInfoList(const InfoList& list) { infos() = list; }
  bool getViewed() const { return m_viewed; }
  void setViewed(bool viewed) { m_viewed = viewed; }

  bool operator==(const MissedCallItem& o) const { return sameItemWithInfos(o) && m_viewed == o.m_viewed; }

 private:
  bool m_viewed = false;
};

class ReceivedCallItem : public CallItemWithInfos<ReceivedCallInfoRecord> {
 public:
  using ReceivedCallInfo = ReceivedCallInfoRecord;
  using CallItemWithInfos::CallItemWithInfos;
  ~ReceivedCallItem() override;
  ReceivedCallItem() = default;
  ReceivedCallItem(const ReceivedCallItem&) = default;
  ReceivedCallItem(ReceivedCallItem&&) noexcept = default;
  ReceivedCallItem& operator=(const ReceivedCallItem&) = default;
  ReceivedCallItem& operator=(ReceivedCallItem&&) noexcept = default;

  const InfoList& getReceivedCallInfoList() const { return infos(); }
  InfoList& getReceivedCallInfoList() { return infos(); }
  void setReceivedCallInfoList(const InfoList& list) { infos() = list; }

  bool operator==(const ReceivedCallItem& o) const { return sameItemWithInfos(o); }
};

class DialledCallItem : public CallItemWithInfos<DialledCallInfoRecord> {
 public:
  using DialledCallInfo = DialledCallInfoRecord;
  using CallItemWithInfos::CallItemWithInfos;
  ~DialledCallItem() override;
  DialledCallItem() = default;
  DialledCallItem(const DialledCallItem&) = default;
  DialledCallItem(DialledCallItem&&) noexcept = default;
  DialledCallItem& operator=(const DialledCallItem&) = default;
  DialledCallItem& operator=(DialledCallItem&&) noexcept = default;

  // The text dialled entries are grouped by (spelt so on purpose).
  const CompactString& getJournalSeviceGroupBy() const { return m_groupBy; }
  void setJournalSeviceGroupBy(const std::string& groupBy) { m_groupBy = groupBy; }
  const InfoList& getDialledCallInfoList() const { return infos(); }
  InfoList& getDialledCallInfoList() { return infos(); }
  void setDialledCallInfoList(const InfoList& list) { infos() = list; }

  bool operator==(const DialledCallItem& o) const { return sameItemWithInfos(o) && m_groupBy == o.m_groupBy; }

 private:
  CompactString m_groupBy;
};

class ForwardedCallItem : public CallItemWithInfos<ForwardedCallInfoRecord> {
 public:
  using ForwardedCallInfo = ForwardedCallInfoRecord;
  using CallItemWithInfos::CallItemWithInfos;
  ~ForwardedCallItem() override;
  ForwardedCallItem() = default;
  ForwardedCallItem(const ForwardedCallItem&) = default;
  ForwardedCallItem(ForwardedCallItem&&) noexcept = default;
  ForwardedCallItem& operator=(const ForwardedCallItem&) = default;
  ForwardedCallItem& operator=(ForwardedCallItem&&) noexcept = default;

  const InfoList& getForwardedCallInfoList() const { return infos(); }
  InfoList& getForwardedCallInfoList() { return infos(); }
  void setForwardedCallInfoList(const InfoList& list) { infos() = list; }

  bool operator==(const ForwardedCallItem& o) const { return sameItemWithInfos(o); }
};

class CallBackItem : public CallItem {
 public:
  enum CallBackType { CBT_NONE = 0, CBT_ON_BUSY = 1, CBT_ON_NO_REPLY = 2 };
  enum CallBackState { CBS_NONE = 0, CBS_PENDING = 1, CBS_READY = 2 };

  CallBackItem() = default;
  CallBackItem(std::string entryId, std::string surname, std::string firstname, std::string number,
               NumberType::NT numberType, std::string timeDate, CallBackType type, CallBackState state,
               std::string deviceId)
      : CallItem(std::move(entryId), std::move(surname), std::move(firstname)),
        m_number(std::move(number)),
        m_numberType(numberType),
        m_timeDate(std::move(timeDate)),
        m_type(type),
        m_state(state),
        m_deviceId(std::move(deviceId)) {}
  ~CallBackItem() override;
  CallBackItem(const CallBackItem&) = default;
  CallBackItem(CallBackItem&&) noexcept = default;
  CallBackItem& operator=(const CallBackItem&) = default;
  CallBackItem& operator=(CallBackItem&&) noexcept = default;

  const std::string& getNumber() const { return m_number; }
  NumberType::NT getNumberType() const { return m_numberType; }
  const std::string& getTimeDate() const { return m_timeDate; }
  CallBackType getCallBackType() const { return m_type; }
  CallBackState getCallBackState() const { return m_state; }
  const std::string& getDeviceId() const { return m_deviceId; }
  void setNumber(const std::string& number) { m_number = number; }
  void setNumberType(NumberType::NT type) { m_numberType = type; }
  void setTimeDate(const std::string& timeDate) { m_timeDate = timeDate; }
  void setCallBackType(CallBackType type) { m_type = type; }
  void setCallBackState(CallBackState state) { m_state = state; }
  void setDeviceId(const std::string& deviceId) { m_deviceId = deviceId; }

  bool operator==(const CallBackItem& o) const;

 private:
  std::string m_number;
  NumberType::NT m_numberType = NumberType::NT_NONE;
  std::string m_timeDate;
  CallBackType m_type = CBT_NONE;
  CallBackState m_state = CBS_NONE;
  std::string m_deviceId;
};

// A phonebook record: the key of a look-up (number set) and its result. Fifteen fields; the
// journal reads and writes first name, surname, picture clip, number type and number and carries
// the others along.
class Contact {
 public:
  Contact() = default;
  virtual ~Contact();
  Contact(const Contact&) = default;
  Contact(Contact&&) noexcept = default;
  Contact& operator=(const Contact&) = default;
  Contact& operator=(Contact&&) noexcept = default;

  const std::string& getFirstname() const { return m_firstname; }
  const std::string& getSurname() const { return m_surname; }
  const std::string& getPictureClip() const { return m_pictureClip; }
  NumberType::NT getNumberType() const { return m_numberType; }
  const std::string& getNumber() const { return m_number; }
  void setFirstname(const std::string& v) { m_firstname = v; }
  void setSurname(const std::string& v) { m_surname = v; }
  void setPictureClip(const std::string& v) { m_pictureClip = v; }
  void setNumberType(NumberType::NT v) { m_numberType = v; }
  void setNumber(const std::string& v) { m_number = v; }

  // The fields the journal does not read, by position 3 to 11 and 15.
  std::string title, company, department, jobTitle, street, city, postcode, country, email;
  std::string note;

  bool operator==(const Contact& o) const;

 private:
  std::string m_firstname;                            // 1
  std::string m_surname;                              // 2
  std::string m_pictureClip;                          // 12
  NumberType::NT m_numberType = NumberType::NT_NONE;  // 13
  std::string m_number;                               // 14
};

#pragma GCC visibility pop
