#include "JournalHarness.h"

JournalHarness::JournalHarness(std::map<std::string, std::string> values, unsigned services,
                               const std::string& startTime)
    : clock(time, startTime), service(std::make_unique<JournalService>(nullptr)) {
  for (const auto& [key, value] : values) mgmt.setValue(key, value);
  if (services & kCstaService) context.registerService("CSTAServiceIfc", &csta);
  if (services & kStoreService) context.registerService("DataAccessServiceIfc", &store);
  if (services & kDirectoryService) context.registerService("DirectoryServiceIfc", &directory);
  if (services & kMgmtService) context.registerService("LocalMgmtIfc", &mgmt);
  if (services & kClockService) context.registerService("ClockServiceIfc", &clock);
  if (services & kDigitService) context.registerService("DigitAnalysisServiceIfc", &digits);
  if (services & kMobilityService) context.registerService("MobilityServiceIfc", &mobility);
}

JournalHarness::~JournalHarness() {
  context.cancelTimers(service.get());
  mgmt.forget(service.get());
  service.reset();
}

void JournalHarness::useStore(Executable* other) {
  context.unregisterService("DataAccessServiceIfc");
  context.registerService("DataAccessServiceIfc", other);
}

void JournalHarness::useDirectory(Executable* other) {
  context.unregisterService("DirectoryServiceIfc");
  context.registerService("DirectoryServiceIfc", other);
}

void JournalHarness::start() { service->init(context); }

void JournalHarness::advance(int64_t ms) {
  time.advance(ms);
  context.settle();
}
