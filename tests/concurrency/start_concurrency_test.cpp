// The configuration changes while the journal starts: once it observes the management values, a
// change is delivered on the management thread at any moment, also while the start goes on
// reading what it decided. Under the thread sanitizer (the tsan preset) a value of the start read
// across threads without its lock is reported.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "JournalHarness.h"
#include "framework/Mutex.h"
#include "framework/ThreadAnnotations.h"

namespace {

const std::string kKpx = "Velmora KPX", kSip = "Velmora SIP";

// A switch that, while the journal's monitor starts, has the phone's software type changed (with
// the registration number, which makes the journal read the type again) and
// holds the start's answer until the journal has acted on the change on the management thread
// (it changes its monitor filter then). The wait is on a relaxed flag, so that it orders nothing
// between the two threads: the sanitizer still sees what the start reads after it unordered.
class SwitchChangingTheTypeDuringStart : public Service, public CSTAServiceIfc {
 public:
  explicit SwitchChangingTheTypeDuringStart(FileLocalMgmt& mgmt) : m_mgmt(mgmt) {}

  void sendRequest(CSTARequest& request) override {
    record(request.requestName());
    if (dynamic_cast<CSTAMonitorStartRequest*>(&request)) {
      m_mgmt.setValue("software-type", kKpx);  // read again when a value of its group changes
      m_mgmt.setValue("reg-number", "3301");
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      while (!m_filterChanged.load(std::memory_order_relaxed) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
      request.setResponse(0, new CSTAMonitorStartResponse("monitor-1"));
      return;
    }
    if (dynamic_cast<CSTAChangeMonitorFilterRequest*>(&request)) m_filterChanged.store(true, std::memory_order_relaxed);
    request.setResponse(0, new CSTAGenericResponse(false));
  }

  bool filterChanged() const { return m_filterChanged.load(); }
  std::size_t count(const std::string& name) {
    fw::MutexLock guard(m_mutex);
    std::size_t n = 0;
    for (const std::string& sent : m_sent) n += sent == name;
    return n;
  }

 private:
  void record(const std::string& name) {
    fw::MutexLock guard(m_mutex);
    m_sent.push_back(name);
  }

  FileLocalMgmt& m_mgmt;
  std::atomic<bool> m_filterChanged{false};
  fw::Mutex m_mutex;
  std::vector<std::string> m_sent GUARDED_BY(m_mutex);
};

TEST(StartConcurrency, ASoftwareTypeChangedWhileTheMonitorStartsIsFollowedWithoutARace) {
  std::unique_ptr<SwitchChangingTheTypeDuringStart> phoneSwitch;  // outlives the journal's stop
  JournalHarness phone({{"software-type", kSip}, {"mac-addr", "00:1A:2B:3C:4D:5E"}}, kAllServices & ~kCstaService);
  phoneSwitch = std::make_unique<SwitchChangingTheTypeDuringStart>(phone.mgmt);
  phone.runtime.provide("CSTAServiceIfc", phoneSwitch.get());

  phone.start();
  phone.mgmt.drainNotifications();

  EXPECT_TRUE(phoneSwitch->filterChanged());  // the change was acted on while the monitor started
  EXPECT_EQ(kKpx, phone.service->softwareType());
  EXPECT_EQ(1u, phoneSwitch->count("SystemRegister"));  // a KPX phone registers for the system status
}

}  // namespace
