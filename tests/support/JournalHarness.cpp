#include "JournalHarness.h"

namespace {

// The journal service made for `runtime`, which owns it.
JournalService* makeService(fw::JournalRuntime& runtime) {
  auto service = std::make_unique<JournalService>(nullptr);
  JournalService* made = service.get();
  runtime.useModule(std::move(service));
  return made;
}

}  // namespace

JournalHarness::JournalHarness(std::map<std::string, std::string> values, unsigned services,
                               const std::string& startTime)
    : runtime(fw::JournalRuntime::Clock::Manual, startTime),
      time(*runtime.manualTime()),
      context(runtime.context()),
      mgmt(runtime.mgmt()),
      clock(*runtime.settableClock()),
      service(makeService(runtime)) {
  for (const auto& [key, value] : values) mgmt.setValue(key, value);
  if (!(services & kMgmtService)) runtime.withdraw("LocalMgmtIfc");
  if (!(services & kClockService)) runtime.withdraw("ClockServiceIfc");
  if (services & kCstaService) runtime.provide("CSTAServiceIfc", &csta);
  if (services & kStoreService) runtime.provide("DataAccessServiceIfc", &store);
  if (services & kDirectoryService) runtime.provide("DirectoryServiceIfc", &directory);
  if (services & kDigitService) runtime.provide("DigitAnalysisServiceIfc", &digits);
  if (services & kMobilityService) runtime.provide("MobilityServiceIfc", &mobility);
}

JournalHarness::~JournalHarness() { runtime.stop(); }

void JournalHarness::useStore(Executable* other) { runtime.provide("DataAccessServiceIfc", other); }

void JournalHarness::useDirectory(Executable* other) { runtime.provide("DirectoryServiceIfc", other); }

void JournalHarness::start() {
  std::string error;
  runtime.start(error);  // a module linked in always starts
}

void JournalHarness::advance(int64_t ms) { runtime.advance(ms); }
