// The writing of store replies (docs/store-protocol.md, "Store messages"), shared by the SQLite
// and the in-memory store: a read reply is built by appending to one string, the stored bodies
// copied in without escaping (they were checked to be well-formed items when written).
// Free functions without state; any thread may call them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "store_requests/StoreRequest.h"

namespace storemessage {

// "<storeReply table="TABLE"><result>ok</result>"
void appendReplyStart(std::string& reply, Table table);
// One stored row of a read: <entry uniqueId="ID" size="N">BODY</entry>, the body without an XML
// declaration in front (one cannot stand inside an element) and N its length in bytes, which
// lets a reader take the other entries when one row was damaged since.
void appendStoredEntry(std::string& reply, int64_t uniqueId, std::string_view body);
// One stored setting of a read: <NAME>VALUE</NAME>, the value escaped.
void appendStoredSetting(std::string& reply, std::string_view name, std::string_view value);
// "</storeReply>"
void appendReplyEnd(std::string& reply);

// The whole reply to a write, update or delete that was carried out; `lastUniqueId` is the row
// written last, 0 when none (then the reply has no lastUniqueId).
std::string changeReply(Table table, int64_t lastUniqueId);

}  // namespace storemessage
