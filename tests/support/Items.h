// Journal entries for tests: one entry of a party with `occurrences` calls, the newest at `time`
// and each older one a minute earlier.
#pragma once

#include <cstdio>
#include <string>

#include "framework/CallItems.h"

template <class Item>
Item makeEntry(const std::string& entryId, const std::string& number, const std::string& time,
               size_t occurrences = 1) {
  Item item;
  item.setEntryId(entryId);
  item.setSurname("Surname " + number);
  for (size_t i = 0; i < occurrences; ++i) {
    typename Item::InfoList::value_type info;
    info.entryId = entryId;
    info.number = number;
    info.timeDate = time;
    if (i > 0) {  // older occurrences: minutes counted back from "...T10:59:00"-like times
      char older[32];
      std::snprintf(older, sizeof older, "%.13s:%02zu:00", time.c_str(), 59 - i % 60);
      info.timeDate = older;
    }
    item.infos().push_back(info);
  }
  return item;
}

inline CallBackItem makeCallBack(const std::string& entryId, const std::string& number) {
  return CallBackItem(entryId, "", "", number, NumberType::NT_NONE, "2024-03-05T10:00:00", CallBackItem::CBT_ON_BUSY,
                      CallBackItem::CBS_PENDING, "");
}
