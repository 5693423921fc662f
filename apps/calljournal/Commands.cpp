#include "Commands.h"

#include <algorithm>
#include <iostream>
#include <set>

#include "JournalLists.h"
#include "Management.h"
#include "Session.h"
#include "framework/JournalServiceHelper.h"

using Helper = JournalServiceHelper;

namespace cli {

namespace {

bool boolReply(const std::string& reply) {
  bool value = false;
  return Helper::parseRespBool(reply, value) && value;
}

std::vector<ListKind> kindsOf(const std::string& list) {
  ListKind kind;
  if (list.empty() || list == "all") return {std::begin(kAllListKinds), std::end(kAllListKinds)};
  listKindFromName(list, kind);
  return {kind};
}

// `ids` without repetitions, in the order given.
std::vector<std::string> distinct(const std::vector<std::string>& ids) {
  std::vector<std::string> out;
  std::set<std::string> seen;
  for (const std::string& id : ids)
    if (seen.insert(id).second) out.push_back(id);
  return out;
}

}  // namespace

// Refuses the whole command when an id names no entry of the lists read: nothing is changed for
// the others either, so the user can correct the command and run it again. 0 when all are known.
int refuseUnknown(const JournalLists& lists, const std::vector<std::string>& ids, const std::string& where,
                  const char* verb) {
  std::vector<std::string> unknown;
  for (const std::string& id : ids) {
    ListKind kind;
    if (!lists.find(id, kind)) unknown.push_back(id);
  }
  if (unknown.empty()) return 0;
  std::string names;
  for (const std::string& id : unknown) names += (names.empty() ? "" : ", ") + id;
  return fail(std::string(unknown.size() == 1 ? "no entry with id " : "no entries with ids ") + names + where +
              "; nothing was " + verb + " (see calljournal list for the ids)");
}

int fail(const std::string& message) {
  std::cerr << "calljournal: " << message << '\n';
  return 1;
}

int listCommand(const Connection& c, const std::string& list, bool json, const std::string& find) {
  Session s(c);
  JournalLists lists;
  if (!s.ok() || !s.readLists(lists, kindsOf(list))) return fail(s.error());
  if (!find.empty()) keepMatching(lists, find);
  if (json)
    std::cout << toJson(lists) << '\n';
  else
    printTables(lists, std::cout);
  return 0;
}

int deleteCommand(const Connection& c, const std::string& list, bool all, const std::vector<std::string>& ids) {
  Session s(c);
  if (!s.ok()) return fail(s.error());
  std::string reply;
  if (all) {
    ListKind kind;
    listKindFromName(list, kind);
    JournalLists lists;
    if (!s.readLists(lists, {kind})) return fail(s.error());
    std::vector<std::string> every;
    auto collect = [&](const auto& l) {
      for (const auto& item : l) every.push_back(item.getEntryId());
    };
    collect(lists.missed), collect(lists.received), collect(lists.dialled), collect(lists.forwarded),
        collect(lists.callbacks);
    if (!s.call(listMethods(kind).deleteList, every, reply)) return fail(s.error());
    if (!boolReply(reply)) return fail(std::string("the journal refused to empty the ") + list + " list");
    std::cout << "deleted " << every.size() << " entries from the " << list << " list\n";
    return 0;
  }
  JournalLists lists;
  if (!s.readLists(lists, kindsOf(list))) return fail(s.error());
  const std::vector<std::string> wanted = distinct(ids);
  if (int refused = refuseUnknown(lists, wanted, list.empty() ? "" : " in the " + list + " list", "deleted"))
    return refused;
  for (const std::string& id : wanted) {
    ListKind kind;
    lists.find(id, kind);
    if (!s.call(listMethods(kind).deleteOne, {id}, reply)) return fail(s.error());
    if (!boolReply(reply))
      return fail("the entry " + id + " of the " + listName(kind) + " list is gone already (deleted meanwhile?)");
    std::cout << "deleted " << id << " from the " << listName(kind) << " list: " << lists.describe(id) << '\n';
  }
  return 0;
}

int deleteCallsCommand(const Connection& c, const std::vector<std::string>& ids) {
  Session s(c);
  if (!s.ok()) return fail(s.error());
  // The call lists, in the order the journal tries them; callbacks are no calls.
  JournalLists lists;
  if (!s.readLists(lists, {ListKind::Received, ListKind::Dialled, ListKind::Missed, ListKind::Forwarded}))
    return fail(s.error());
  const std::vector<std::string> wanted = distinct(ids);
  if (int refused = refuseUnknown(lists, wanted, " in a call list", "deleted")) return refused;
  std::string reply;
  if (!s.call(Helper::DELETE_CALLS, wanted, reply)) return fail(s.error());
  if (!boolReply(reply)) return fail("the journal deleted none of the entries (deleted meanwhile?)");
  for (const std::string& id : wanted) {
    ListKind kind;
    lists.find(id, kind);
    std::cout << "deleted " << id << " from the " << listName(kind) << " list: " << lists.describe(id) << '\n';
  }
  return 0;
}

int markViewedCommand(const Connection& c, const std::vector<std::string>& ids) {
  Session s(c);
  if (!s.ok()) return fail(s.error());
  JournalLists lists;
  if (!s.readLists(lists, {ListKind::Missed})) return fail(s.error());
  std::vector<std::string> which = distinct(ids);
  if (int refused = refuseUnknown(lists, which, " in the missed list", "marked")) return refused;
  if (which.empty())
    for (const auto& item : lists.missed) which.push_back(item.getEntryId());
  std::string reply;
  if (!s.call(Helper::SET_MISSED_CALL_LIST_AS_VIEWED, which, reply)) return fail(s.error());
  if (!boolReply(reply)) return fail("the journal refused to mark the missed calls viewed");
  std::cout << "marked " << which.size() << " missed " << (which.size() == 1 ? "entry" : "entries") << " viewed\n";
  if (!ids.empty())
    for (const std::string& id : which) std::cout << "  " << id << ": " << lists.describe(id) << '\n';
  return 0;
}

int ageCommand(const Connection& c, const std::string& id) {
  Session s(c);
  if (!s.ok()) return fail(s.error());
  JournalLists lists;
  if (!s.readLists(lists, {ListKind::Missed})) return fail(s.error());
  if (int refused = refuseUnknown(lists, {id}, " in the missed list", "aged")) return refused;
  std::string reply;
  if (!s.call(Helper::AGE_MISSED_CALL, {id}, reply)) return fail(s.error());
  if (reply == Helper::FAILURE) return fail("the journal refused to age " + id);
  std::cout << "aged " << id << ": " << lists.describe(id) << '\n';
  return 0;
}

int lastDialledCommand(const Connection& c, bool json) {
  Session s(c);
  std::string reply;
  if (!s.ok() || !s.call(Helper::GET_LAST_DIALLED_NUMBER, {}, reply)) return fail(s.error());
  DialledCallItem item;
  if (!Helper::parseRespGetLastNumberDialled(reply, item)) return fail("no number has been dialled yet");
  JournalLists lists;
  lists.dialled.push_back(item);
  lists.has[static_cast<int>(ListKind::Dialled)] = true;
  if (json) {
    std::cout << toJson(lists) << '\n';
  } else {
    const auto& infos = item.infos();
    std::cout << (infos.empty() ? std::string() : infos.front().number.str()) << '\n';
  }
  return 0;
}

int refreshCommand(const Connection& c) {
  Session s(c);
  std::string reply;
  if (!s.ok() || !s.call(Helper::REFRESH_CALL_LOG, {}, reply)) return fail(s.error());
  if (!boolReply(reply)) return fail("the journal could not read its lists from the database again");
  std::cout << "lists read again from the database\n";
  return 0;
}

int configGetCommand(const Connection& c, const std::vector<std::string>& keys) {
  Session s(c);
  std::string text;
  host::ManagementReply reply;
  if (!s.ok() || !s.call(host::managementGetRequest(keys), text)) return fail(s.error());
  if (!host::parseManagementReply(text, reply)) return fail("the daemon gave no management reply");
  if (!reply.ok) return fail(reply.reason);
  for (const auto& setting : reply.settings) {
    auto next = reply.atNextStart.find(setting.key);
    std::cout << setting.key << " = " << setting.value << "   (" << setting.source
              << (next == reply.atNextStart.end() ? "" : "; the file's " + next->second + " applies at the next start")
              << ")\n";
  }
  return 0;
}

int configSetCommand(const Connection& c, const std::string& key, const std::string& value) {
  Session s(c);
  std::string text;
  host::ManagementReply reply;
  if (!s.ok() || !s.call(host::managementSetRequest(key, value), text)) return fail(s.error());
  if (!host::parseManagementReply(text, reply)) return fail("the daemon gave no management reply");
  // The daemon's reasons name the key; the journal agent's may not.
  if (!reply.ok) return fail(reply.reason.find(key) == 0 ? reply.reason : "cannot set " + key + ": " + reply.reason);
  // The value the daemon serves now, in its words ("on" for "yes").
  const std::string served = reply.settings.empty() ? value : reply.settings.front().value;
  std::cout << key << " = " << served << (reply.reason.empty() ? "" : "   (" + reply.reason + ")") << '\n';
  return 0;
}

}  // namespace cli
