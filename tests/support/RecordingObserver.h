// An observer that writes down every call it receives, one short text per call:
//   "missedCount 2", "missed <entryId of the item>|<id>|<action>", "dialled ...", "received ...",
//   "forwarded ...", "callbacks ...", "callbackCount 1".
// Thread-safe, so several threads may notify it at once.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "JournalServiceObserverIfc.h"

class RecordingObserver : public JournalServiceObserverIfc {
 public:
  void missedCallsCountUpdate(int count) override { record("missedCount " + std::to_string(count)); }
  void missedCallsUpdate(MissedCallItem item, std::string id, ActionType action) override {
    record(entry("missed", item, id, action));
  }
  void dialledCallsUpdate(DialledCallItem item, std::string id, ActionType action) override {
    record(entry("dialled", item, id, action));
  }
  void receivedCallsUpdate(ReceivedCallItem item, std::string id, ActionType action) override {
    record(entry("received", item, id, action));
  }
  void forwardedCallsUpdate(ForwardedCallItem item, std::string id, ActionType action) override {
    record(entry("forwarded", item, id, action));
  }
  void callBacksUpdate(CallBackItem item, std::string id, ActionType action) override {
    record(entry("callbacks", item, id, action));
  }
  void callBacksCountUpdate(int count) override { record("callbackCount " + std::to_string(count)); }

  std::vector<std::string> calls() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_calls;
  }
  // The calls received so far, forgotten.
  std::vector<std::string> take() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return std::move(m_calls);
  }

 private:
  static std::string entry(const char* kind, const CallItem& item, const std::string& id, ActionType action) {
    return std::string(kind) + " " + item.getEntryId() + "|" + id + "|" + std::to_string(action);
  }
  void record(std::string call) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_calls.push_back(std::move(call));
  }

  mutable std::mutex m_mutex;
  std::vector<std::string> m_calls;
};
