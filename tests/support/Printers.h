// How googletest prints the CSTA values and journal entries that tests compare, so that a failed
// EXPECT_EQ shows the values instead of their bytes: devices as `"name" <number>`, call-log entries
// field by field, journal entries as the item body the journal stores them as. Found by argument-
// dependent lookup: include this header in every test file that compares these types.
#pragma once

#include <ostream>
#include <string>

#include "framework/CallItems.h"
#include "framework/CallLogEntryEvent.h"
#include "framework/CstaEventValues.h"
#include "framework/CstaRequests.h"
#include "framework/JournalServiceHelper.h"

inline void PrintTo(const CSTADeviceID& device, std::ostream* os) {
  *os << '"' << device.name << "\" <" << device.number << '>';
}

inline void PrintTo(const CallLogEntryEvent::Field& field, std::ostream* os) {
  *os << "{presentation " << field.presentation << ", \"" << field.text << "\"}";
}

// "action 1 target 1 format 1 number 0301234 fields {...} {...}": the first `fieldCount` fields.
template <class Entry>
void printCallLogEntry(const Entry& entry, int fieldCount, std::ostream* os) {
  *os << "action " << entry.action << " target " << entry.logTarget << " format " << entry.timeFormat << " number "
      << entry.subscriberNumber << " fields";
  for (int i = 0; i < fieldCount; ++i) {
    *os << ' ';
    PrintTo(entry.fields[i], os);
  }
}

inline void PrintTo(const CallLogEntryEvent& entry, std::ostream* os) {
  printCallLogEntry(entry, CallLogEntryEvent::kFieldCount, os);
}
inline void PrintTo(const CallLogEntryRequest& entry, std::ostream* os) {
  printCallLogEntry(entry, CallLogEntryRequest::kFieldCount, os);
}

inline void PrintTo(const MissedCallItem& item, std::ostream* os) {
  *os << JournalServiceHelper::createXMLMissedCallItemBody(item, false);
}
inline void PrintTo(const ReceivedCallItem& item, std::ostream* os) {
  *os << JournalServiceHelper::createXMLReceivedCallItemBody(item, false);
}
inline void PrintTo(const DialledCallItem& item, std::ostream* os) {
  *os << JournalServiceHelper::createXMLDialledCallItemBody(item, false);
}
inline void PrintTo(const ForwardedCallItem& item, std::ostream* os) {
  *os << JournalServiceHelper::createXMLForwardedCallItemBody(item, false);
}
inline void PrintTo(const CallBackItem& item, std::ostream* os) {
  *os << JournalServiceHelper::createXMLCallBackItemBody(item, false);
}
