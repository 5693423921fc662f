// A journal service running in a real framework context on a manual clock (a fw::JournalRuntime:
// real local management, settable clock and timer thread), with recording fakes for the other
// services. Tests choose which services are registered and the configuration values, start the
// service, move time with advance() and look inside through JournalServiceTestPeer. The service
// is made at once, so that a test can reach it before start(); the destructor stops it as the
// host does (shutdown, timers cancelled, agent forgotten) while the fakes still stand.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "FakeServices.h"
#include "JournalService.h"
#include "framework/ClockService.h"
#include "framework/FrameworkContext.h"
#include "framework/JournalRuntime.h"
#include "framework/LocalMgmt.h"
#include "framework/TimeSource.h"

// Reaches the service's private state for checks and for set-ups that later features make.
class JournalServiceTestPeer {
 public:
  explicit JournalServiceTestPeer(JournalService& s) : m_s(s) {}
  std::string softwareType() const { return m_s.softwareType(); }
  bool serverCallLog() const { return m_s.m_serverCallLog; }
  bool serverBasedFeatures() const { return m_s.m_serverBasedFeatures; }
  bool callLogEnabled() const { return m_s.m_callLogEnabled; }
  bool missedLogging() const { return m_s.m_missedLogging; }
  bool deleteMissedWhenCalled() const { return m_s.m_deleteMissedWhenCalled; }
  bool visitorCallLogChanged() const { return m_s.m_visitorCallLogChanged; }
  void setVisitorCallLogChanged(bool changed) { m_s.m_visitorCallLogChanged = changed; }
  // Tests may change the lists directly: their number indexes are rebuilt at the next question.
  std::deque<MissedCallItem>& missedList() {
    m_s.m_missedNumbers.invalidate();
    return m_s.m_missedCallList;
  }
  std::deque<DialledCallItem>& dialledList() {
    m_s.m_dialledNumbers.invalidate();
    return m_s.m_dialledCallList;
  }
  std::deque<ReceivedCallItem>& receivedList() {
    m_s.m_receivedNumbers.invalidate();
    return m_s.m_receivedCallList;
  }
  std::deque<ForwardedCallItem>& forwardedList() {
    m_s.m_forwardedNumbers.invalidate();
    return m_s.m_forwardedCallList;
  }
  std::deque<CallBackItem>& callBackList() { return m_s.m_callBackList; }
  void setServerCallLog(bool on) { m_s.m_serverCallLog = on; }
  void setSoftwareType(const std::string& type) { m_s.setSoftwareType(type); }
  bool listsLoaded() const { return m_s.m_listsLoaded; }

 private:
  JournalService& m_s;
};

enum HarnessServices : unsigned {
  kCstaService = 1,
  kStoreService = 2,
  kDirectoryService = 4,
  kMgmtService = 8,
  kClockService = 16,
  kDigitService = 32,
  kMobilityService = 64,
  kAllServices = 127
};

class JournalHarness {
 public:
  explicit JournalHarness(std::map<std::string, std::string> values = {}, unsigned services = kAllServices,
                          const std::string& startTime = "2024-03-05T07:08:09");
  ~JournalHarness();

  void start();  // init(context)
  // Registers `store` as the data access service instead of the recording one (before start).
  void useStore(Executable* store);
  // Registers `directory` as the phonebook instead of the map one (before start).
  void useDirectory(Executable* directory);
  // Moves the manual clock and waits until every timer due by then has been delivered.
  void advance(int64_t ms);
  JournalServiceTestPeer peer() { return JournalServiceTestPeer(*service); }

  fw::JournalRuntime runtime;
  fw::ManualTimeSource& time;
  FrameworkContext& context;
  FileLocalMgmt& mgmt;
  SettableClockService& clock;
  FakeMobilityService mobility;
  RecordingCstaService csta;
  RecordingDataAccess store;
  MapDirectory directory;
  PrefixDigitAnalysis digits{{"*", "#"}};
  JournalService* const service;  // owned by the runtime
};
