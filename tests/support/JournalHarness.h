// A journal service running in a real framework context on a manual clock (a fw::JournalRuntime:
// real local management, settable clock and timer thread), with recording fakes for the other
// services. Tests choose which services are registered and the configuration values, start the
// service, move time with advance() and drive the service through its interfaces. The service
// is made at once, so that a test can reach it before start(); the destructor stops it as the
// host does (shutdown, timers cancelled, agent forgotten) while the fakes still stand.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FakeServices.h"
#include "JournalService.h"
#include "framework/ClockService.h"
#include "framework/FrameworkContext.h"
#include "framework/JournalRuntime.h"
#include "framework/LocalMgmt.h"
#include "framework/TimeSource.h"

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
  // Replaces a list with `entries`, as the store's reply to a read of it would, e.g.
  // loadAsStored(&JournalService::processMissedCallDbXml, &H::createXMLMissedCallItemBody, {...}).
  template <class Item>
  void loadAsStored(void (JournalService::*process)(const std::string&), void (*body)(const Item&, std::string&, bool),
                    const std::vector<Item>& entries) {
    std::string reply = "<storeReply><result>ok</result>";
    for (const Item& entry : entries) body(entry, reply, false);
    (service->*process)(reply + "</storeReply>");
  }

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
