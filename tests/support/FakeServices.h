// Small fakes of framework services for tests: each records what it was asked and answers what
// the test told it to. Real pieces (local management over a file, the settable clock, the
// context with its timer thread) are used as they are.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "framework/Csta.h"
#include "framework/CstaRequests.h"
#include "framework/Executable.h"
#include "framework/Services.h"

// Mobility service whose upload answers come from a script (then the default answer).
class FakeMobilityService : public Service, public MobilityServiceIfc {
 public:
  bool saveVisitorCallLog() override {
    std::lock_guard<std::mutex> guard(m_mutex);
    ++m_uploads;
    if (m_script.empty()) return m_defaultAnswer;
    bool answer = m_script.front();
    m_script.pop_front();
    return answer;
  }
  void answerNext(bool answer) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_script.push_back(answer);
  }
  int uploads() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_uploads;
  }

 private:
  mutable std::mutex m_mutex;
  std::deque<bool> m_script;
  bool m_defaultAnswer = true;
  int m_uploads = 0;
};

// CSTA service that records the names of the requests sent and the call-log entries of escape
// requests. With `responseCode` 0 each request gets a response without error (a monitor start
// gets the cross-reference id "monitor-1"); any other code comes back without response.
class RecordingCstaService : public Service, public CSTAServiceIfc {
 public:
  void sendRequest(CSTARequest& request) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_sent.emplace_back(request.requestName());
    if (auto* escape = dynamic_cast<CSTAEscapeRequest*>(&request)) m_escapes.push_back(escape->getCallLogEntry());
    if (auto* start = dynamic_cast<CSTAMonitorStartRequest*>(&request)) m_lastStart = start->hasMonitorFilter();
    if (m_responseCode != 0) {
      request.setResponse(m_responseCode, nullptr);
    } else if (dynamic_cast<CSTAMonitorStartRequest*>(&request)) {
      request.setResponse(0, new CSTAMonitorStartResponse("monitor-1"));
    } else {
      request.setResponse(0, new CSTAGenericResponse(false));
    }
  }
  std::vector<std::string> sent() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_sent;
  }
  std::vector<CallLogEntryRequest> escapes() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_escapes;
  }
  bool lastStartHadFilter() const { return m_lastStart; }
  void setResponseCode(int code) { m_responseCode = code; }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_sent;
  std::vector<CallLogEntryRequest> m_escapes;
  bool m_lastStart = false;
  std::atomic<int> m_responseCode{0};
};

// Store that records every request and answers with `reply` ("failed" unless told otherwise).
class RecordingDataAccess : public Service, public DataAccessServiceIfc {
 public:
  std::string processRequest(const std::string& request) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_requests.push_back(request);
    return m_reply;
  }
  size_t requestCount() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_requests.size();
  }
  std::vector<std::string> requests() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_requests;
  }
  void clear() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_requests.clear();
  }
  void setReply(const std::string& reply) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_reply = reply;
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_requests;
  std::string m_reply = "failed";
};

// Phonebook held in a map from number to contact.
class MapDirectory : public Service, public DirectoryServiceIfc {
 public:
  void add(const Contact& contact) { m_contacts[contact.getNumber()] = contact; }
  bool lookupContact(Contact& contact) override {
    auto it = m_contacts.find(contact.getNumber());
    if (it == m_contacts.end()) return false;
    contact = it->second;
    return true;
  }

 private:
  std::map<std::string, Contact> m_contacts;
};

// Dialling plan with a set of feature access code prefixes.
class PrefixDigitAnalysis : public Service, public DigitAnalysisServiceIfc {
 public:
  explicit PrefixDigitAnalysis(std::set<std::string> prefixes) : m_prefixes(std::move(prefixes)) {}
  bool isFeatureAccessCode(const std::string& digits) override {
    for (const auto& prefix : m_prefixes)
      if (!prefix.empty() && digits.compare(0, prefix.size(), prefix) == 0) return true;
    return false;
  }

 private:
  std::set<std::string> m_prefixes;
};
