#include "JournalLists.h"

#include <algorithm>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <type_traits>
#include <vector>

#include "framework/JournalServiceHelper.h"

using nlohmann::ordered_json;
using Helper = JournalServiceHelper;

namespace cli {

namespace {

const char* const kNames[] = {"missed", "received", "dialled", "forwarded", "callbacks"};

int index(ListKind kind) { return static_cast<int>(kind); }

// ---- JSON ------------------------------------------------------------------------------------

// The fields of one occurrence; the optional parts only where the record type has them.
template <class Info>
ordered_json infoJson(const Info& info) {
  ordered_json j;
  j["entryId"] = info.entryId;
  j["number"] = info.number;
  j["numberType"] = static_cast<int>(info.numberType);
  j["timeDate"] = info.timeDate;
  if constexpr (std::is_base_of_v<Duration, Info>) j["duration"] = info.duration;
  j["connectedNumber"] = info.connectedNumber;
  j["connectedSurname"] = info.connectedSurname;
  j["connectedFirstname"] = info.connectedFirstname;
  if constexpr (std::is_base_of_v<Deflect, Info>) {
    j["deflectNumber"] = info.deflectNumber;
    j["deflectName"] = info.deflectName;
  }
  if constexpr (std::is_same_v<Info, MissedCallInfoRecord>) j["completedElsewhere"] = info.completedElsewhere;
  if constexpr (std::is_same_v<Info, DialledCallInfoRecord>) {
    j["dialledNumber"] = info.dialledNumber;
    j["isFeatureAccessCode"] = info.isFeatureAccessCode;
  }
  return j;
}

template <class Item>
ordered_json entryJson(const Item& item) {
  ordered_json j;
  j["entryId"] = item.getEntryId();
  j["uniqueId"] = item.getUniqueId();
  j["surname"] = item.getSurname();
  j["firstname"] = item.getFirstname();
  if constexpr (std::is_same_v<Item, MissedCallItem>) j["viewed"] = item.getViewed();
  if constexpr (std::is_same_v<Item, DialledCallItem>) j["groupBy"] = item.getJournalSeviceGroupBy();
  ordered_json infos = ordered_json::array();
  for (const auto& info : item.infos()) infos.push_back(infoJson(info));
  j["infos"] = std::move(infos);
  return j;
}

ordered_json entryJson(const CallBackItem& item) {
  ordered_json j;
  j["entryId"] = item.getEntryId();
  j["surname"] = item.getSurname();
  j["firstname"] = item.getFirstname();
  j["number"] = item.getNumber();
  j["numberType"] = static_cast<int>(item.getNumberType());
  j["timeDate"] = item.getTimeDate();
  j["type"] = static_cast<int>(item.getCallBackType());
  j["state"] = static_cast<int>(item.getCallBackState());
  j["deviceId"] = item.getDeviceId();
  return j;
}

template <class Item>
ordered_json listJson(const std::deque<Item>& list) {
  ordered_json a = ordered_json::array();
  for (const Item& item : list) a.push_back(entryJson(item));
  return a;
}

// ---- Tables ----------------------------------------------------------------------------------

using Row = std::vector<std::string>;

std::string nameOf(const CallItem& item) {
  if (item.getFirstname().empty()) return item.getSurname();
  if (item.getSurname().empty()) return item.getFirstname();
  return item.getFirstname() + " " + item.getSurname();
}

// Characters a terminal shows for UTF-8 text: every byte but continuation bytes.
size_t displayWidth(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// Columns padded to their widest cell, two blanks apart.
void printRows(const std::vector<Row>& rows, std::ostream& out) {
  std::vector<size_t> widths;
  for (const Row& row : rows)
    for (size_t i = 0; i < row.size(); ++i) {
      if (widths.size() <= i) widths.push_back(0);
      widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
  for (const Row& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line += std::string(widths[i] - displayWidth(row[i]) + 2, ' ');
    }
    out << "  " << line << '\n';
  }
}

template <class Item>
Row entryRow(const Item& item) {
  const auto& newest = item.infos().empty() ? typename Item::InfoList::value_type() : item.infos().front();
  Row row{newest.timeDate, newest.number, nameOf(item), std::to_string(item.infos().size())};
  std::string extra;
  if constexpr (std::is_base_of_v<Duration, typename Item::InfoList::value_type>) extra = newest.duration;
  if constexpr (std::is_same_v<Item, MissedCallItem>) extra = item.getViewed() ? "" : "new";
  if constexpr (std::is_same_v<Item, ForwardedCallItem>) {
    if (!newest.connectedNumber.empty()) extra += (extra.empty() ? "to " : "  to ") + newest.connectedNumber;
  }
  row.push_back(extra);
  row.push_back(item.getEntryId());
  return row;
}

Row entryRow(const CallBackItem& item) {
  static const char* const kStates[] = {"", "pending", "ready"};
  int state = static_cast<int>(item.getCallBackState());
  return {item.getTimeDate(), item.getNumber(), nameOf(item), "", state >= 0 && state < 3 ? kStates[state] : "",
          item.getEntryId()};
}

// The heading of the column after CALLS.
template <class Item>
const char* detailHeading() {
  if constexpr (std::is_same_v<Item, MissedCallItem>) return "";
  if constexpr (std::is_same_v<Item, ForwardedCallItem>) return "FORWARDED";
  if constexpr (std::is_same_v<Item, CallBackItem>) return "STATE";
  return "DURATION";
}

template <class Item>
void printList(const char* title, const std::deque<Item>& list, const std::string& note, std::ostream& out) {
  out << title << " (" << list.size() << (list.size() == 1 ? " entry" : " entries") << note << ")\n";
  if (list.empty()) {
    out << "  (empty)\n\n";
    return;
  }
  std::vector<Row> rows{{"TIME", "NUMBER", "NAME", "CALLS", detailHeading<Item>(), "ID"}};
  for (const Item& item : list) rows.push_back(entryRow(item));
  printRows(rows, out);
  out << '\n';
}

const char* actionName(int action) {
  static const char* const kActions[] = {"new", "merged", "deleted", "list-changed"};
  return action >= 0 && action < 4 ? kActions[action] : "unknown";
}

// An update of one list: parsed with `parse`, shown as a line or a JSON object.
template <class Item, class Parse>
std::string updateLine(const std::string& msg, const char* list, Parse parse, bool json) {
  Item item;
  std::string id;
  int action = -1;
  if (!parse(msg, item, id, action)) return std::string();
  if (json) {
    ordered_json j;
    j["list"] = list;
    j["action"] = actionName(action);
    j["id"] = id;
    j["entry"] = entryJson(item);
    return j.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
  }
  std::string line = std::string(list) + " " + actionName(action);
  std::string number;
  if constexpr (std::is_same_v<Item, CallBackItem>) {
    number = item.getNumber();
  } else {
    if (!item.infos().empty()) number = item.infos().front().number;
  }
  if (!item.getEntryId().empty()) line += " " + item.getEntryId();
  if (!number.empty()) line += " " + number;
  if (!nameOf(item).empty()) line += " \"" + nameOf(item) + "\"";
  if (!id.empty()) line += (action == 2 ? " " : " dropped:") + id;
  return line;
}

std::string countLine(const char* name, bool ok, unsigned count, bool json) {
  if (!ok) return std::string();
  if (!json) return std::string(name) + " " + std::to_string(count);
  ordered_json j;
  j[name] = count;
  return j.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace

std::string observerMessageLine(const std::string& msg, bool json) {
  const std::string op = Helper::getObserverOperation(msg);
  unsigned count = 0;
  // The count is parsed before it is passed on: an argument list would be free to copy it first.
  if (op == Helper::OBS_MISSEDCALLSCOUNTUPDATE) {
    const bool parsed = Helper::parseObsReqMissedCallsCountUpdate(msg, count);
    return countLine("unviewedMissed", parsed, count, json);
  }
  if (op == Helper::OBS_CALLBACKSCOUNTUPDATE) {
    const bool parsed = Helper::parseObsReqCallBacksCountUpdate(msg, count);
    return countLine("callbacks", parsed, count, json);
  }
  if (op == Helper::OBS_MISSEDCALLSUPDATE)
    return updateLine<MissedCallItem>(msg, "missed", Helper::parseObsReqMissedCallsUpdate, json);
  if (op == Helper::OBS_RECEIVEDCALLSUPDATE)
    return updateLine<ReceivedCallItem>(msg, "received", Helper::parseObsReqReceivedCallsUpdate, json);
  if (op == Helper::OBS_DIALLEDCALLSUPDATE)
    return updateLine<DialledCallItem>(msg, "dialled", Helper::parseObsReqDialledCallsUpdate, json);
  if (op == Helper::OBS_FORWARDEDCALLSUPDATE)
    return updateLine<ForwardedCallItem>(msg, "forwarded", Helper::parseObsReqForwardedCallsUpdate, json);
  if (op == Helper::OBS_CALLBACKSUPDATE)
    return updateLine<CallBackItem>(msg, "callbacks", Helper::parseObsReqCallBacksUpdate, json);
  return std::string();
}

bool listKindFromName(const std::string& name, ListKind& kind) {
  for (int i = 0; i < 5; ++i)
    if (name == kNames[i]) {
      kind = static_cast<ListKind>(i);
      return true;
    }
  return false;
}

const char* listName(ListKind kind) { return kNames[index(kind)]; }

const ListMethods& listMethods(ListKind kind) {
  static const ListMethods kMethods[] = {
      {Helper::GET_MISSED_CALL_LIST, Helper::DELETE_MISSED_CALL, Helper::DELETE_MISSED_CALL_LIST},
      {Helper::GET_RECEIVED_CALL_LIST, Helper::DELETE_RECEIVED_CALL, Helper::DELETE_RECEIVED_CALL_LIST},
      {Helper::GET_DIALLED_CALL_LIST, Helper::DELETE_DIALLED_CALL, Helper::DELETE_DIALLED_CALL_LIST},
      {Helper::GET_FORWARDED_CALL_LIST, Helper::DELETE_FORWARDED_CALL, Helper::DELETE_FORWARDED_CALL_LIST},
      {Helper::GET_CALL_BACK_LIST, Helper::DELETE_CALL_BACK, Helper::DELETE_CALL_BACK_LIST}};
  return kMethods[index(kind)];
}

bool JournalLists::read(ListKind kind, const std::string& reply) {
  if (reply == Helper::FAILURE) return false;
  bool ok = false;
  switch (kind) {
    case ListKind::Missed:
      ok = Helper::parseXMLMissedCallList(reply, missed);
      break;
    case ListKind::Received:
      ok = Helper::parseXMLReceivedCallList(reply, received);
      break;
    case ListKind::Dialled:
      ok = Helper::parseXMLDialledCallList(reply, dialled);
      break;
    case ListKind::Forwarded:
      ok = Helper::parseXMLForwardedCallList(reply, forwarded);
      break;
    case ListKind::CallBacks:
      ok = Helper::parseXMLCallBackList(reply, callbacks);
      break;
  }
  has[index(kind)] = ok;
  return ok;
}

std::size_t JournalLists::size(ListKind kind) const {
  switch (kind) {
    case ListKind::Missed:
      return missed.size();
    case ListKind::Received:
      return received.size();
    case ListKind::Dialled:
      return dialled.size();
    case ListKind::Forwarded:
      return forwarded.size();
    case ListKind::CallBacks:
      return callbacks.size();
  }
  return 0;
}

unsigned JournalLists::unviewedMissed() const {
  return static_cast<unsigned>(
      std::count_if(missed.begin(), missed.end(), [](const MissedCallItem& i) { return !i.getViewed(); }));
}

std::string JournalLists::describe(const std::string& entryId) const {
  auto text = [](const auto& item) {
    std::string number;
    if constexpr (std::is_same_v<std::decay_t<decltype(item)>, CallBackItem>) {
      number = item.getNumber();
    } else if (!item.infos().empty()) {
      number = item.infos().front().number;
    }
    const std::string name = nameOf(item);
    if (number.empty()) number = "(no number)";
    return name.empty() ? number : number + " \"" + name + "\"";
  };
  auto in = [&](const auto& list, std::string& found) {
    for (const auto& item : list)
      if (item.getEntryId() == entryId) return found = text(item), true;
    return false;
  };
  std::string found;
  in(missed, found) || in(received, found) || in(dialled, found) || in(forwarded, found) || in(callbacks, found);
  return found;
}

bool JournalLists::find(const std::string& entryId, ListKind& kind) const {
  auto holds = [&](const auto& list) {
    return std::any_of(list.begin(), list.end(), [&](const auto& i) { return i.getEntryId() == entryId; });
  };
  const bool found[5] = {holds(missed), holds(received), holds(dialled), holds(forwarded), holds(callbacks)};
  for (int i = 0; i < 5; ++i)
    if (found[i]) {
      kind = static_cast<ListKind>(i);
      return true;
    }
  return false;
}

std::string toJson(const JournalLists& lists) {
  ordered_json j;
  j["unviewedMissed"] = lists.unviewedMissed();
  if (lists.has[0]) j["missed"] = listJson(lists.missed);
  if (lists.has[1]) j["received"] = listJson(lists.received);
  if (lists.has[2]) j["dialled"] = listJson(lists.dialled);
  if (lists.has[3]) j["forwarded"] = listJson(lists.forwarded);
  if (lists.has[4]) j["callbacks"] = listJson(lists.callbacks);
  // Text that is not UTF-8 is shown with replacement characters rather than refused.
  return j.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

void printTables(const JournalLists& lists, std::ostream& out) {
  if (lists.has[0])
    printList("Missed calls", lists.missed, ", " + std::to_string(lists.unviewedMissed()) + " not viewed", out);
  if (lists.has[1]) printList("Received calls", lists.received, "", out);
  if (lists.has[2]) printList("Dialled calls", lists.dialled, "", out);
  if (lists.has[3]) printList("Forwarded calls", lists.forwarded, "", out);
  if (lists.has[4]) printList("Callbacks", lists.callbacks, "", out);
}

}  // namespace cli

// ---- One entry, and the entries matching a text -------------------------------------------------

namespace cli {

namespace {

// What an occurrence adds to its time, number and duration.
template <class Info>
std::string occurrenceDetail(const Info& info) {
  if constexpr (std::is_same_v<Info, MissedCallInfoRecord>) return info.completedElsewhere ? "answered elsewhere" : "";
  if constexpr (std::is_same_v<Info, ForwardedCallInfoRecord>)
    return info.connectedNumber.empty() ? "" : "to " + info.connectedNumber;
  if constexpr (std::is_same_v<Info, DialledCallInfoRecord>)
    return info.isFeatureAccessCode ? "dialled " + info.dialledNumber : "";
  return "";
}

template <class Item>
void printOccurrences(const char* list, const Item& item, std::ostream& out) {
  using Info = typename Item::InfoList::value_type;
  const std::size_t calls = item.infos().size();
  out << list << " entry " << item.getEntryId() << ": " << (item.infos().empty() ? "" : item.infos().front().number);
  if (!nameOf(item).empty()) out << " \"" << nameOf(item) << "\"";
  out << " (" << calls << (calls == 1 ? " call" : " calls");
  if constexpr (std::is_same_v<Item, MissedCallItem>) out << (item.getViewed() ? ", viewed" : ", not viewed");
  out << ")\n";
  constexpr bool kTimed = std::is_base_of_v<Duration, Info>;  // missed calls have no duration
  std::vector<Row> rows{kTimed ? Row{"TIME", "NUMBER", "DURATION", "DETAIL"} : Row{"TIME", "NUMBER", "DETAIL"}};
  for (const Info& info : item.infos()) {
    Row row{info.timeDate, info.number};
    if constexpr (kTimed) row.push_back(info.duration);
    row.push_back(occurrenceDetail(info));
    rows.push_back(std::move(row));
  }
  printRows(rows, out);
}

void printOccurrences(const char*, const CallBackItem& item, std::ostream& out) {
  static const char* const kStates[] = {"no state", "pending", "ready"};
  const int state = static_cast<int>(item.getCallBackState());
  out << "callback entry " << item.getEntryId() << ": " << item.getNumber();
  if (!nameOf(item).empty()) out << " \"" << nameOf(item) << "\"";
  out << " (" << (state >= 0 && state < 3 ? kStates[state] : "unknown state") << ", since " << item.getTimeDate()
      << ")\n";
}

// Calls `visit(listName, item)` for the entry `entryId`; false when no list holds it.
template <class Visit>
bool visitEntry(const JournalLists& lists, const std::string& entryId, Visit visit) {
  auto in = [&](const char* list, const auto& items) {
    for (const auto& item : items)
      if (item.getEntryId() == entryId) return visit(list, item), true;
    return false;
  };
  return in("missed", lists.missed) || in("received", lists.received) || in("dialled", lists.dialled) ||
         in("forwarded", lists.forwarded) || in("callbacks", lists.callbacks);
}

std::string lowerAscii(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

template <class Item>
bool numberHolds(const Item& item, const std::string& text) {
  if constexpr (std::is_same_v<Item, CallBackItem>) {
    return item.getNumber().find(text) != std::string::npos;
  } else {
    return std::any_of(item.infos().begin(), item.infos().end(),
                       [&](const auto& info) { return info.number.find(text) != std::string::npos; });
  }
}

template <class Item>
void keepIn(std::deque<Item>& items, const std::string& text) {
  const std::string lowered = lowerAscii(text);
  items.erase(std::remove_if(items.begin(), items.end(),
                             [&](const Item& item) {
                               return !numberHolds(item, text) &&
                                      lowerAscii(nameOf(item)).find(lowered) == std::string::npos;
                             }),
              items.end());
}

}  // namespace

std::string partyName(const CallItem& item) { return nameOf(item); }

std::string entryJson(const JournalLists& lists, const std::string& entryId) {
  ordered_json j;
  if (!visitEntry(lists, entryId, [&](const char* list, const auto& item) {
        j["list"] = list;
        j["entry"] = entryJson(item);
      }))
    return std::string();
  return j.dump(2, ' ', false, ordered_json::error_handler_t::replace);
}

bool printEntry(const JournalLists& lists, const std::string& entryId, std::ostream& out) {
  return visitEntry(lists, entryId, [&](const char* list, const auto& item) { printOccurrences(list, item, out); });
}

void keepMatching(JournalLists& lists, const std::string& text) {
  keepIn(lists.missed, text);
  keepIn(lists.received, text);
  keepIn(lists.dialled, text);
  keepIn(lists.forwarded, text);
  keepIn(lists.callbacks, text);
}

}  // namespace cli
