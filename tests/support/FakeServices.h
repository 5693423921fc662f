// Small fakes of framework services: each records what it was asked and answers what the test
// told it to. Local management, the clock and the context are the real ones. Header only: the
// benchmarks use the fake switch too.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
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

// A fake's records behind one mutex: read and assigned under the lock.
class Guarded {
 protected:
  template <class T>
  T read(const T& value) const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return value;
  }
  template <class T>
  void assign(T& target, T value) {
    std::lock_guard<std::mutex> guard(m_mutex);
    target = std::move(value);
  }
  mutable std::mutex m_mutex;
};

// Mobility service whose upload answers come from a script, then true.
class FakeMobilityService : public Service, public MobilityServiceIfc, Guarded {
 public:
  bool saveVisitorCallLog() override {
    std::lock_guard<std::mutex> guard(m_mutex);
    ++m_uploads;
    bool answer = m_script.empty() || m_script.front();
    if (!m_script.empty()) m_script.pop_front();
    return answer;
  }
  void answerNext(bool answer) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_script.push_back(answer);
  }
  int uploads() const { return read(m_uploads); }

 private:
  std::deque<bool> m_script;
  int m_uploads = 0;
};

// The switch of tests and benchmarks: answers each request without error (a monitor start with
// cross-reference "monitor-1"), and records the names of the requests sent and the call-log
// entries of escape requests. Called on whichever thread sends a request. holdEscapes() makes it
// a slow switch: each escape request is recorded at once but waits for its answer until
// releaseEscapes().
class RecordingCstaService : public Service, public CSTAServiceIfc, Guarded {
 public:
  void sendRequest(CSTARequest& request) override {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_sent.emplace_back(request.requestName());
    if (auto* escape = dynamic_cast<CSTAEscapeRequest*>(&request)) {
      m_escapes.push_back(escape->getCallLogEntry());
      m_changed.notify_all();
      m_changed.wait(lock, [&] { return !m_holdEscapes; });
    }
    if (auto* start = dynamic_cast<CSTAMonitorStartRequest*>(&request)) {
      m_lastStart = start->hasMonitorFilter();
      request.setResponse(0, new CSTAMonitorStartResponse("monitor-1"));
    } else {
      request.setResponse(0, new CSTAGenericResponse(false));
    }
  }
  std::vector<std::string> sent() const { return read(m_sent); }
  std::vector<CallLogEntryRequest> escapes() const { return read(m_escapes); }
  bool lastStartHadFilter() const { return m_lastStart; }

  void holdEscapes() { assign(m_holdEscapes, true); }
  void releaseEscapes() {
    assign(m_holdEscapes, false);
    m_changed.notify_all();
  }
  // Waits up to `timeoutMs` until `count` escape requests have arrived in all; true when they have.
  bool waitForEscapes(size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return m_escapes.size() >= count; });
  }

 private:
  std::vector<std::string> m_sent;
  std::vector<CallLogEntryRequest> m_escapes;
  bool m_lastStart = false;
  bool m_holdEscapes = false;
  std::condition_variable m_changed;  // an escape arrived, or the hold ended
};

// Store that records every request and answers with `reply` ("failed" unless told otherwise).
class RecordingDataAccess : public Service, public DataAccessServiceIfc, Guarded {
 public:
  std::string processRequest(const std::string& request) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_requests.push_back(request);
    return m_reply;
  }
  std::vector<std::string> requests() const { return read(m_requests); }
  void clear() { assign(m_requests, {}); }
  void setReply(const std::string& reply) { assign(m_reply, reply); }

 private:
  std::vector<std::string> m_requests;
  std::string m_reply = "failed";
};

// Phonebook held in a map from number to contact.
class MapDirectory : public Service, public DirectoryServiceIfc {
 public:
  void add(const Contact& contact) { m_contacts[contact.getNumber()] = contact; }
  bool lookupContact(Contact& contact) override {
    auto it = m_contacts.find(contact.getNumber());
    if (it != m_contacts.end()) contact = it->second;
    return it != m_contacts.end();
  }

 private:
  std::map<std::string, Contact> m_contacts;
};

// Dialling plan with a set of feature access code prefixes.
class PrefixDigitAnalysis : public Service, public DigitAnalysisServiceIfc {
 public:
  explicit PrefixDigitAnalysis(std::set<std::string> prefixes) : m_prefixes(std::move(prefixes)) {}
  bool isFeatureAccessCode(const std::string& digits) override {
    return std::any_of(m_prefixes.begin(), m_prefixes.end(),
                       [&](const std::string& prefix) { return !prefix.empty() && digits.rfind(prefix, 0) == 0; });
  }

 private:
  std::set<std::string> m_prefixes;
};
