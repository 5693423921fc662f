// A connection of the command-line client to the daemon, for one command: connects on
// construction and remembers why it could not, so each command ends with one plain line. Owns
// its JournalClient; used on the client's only thread.
#pragma once

#include <string>
#include <vector>

#include "Commands.h"
#include "JournalLists.h"
#include "client_server/JournalClient.h"
#include "framework/JournalServiceHelper.h"

namespace cli {

// A connected client, or an explanation of why the daemon cannot be reached.
class Session {
 public:
  explicit Session(const Connection& c) : m_address(c.address) {
    std::string error;
    if (!m_client.connect(c.address, error))
      m_error = "cannot reach the journal daemon (" + error + "); is calljournald running? (--socket chooses another)";
  }
  bool ok() const { return m_error.empty(); }
  const std::string& error() const { return m_error; }

  bool call(const std::string& request, std::string& reply) {
    std::string error;
    if (m_client.call(request, reply, error)) return true;
    m_error = "the journal daemon did not answer (" + error + ")";
    return false;
  }
  bool call(int code, const std::vector<std::string>& ids, std::string& reply) {
    return call(JournalServiceHelper::createMethodRequest(code, ids), reply);
  }
  // Reads the lists into `lists`; false with error() set.
  bool readLists(JournalLists& lists, const std::vector<ListKind>& kinds) {
    for (ListKind kind : kinds) {
      std::string reply;
      if (!call(listMethods(kind).read, {}, reply)) return false;
      if (!lists.read(kind, reply)) {
        m_error = std::string("the journal refused to give the ") + listName(kind) + " list";
        return false;
      }
    }
    return true;
  }
  fw::JournalClient& client() { return m_client; }

 private:
  std::string m_address;
  fw::JournalClient m_client;
  std::string m_error;
};

}  // namespace cli
