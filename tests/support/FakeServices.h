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
  void setDefaultAnswer(bool answer) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_defaultAnswer = answer;
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

// CSTA service that records the names of the requests sent and answers each with `responseCode`.
class RecordingCstaService : public Service, public CSTAServiceIfc {
 public:
  void sendRequest(CSTARequest& request) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_sent.emplace_back(request.requestName());
    request.setResponse(m_responseCode, nullptr);
  }
  std::vector<std::string> sent() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_sent;
  }
  void setResponseCode(int code) { m_responseCode = code; }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_sent;
  std::atomic<int> m_responseCode{0};
};

// Store that records every request and answers "failed".
class RecordingDataAccess : public Service, public DataAccessServiceIfc {
 public:
  std::string processRequest(const std::string& request) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_requests.push_back(request);
    return "failed";
  }
  size_t requestCount() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_requests.size();
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_requests;
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
