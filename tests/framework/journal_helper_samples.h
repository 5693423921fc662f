// Sample entries for the JournalServiceHelper tests: every field set, and set to a value other
// than its default, so that a field the codec drops or swaps makes the round trip fail.
#pragma once

#include <deque>
#include <string>
#include <type_traits>
#include <vector>

#include "framework/JournalServiceHelper.h"

namespace journal_samples {

// A text for field `k` that carries `text` at both ends, so blanks and markup at the edges of a
// value are exercised, and differs between fields, so swapped fields are seen.
inline std::string field(const std::string& text, int k) { return text + "#" + std::to_string(k) + text; }

template <class Info>
Info makeInfo(const std::string& text, int n) {
  Info info;
  info.entryId = field(text, 100 + n);
  info.number = field(text, 101 + n);
  info.connectedNumber = field(text, 102 + n);
  info.connectedSurname = field(text, 103 + n);
  info.connectedFirstname = field(text, 104 + n);
  info.timeDate = "2024-03-0" + std::to_string(n + 1) + "T10:11:12";
  info.logTarget = CallLogEntryEvent::LT_DIALLED_OTHER;
  info.CallInfo::numberPresentation = CallLogEntryEvent::PV_RESTRICTED;
  info.CallInfo::namePresentation = CallLogEntryEvent::PV_SHOWN;
  info.numberType = NumberType::NT_MOBILE;
  info.connectedNumberType = NumberType::NT_HOME;
  if constexpr (std::is_base_of_v<TimeFormat, Info>) info.timeFormat = CallLogEntryEvent::TF_UTC;
  if constexpr (std::is_base_of_v<Duration, Info>) info.duration = field(text, 105 + n);
  if constexpr (std::is_base_of_v<Deflect, Info>) {
    info.deflectNumber = field(text, 106 + n);
    info.deflectName = field(text, 107 + n);
    info.deflectNumberType = NumberType::NT_OTHER;
    info.Deflect::numberPresentation = CallLogEntryEvent::PV_SHOWN;
    info.Deflect::namePresentation = CallLogEntryEvent::PV_RESTRICTED;
  }
  if constexpr (std::is_same_v<Info, MissedCallItem::MissedCallInfo>) info.completedElsewhere = true;
  if constexpr (std::is_same_v<Info, DialledCallItem::DialledCallInfo>) {
    info.dialledNumber = field(text, 108 + n);
    info.isFeatureAccessCode = true;
  }
  return info;
}

template <class Item>
Item makeItem(const std::string& text, int n = 0) {
  Item item;
  item.setEntryId(field(text, 1 + n));
  item.setSurname(field(text, 2 + n));
  item.setFirstname(field(text, 3 + n));
  if constexpr (std::is_same_v<Item, CallBackItem>) {
    item.setNumber(field(text, 4 + n));
    item.setNumberType(NumberType::NT_BUSINESS);
    item.setTimeDate(field(text, 5 + n));
    item.setCallBackType(CallBackItem::CBT_ON_NO_REPLY);
    item.setCallBackState(CallBackItem::CBS_READY);
    item.setDeviceId(field(text, 6 + n));
  } else {
    item.setUniqueId(field(text, 7 + n));
    item.setPictureClip(field(text, 8 + n));
    // Two occurrences in a definite order: the order must survive too.
    item.infos().push_back(makeInfo<typename Item::InfoList::value_type>(text, 1 + n));
    item.infos().push_back(makeInfo<typename Item::InfoList::value_type>(text, n));
    if constexpr (std::is_same_v<Item, MissedCallItem>) item.setViewed(true);
    if constexpr (std::is_same_v<Item, DialledCallItem>) item.setJournalSeviceGroupBy(field(text, 9 + n));
  }
  return item;
}

// The helper's operations for one entry type, so typed tests can run over all five.
template <class Item>
struct Ops;

#define JOURNAL_SAMPLE_OPS(Item, Name, ListName, Resp, Obs, ObsOp)                                       \
  template <>                                                                                            \
  struct Ops<Item> {                                                                                     \
    using H = JournalServiceHelper;                                                                      \
    static std::string body(const Item& i, bool d) { return H::createXML##Name##ItemBody(i, d); }        \
    static void append(const Item& i, std::string& t, bool d) { H::createXML##Name##ItemBody(i, t, d); } \
    static bool parseList(const std::string& r, std::deque<Item>& l) { return H::parseXML##ListName(r, l); } \
    static std::string resp(const std::deque<Item>& l) { return H::Resp(l); }                            \
    static std::string obs(const Item& i, const std::string& id, int a) { return H::obsReq##Obs(i, id, a); } \
    static bool parseObs(const std::string& m, Item& i, std::string& id, int& a) {                       \
      return H::parseObsReq##Obs(m, i, id, a);                                                           \
    }                                                                                                    \
    static constexpr const char* obsOperation = H::ObsOp;                                                \
  };

JOURNAL_SAMPLE_OPS(MissedCallItem, MissedCall, MissedCallList, respGetMissedCallList, MissedCallsUpdate,
                   OBS_MISSEDCALLSUPDATE)
JOURNAL_SAMPLE_OPS(ReceivedCallItem, ReceivedCall, ReceivedCallList, respGetReceivedCallList, ReceivedCallsUpdate,
                   OBS_RECEIVEDCALLSUPDATE)
JOURNAL_SAMPLE_OPS(DialledCallItem, DialledCall, DialledCallList, respGetDialledCallList, DialledCallsUpdate,
                   OBS_DIALLEDCALLSUPDATE)
JOURNAL_SAMPLE_OPS(ForwardedCallItem, ForwardedCall, ForwardedCallList, respGetForwardedCallList,
                   ForwardedCallsUpdate, OBS_FORWARDEDCALLSUPDATE)
JOURNAL_SAMPLE_OPS(CallBackItem, CallBack, CallBackList, respGetCallBackList, CallBacksUpdate, OBS_CALLBACKSUPDATE)
#undef JOURNAL_SAMPLE_OPS

// Texts that break naive XML handling.
inline std::vector<std::string> nastyTexts() {
  return {"",
          " ",
          "  leading and trailing  ",
          "<surname>&amp;</surname>",
          "a < b > c & d \" e ' f",
          "]]> <![CDATA[ x ]]>",
          "line one\nline two\r\nline three\r",
          "\ttab\t",
          "M\xC3\xBCller \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x93\x9E",
          "&#60; &lt; &unknown;",
          std::string(100000, 'x') + "<&>" + std::string(1000, ' ')};
}

}  // namespace journal_samples
