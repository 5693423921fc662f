// A journal module running in a framework context, built one way for every program that runs
// one: the daemon and trace replay (apps/host), the tests' harness and the benchmarks.
//
// Owns the time source (steady, or manual for tests, benchmarks and replay), the context with its
// timer thread, the local management and the clock; the last two are registered as "LocalMgmtIfc"
// and "ClockServiceIfc". The caller makes every other service the module uses (store, switch,
// phonebook, digit analysis, mobility), hands it in with provide() and keeps it alive until stop()
// has returned. The module's objects come from a plug-in (loadPlugin: dlopen and the exported
// factories) or from code linked into the program (useModule); the runtime owns them.
//
// start(): the module's service registered as "JournalServiceIfc" and initialised, then its
// request invoker made (from the plug-in, when it came from one) and initialised.
// stop(): first the caller's steps that end whatever calls into the module on threads of its own
// (the switch's events, clients), newest first; then the module: its last store writes
// (shutdown), its timers cancelled, its management agent forgotten, the service unregistered and
// deleted, the invoker deleted, the plug-in unloaded; last the caller's steps that end what the
// module used (a store's file), newest first.
//
// Used from one thread (the owner's) while the framework's threads drive the module. Holds no lock
// of its own; stop() waits for a timer expiry or management notification of the module that is
// being delivered.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/ClockService.h"
#include "framework/FrameworkContext.h"
#include "framework/Invoker.h"
#include "framework/LocalMgmt.h"
#include "framework/TimeSource.h"

#pragma GCC visibility push(default)

namespace fw {

class Plugin;

class JournalRuntime {
 public:
  enum class Clock {
    System,  // steady timers and the system's local time: the daemon
    Manual,  // a manual time source and a settable clock: tests, benchmarks, trace replay
  };
  enum class StopPhase { BeforeModule, AfterModule };

  // `startTime` is where a manual clock starts ("YYYY-MM-DDThh:mm:ss"; 2000-01-01T00:00:00 when
  // empty). `clockTime`, when given, is the source a manual clock runs on instead of the
  // context's own, so that the phone's time can move without waking the timer thread; it must
  // outlive the runtime.
  explicit JournalRuntime(Clock clock, const std::string& startTime = "", ManualTimeSource* clockTime = nullptr);
  ~JournalRuntime();  // stop()
  JournalRuntime(const JournalRuntime&) = delete;
  JournalRuntime& operator=(const JournalRuntime&) = delete;

  // Registers `service` under `name` for the module to find at start, in place of one registered
  // before under that name (the runtime's own management and clock included).
  void provide(const std::string& name, Executable* service);
  void withdraw(const std::string& name);

  // Loads the module from `path` and makes its service. False with a message naming the file.
  bool loadPlugin(const std::string& path, std::string& error);
  // The module linked into the program: its service and, where requests are answered, its invoker.
  void useModule(std::unique_ptr<Executable> service, std::unique_ptr<Invoker> invoker = nullptr);
  // Registers and initialises the service, then makes and initialises the invoker. False with a
  // message when no module was given or the plug-in has no invoker; stop() then cleans up.
  bool start(std::string& error);
  // A step for stop() to run in `phase` (see above); steps run once.
  void onStop(StopPhase phase, std::function<void()> step);
  // Idempotent. A module must be given again before another start().
  void stop();

  // Answers one client request (`message`) in this process, as the client server has the module
  // answer one; the client's id is "local". False, leaving `reply` alone, before start().
  bool request(const std::string& message, std::string& reply);

  // Waits until the timers due and the management notifications queued so far are delivered.
  void settle();
  // Manual time: moves the context's time source and waits for the timers due by then.
  void advance(int64_t ms);
  // Manual time: moves the clock to `localTime` ("YYYY-MM-DDThh:mm:ss"). When the clock runs on
  // the context's source, timers due before that time fire first, as they would have on the
  // phone. The time source never moves back. False for a bad text or the system clock.
  bool setLocalTime(const std::string& localTime, std::string& error);

  FrameworkContext& context() { return m_context; }
  FileLocalMgmt& mgmt() { return m_mgmt; }
  ClockServiceBase& clock() { return *m_clock; }
  SettableClockService* settableClock() { return m_settableClock; }  // null on the system clock
  ManualTimeSource* manualTime() { return m_manualTime; }            // the context's; null on steady time
  Executable* service() const { return m_service.get(); }
  Invoker* invoker() const { return m_invoker.get(); }
  const Plugin* plugin() const { return m_plugin.get(); }

 private:
  static std::unique_ptr<TimeSource> makeTimeSource(Clock clock);
  bool makeInvoker(std::string& error);
  void stopModule();
  static void runSteps(std::vector<std::function<void()>>& steps);

  std::unique_ptr<TimeSource> m_time;
  ManualTimeSource* m_manualTime;           // null on steady time
  ManualTimeSource* m_clockTime = nullptr;  // what a settable clock runs on
  FrameworkContext m_context;
  FileLocalMgmt m_mgmt;
  std::unique_ptr<ClockServiceBase> m_clock;
  SettableClockService* m_settableClock = nullptr;
  std::unique_ptr<Plugin> m_plugin;  // outlives the objects its factories made
  std::unique_ptr<Executable> m_service;
  std::unique_ptr<Invoker> m_invoker;
  bool m_initialised = false;
  std::vector<std::function<void()>> m_beforeModule;
  std::vector<std::function<void()>> m_afterModule;
};

}  // namespace fw

#pragma GCC visibility pop
