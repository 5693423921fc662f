// What the daemon tells about itself, as both sides read it: the status lines of the management
// "status" reply (key, value and the value's type, so that a client prints a table for people and
// typed JSON for programs) and the host's link message, pushed to the connections that asked for
// it with the management operation "subscribe-link". Plain functions; any thread.
//
//   <hostEvent><operation>linkState</operation><link>false</link>
//     <since>2026-11-24T21:30:00+01:00</since><reason>closed by the switch</reason>
//     <monitor>false</monitor><switch>127.0.0.1:1040</switch></hostEvent>
#pragma once

#include <chrono>
#include <string>

namespace host {

// Types of status values: how they travel (text) and how a client shows them.
constexpr const char* kTypeBool = "bool";        // "true" / "false"
constexpr const char* kTypeNumber = "number";    // unsigned decimal
constexpr const char* kTypeSeconds = "seconds";  // unsigned decimal, a length of time
constexpr const char* kTypeTime = "time";        // local time with its offset, 2026-11-24T21:30:00+01:00
constexpr const char* kTypeText = "text";

// Root element of the host's own messages on the client socket (not the journal's journalEvent).
constexpr const char* kHostEvent = "hostEvent";
// The proxy interface under which the client server keeps a connection's link watcher.
constexpr const char* kLinkWatcherInterface = "HostLinkWatcherIfc";

// `time` as local ISO 8601 with the offset from UTC: "2026-11-24T21:30:00+01:00".
std::string isoLocalTime(std::chrono::system_clock::time_point time);
// Reads what isoLocalTime writes; false for another text.
bool parseIsoTime(const std::string& text, std::chrono::system_clock::time_point& time);
// "hh:mm:ss" of an isoLocalTime text (the text itself when it is not one).
std::string clockOf(const std::string& isoTime);
// "3 s", "5 min 03 s", "2 h 05 min", "3 d 4 h": a length of time for people.
std::string spokenDuration(long long seconds);

// The link as the link message carries it.
struct LinkNews {
  bool link = false;          // the switch link is up
  std::string since;          // when it took this state (isoLocalTime)
  std::string reason;         // why it is down; empty while up
  bool monitor = false;       // every monitor asked for runs at the switch (and one was asked for)
  std::string switchAddress;  // HOST:PORT, or "none" without a switch
};

std::string linkNewsMessage(const LinkNews& news);
// False when `message` is not a link message.
bool parseLinkNews(const std::string& message, LinkNews& news);

}  // namespace host
