// The journal's lists as a client reads them (JournalServiceIfc), newest first: for tests that
// look at what the journal holds from the outside.
#pragma once

#include <deque>

#include "JournalServiceIfc.h"

template <class Item>
std::deque<Item> listOf(JournalServiceIfc& journal, bool (JournalServiceIfc::*get)(std::deque<Item>&)) {
  std::deque<Item> list;
  (journal.*get)(list);
  return list;
}
inline std::deque<MissedCallItem> missedCalls(JournalServiceIfc& journal) {
  return listOf(journal, &JournalServiceIfc::getMissedCallList);
}
inline std::deque<ReceivedCallItem> receivedCalls(JournalServiceIfc& journal) {
  return listOf(journal, &JournalServiceIfc::getReceivedCallList);
}
inline std::deque<DialledCallItem> dialledCalls(JournalServiceIfc& journal) {
  return listOf(journal, &JournalServiceIfc::getDialledCallList);
}
inline std::deque<ForwardedCallItem> forwardedCalls(JournalServiceIfc& journal) {
  return listOf(journal, &JournalServiceIfc::getForwardedCallList);
}
inline std::deque<CallBackItem> callBacks(JournalServiceIfc& journal) {
  return listOf(journal, &JournalServiceIfc::getCallBackList);
}
