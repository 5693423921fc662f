#include "framework/JournalRuntime.h"

#include "framework/PluginLoader.h"

namespace fw {

namespace {

constexpr const char* kServiceName = "JournalServiceIfc";

// An answer kept in this process.
class LocalResponse : public InvokerResponse {
 public:
  void setResponse(const char* text, int length) override { m_text.assign(text, static_cast<size_t>(length)); }
  void takeResponse(std::string&& text) override { m_text = std::move(text); }
  void complete() override {}
  std::string getClientId() const override { return "local"; }
  std::string& text() { return m_text; }

 private:
  std::string m_text;
};

}  // namespace

JournalRuntime::JournalRuntime(Clock clock, const std::string& startTime, ManualTimeSource* clockTime)
    : m_time(makeTimeSource(clock)), m_manualTime(dynamic_cast<ManualTimeSource*>(m_time.get())), m_context(*m_time) {
  if (m_manualTime) {
    m_clockTime = clockTime ? clockTime : m_manualTime;
    auto settable = std::make_unique<SettableClockService>(*m_clockTime, startTime);
    m_settableClock = settable.get();
    m_clock = std::move(settable);
  } else {
    m_clock = std::make_unique<SystemClockService>();
  }
  m_context.registerService("LocalMgmtIfc", &m_mgmt);
  m_context.registerService("ClockServiceIfc", m_clock.get());
}

JournalRuntime::~JournalRuntime() { stop(); }

std::unique_ptr<TimeSource> JournalRuntime::makeTimeSource(Clock clock) {
  if (clock == Clock::Manual) return std::make_unique<ManualTimeSource>();
  return std::make_unique<SteadyTimeSource>();
}

void JournalRuntime::provide(const std::string& name, Executable* service) { m_context.registerService(name, service); }

void JournalRuntime::withdraw(const std::string& name) { m_context.unregisterService(name); }

bool JournalRuntime::loadPlugin(const std::string& path, std::string& error) {
  m_plugin = Plugin::load(path, error);
  if (!m_plugin) return false;
  std::string symbolError;
  m_service.reset(m_plugin->create<Executable>("createJournalService", &symbolError));
  if (!m_service) {
    error = path + ": no journal service (" + symbolError + ")";
    return false;
  }
  return true;
}

void JournalRuntime::useModule(std::unique_ptr<Executable> service, std::unique_ptr<Invoker> invoker) {
  m_service = std::move(service);
  m_invoker = std::move(invoker);
}

bool JournalRuntime::start(std::string& error) {
  if (!m_service) {
    error = "no journal module to start";
    return false;
  }
  if (m_initialised) return true;
  m_context.registerService(kServiceName, m_service.get());
  m_service->init(m_context);
  m_initialised = true;
  // A plug-in's invoker is made once its service runs, as the framework loads modules.
  if (!m_invoker && m_plugin && !makeInvoker(error)) return false;
  if (m_invoker) m_invoker->initInvoker(&m_context);
  return true;
}

bool JournalRuntime::makeInvoker(std::string& error) {
  std::string symbolError;
  m_invoker.reset(m_plugin->create<Invoker>("createJournalServiceInvoker", &symbolError));
  if (m_invoker) return true;
  error = m_plugin->path() + ": no request invoker (" + symbolError + ")";
  return false;
}

void JournalRuntime::onStop(StopPhase phase, std::function<void()> step) {
  (phase == StopPhase::BeforeModule ? m_beforeModule : m_afterModule).push_back(std::move(step));
}

void JournalRuntime::stop() {
  runSteps(m_beforeModule);  // nothing calls into the module any more
  stopModule();
  runSteps(m_afterModule);
}

void JournalRuntime::stopModule() {
  if (m_service) {
    if (m_initialised) m_service->shutdown();
    m_context.cancelTimers(m_service.get());
    m_mgmt.forget(dynamic_cast<MgmtAgentIfc*>(m_service.get()));
    m_context.unregisterService(kServiceName);
    m_service.reset();
  }
  m_initialised = false;
  m_invoker.reset();
  m_plugin.reset();
}

void JournalRuntime::runSteps(std::vector<std::function<void()>>& steps) {
  std::vector<std::function<void()>> taken;
  taken.swap(steps);
  for (auto step = taken.rbegin(); step != taken.rend(); ++step) (*step)();
}

bool JournalRuntime::request(const std::string& message, std::string& reply) {
  if (!m_initialised || !m_invoker) return false;
  LocalResponse response;
  m_invoker->handleMessage(m_service.get(), message.data(), static_cast<int>(message.size()), &response);
  reply = std::move(response.text());
  return true;
}

void JournalRuntime::settle() {
  m_context.settle();
  m_mgmt.drainNotifications();
}

void JournalRuntime::advance(int64_t ms) {
  if (m_manualTime) m_manualTime->advance(ms);
  m_context.settle();
}

bool JournalRuntime::setLocalTime(const std::string& localTime, std::string& error) {
  if (!m_settableClock) {
    error = "the clock runs on the system's time";
    return false;
  }
  CivilTime target;
  if (!parseCivil(localTime, target)) {
    error = "\"" + localTime + "\" is not a time (YYYY-MM-DDThh:mm:ss)";
    return false;
  }
  const int64_t delta =
      secondsFromCivil(target) - secondsFromCivil(civilFromSeconds(m_settableClock->getCurrentTimeSec()));
  // On the context's own source, timers due before the new time fire first.
  if (delta > 0) m_clockTime->advance(delta * 1000);
  m_settableClock->setLocalTime(localTime);
  return true;
}

}  // namespace fw
