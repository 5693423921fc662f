// The daemon's status and link messages as the command-line client shows them: a table for
// people and typed JSON for programs (HostStatus.h gives each status line's type). Plain
// functions; the client's only thread.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "Management.h"

namespace cli {

// Exit code of `calljournal status` when the journal does not follow the line, or the daemon
// cannot be reached (the LSB code of a service that is not running).
constexpr int kNotFollowing = 3;

// {"following": true, "link": true, "link-since": "...", "missed": 2, ...}: each line with its
// type (numbers as numbers, flags as booleans, times as ISO texts).
std::string statusJson(const std::vector<host::ManagementSetting>& lines);
// One line per status line, keys aligned: flags as yes/no, times with how long ago, the uptime
// spoken.
void printStatus(const std::vector<host::ManagementSetting>& lines, std::ostream& out);
// Whether the status says the journal follows the line.
bool following(const std::vector<host::ManagementSetting>& lines);

// A link message of the daemon as one line ("switch link down: closed by the switch (since
// 21:30:00)"), or with `json` one JSON object; empty when `message` is no link message.
std::string linkMessageLine(const std::string& message, bool json);

}  // namespace cli
