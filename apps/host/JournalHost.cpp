#include "JournalHost.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <type_traits>

#include "HostStatus.h"
#include "LinkWatchers.h"
#include "Management.h"
#include "ProcessHeap.h"
#include "SettingTable.h"
#include "client_server/ClientServer.h"
#include "client_server/JournalClient.h"
#include "csta_link/CstaLinkService.h"
#include "digit_analysis/ConfiguredDigitAnalysis.h"
#include "framework/JournalRuntime.h"
#include "framework/JournalServiceHelper.h"
#include "framework/Logging.h"
#include "framework/PluginLoader.h"
#include "framework/Services.h"
#include "mobility_upload/UploadMobilityService.h"
#include "phonebook/FilePhonebook.h"
#include "sqlite_store/SqliteDataAccessService.h"

namespace host {

namespace {

constexpr const char* kLog = "Journal Host";
constexpr const char* kObserverInterface = "JournalServiceObserverIfc";
// Where the journal starts counting when a replay sets no time before its first event.
constexpr const char* kReplayStart = "2000-01-01T00:00:00";

#define HOSTLOG(level, ...) logAppUni(kLog, __FILE__, (level), __LINE__, __VA_ARGS__)

// Makes every missing directory of `path`'s parent, owner-only for new ones.
bool makeParentDirectories(const std::string& path, std::string& error) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    std::string dir = path.substr(0, slash);
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
      error = "cannot create directory " + dir + ": " + std::strerror(errno);
      return false;
    }
  }
  return true;
}

// Stops the monitors the journal cannot stop itself when its call-log access is taken away: one
// whose start the switch refused at first and the link started later holds no id in the journal.
// Called on the configuration's notification thread.
class CallLogAccessAgent : public MgmtAgentIfc {
 public:
  explicit CallLogAccessAgent(fw::CstaLinkService& link) : m_link(link) {}
  void manageableDataChanged(ManageableData& data) override {
    std::string value;
    // The link logs each monitor it stops.
    if (data.interogate("disable-access-calllog", value) && (value == "1" || value == "2"))
      m_link.stopUnclaimedMonitors();
  }

 private:
  fw::CstaLinkService& m_link;
};

}  // namespace

struct JournalHost::Parts {
  explicit Parts(Mode mode)
      : runtime(mode == Mode::Replay ? fw::JournalRuntime::Clock::Manual : fw::JournalRuntime::Clock::System) {}

  fw::JournalRuntime runtime;  // time, context, configuration, clock and the module
  FileLocalMgmt& mgmt = runtime.mgmt();
  SqliteDataAccessService store;
  FilePhonebook phonebook;
  std::unique_ptr<ConfiguredDigitAnalysis> digits;
  std::unique_ptr<UploadMobilityService> mobility;
  std::unique_ptr<LinkWatchers> linkWatchers;  // outlives the link and the client server
  std::unique_ptr<fw::CstaLinkService> csta;
  std::unique_ptr<CallLogAccessAgent> accessAgent;
  std::unique_ptr<fw::ClientServer> server;
  std::shared_ptr<fw::LogSink> previousSink;
  bool sinkReplaced = false;
};

JournalHost::JournalHost(Mode mode) : m_mode(mode), m_parts(std::make_unique<Parts>(mode)) {}

JournalHost::~JournalHost() { stop(); }

bool JournalHost::configure(const std::string& path, const std::map<std::string, std::string>& overrides,
                            std::string& error) {
  m_configPath = path.empty() || path.front() == '/' ? path : fileFolder(path) + "/" + path.substr(path.rfind('/') + 1);
  m_overrides = overrides;
  std::map<std::string, std::string> values;
  Settings settings;
  std::shared_ptr<fw::LogSink> sink;
  if (!readConfiguration(values, settings, error)) return false;
  if (!settings.logFile.empty() && !openLogFile(settings.logFile, sink, error)) return false;
  m_parts->mgmt.replaceValues(values);
  for (const auto& [key, value] : phoneDefaults()) m_parts->mgmt.setDefault(key, value);
  m_settings = settings;
  useLogFile(settings.logFile, sink);
  applyLogThresholds(m_settings.logLevels);
  return true;
}

bool JournalHost::readConfiguration(std::map<std::string, std::string>& values, Settings& settings,
                                    std::string& error) const {
  return host::readConfiguration(m_configPath, m_overrides, values, settings, error, true);
}

bool JournalHost::openLogFile(const std::string& path, std::shared_ptr<fw::LogSink>& sink, std::string& error) {
  try {
    sink = std::make_shared<fw::FileSink>(path);
  } catch (const std::exception& e) {
    error = e.what();  // names the file and the reason
    return false;
  }
  return true;
}

void JournalHost::useLogFile(const std::string& path, std::shared_ptr<fw::LogSink> sink) {
  Parts& p = *m_parts;
  if (sink) {
    std::shared_ptr<fw::LogSink> previous = fw::setLogSink(std::move(sink));
    if (!p.sinkReplaced) p.previousSink = std::move(previous);
    p.sinkReplaced = true;
  } else if (path.empty() && p.sinkReplaced) {
    fw::setLogSink(p.previousSink);
    p.sinkReplaced = false;
  }
  m_settings.logFile = path;
}

void JournalHost::applyLogThresholds(const std::string& levels) {
  std::string error;
  if (!fw::setLogThresholds(levels, &error))
    HOSTLOG(2, "log-levels \"%s\" not used: %s", levels.c_str(), error.c_str());
}

bool JournalHost::start(std::string& error) {
  if (m_started) return true;
  if (m_mode == Mode::Daemon && !checkSocketFolder(error)) return false;
  // A daemon already serving this socket keeps it, and this one touches nothing of it.
  fw::JournalClient probe;
  std::string unused;
  if (m_mode == Mode::Daemon && probe.connect(m_settings.clientSocket, unused)) {
    error = "another journal daemon is serving " + m_settings.clientSocket;
    return false;
  }
  if (!startServices(error) || !loadModule(error)) {
    stop();
    return false;
  }
  m_started = true;
  m_startedAt = std::chrono::system_clock::now();
  m_startedSteady = std::chrono::steady_clock::now();
  // The journal reads its lists from the store when a screen first subscribes; a host serves
  // clients that read without subscribing, so the lists are read at once. The switch's events
  // were held since before the journal started its monitor: a call that ended meanwhile is filed
  // into the lists read here, not into empty ones.
  m_listsLoaded = request(JournalServiceHelper::createMethodRequest(JournalServiceHelper::REFRESH_CALL_LOG)) ==
                  JournalServiceHelper::respBool(true);
  if (!m_listsLoaded) HOSTLOG(2, "the journal could not read its lists from the database at start");
  releaseFreedHeap();  // the load's transient texts and parse trees are freed by now
  applyJournalSwitches();
  m_parts->csta->releaseEvents();
  if (m_mode == Mode::Daemon && !serveClients(error)) {
    stop();
    return false;
  }
  HOSTLOG(
      4, "journal started: database %s, switch %s", m_settings.database.c_str(),
      m_settings.switchPort ? (m_settings.switchHost + ":" + std::to_string(m_settings.switchPort)).c_str() : "none");
  return true;
}

// The shared folder of the default socket is made owner-only when it is new; one made by someone
// else, or open to others, is refused before anything of it is used: whoever controls the folder
// could take the socket's path and receive the clients' requests.
bool JournalHost::checkSocketFolder(std::string& error) const {
  const std::string folder = sharedSocketFolder();
  if (m_settings.clientSocket != folder + "/calljournal.sock") return true;
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    error = "cannot create the socket folder " + folder + ": " + std::strerror(errno);
    return false;
  }
  return checkPrivateFolder(folder, error);
}

bool JournalHost::startServices(std::string& error) {
  Parts& p = *m_parts;
  std::map<std::string, std::string> values = p.mgmt.values();
  auto value = [&](const char* key) {
    auto it = values.find(key);
    return it == values.end() ? std::string() : it->second;
  };
  if (SettableClockService* clock = p.runtime.settableClock())
    clock->setLocalTime(m_replayStart.empty() ? std::string(kReplayStart) : m_replayStart);
  HardwareVersion::setHWSubPlatformVariant(std::atoi(value("hw-sub-platform-variant").c_str()));

  if (!makeParentDirectories(m_settings.database, error)) return false;
  if (!p.store.open(m_settings.database, error)) {
    error = "cannot open the database " + m_settings.database + ": " + error;
    return false;
  }
  p.runtime.onStop(fw::JournalRuntime::StopPhase::AfterModule, [&p] { p.store.close(); });
  if (!m_settings.phonebook.empty() && !loadPhonebook(error)) return false;
  p.digits = std::make_unique<ConfiguredDigitAnalysis>(p.mgmt);
  std::string visitor = value("mobility-current-user");
  if (visitor.empty()) visitor = value("mac-addr");
  p.mobility = std::make_unique<UploadMobilityService>(&p.store, m_settings.mobilityUrl, visitor);

  fw::CstaLinkOptions link;
  link.host = m_settings.switchHost;
  link.port = m_settings.switchPort;
  link.monitoredDevice = m_settings.monitoredDevice;
  link.requestTimeoutMs = m_settings.requestTimeoutMs;
  link.answerLocally = m_mode == Mode::Replay;
  p.csta = std::make_unique<fw::CstaLinkService>(link);
  p.linkWatchers = std::make_unique<LinkWatchers>(
      m_settings.switchPort ? m_settings.switchHost + ":" + std::to_string(m_settings.switchPort) : "none",
      p.csta->linkState());
  p.csta->setStateListener(
      [watchers = p.linkWatchers.get()](const fw::CstaLinkService::LinkState& state) { watchers->changed(state); });
  p.csta->holdEvents();  // until the journal's lists are read (start())
  p.csta->start();
  p.runtime.onStop(fw::JournalRuntime::StopPhase::BeforeModule, [&p] { p.csta->stop(); });  // no more events
  p.accessAgent = std::make_unique<CallLogAccessAgent>(*p.csta);
  p.mgmt.observe("disable-access-calllog", p.accessAgent.get());
  p.runtime.onStop(fw::JournalRuntime::StopPhase::BeforeModule, [&p] {
    p.mgmt.forget(p.accessAgent.get());
    p.accessAgent.reset();
  });

  p.runtime.provide("DataAccessServiceIfc", &p.store);
  p.runtime.provide("DirectoryServiceIfc", &p.phonebook);
  p.runtime.provide("DigitAnalysisServiceIfc", p.digits.get());
  p.runtime.provide("MobilityServiceIfc", p.mobility.get());
  p.runtime.provide("CSTAServiceIfc", p.csta.get());
  return true;
}

bool JournalHost::loadPhonebook(std::string& error) {
  struct stat file {};
  if (stat(m_settings.phonebook.c_str(), &file) == 0 && !S_ISREG(file.st_mode)) {
    error = "phonebook " + m_settings.phonebook + " is not a file";
    return false;
  }
  return m_parts->phonebook.load(m_settings.phonebook, error).has_value();
}

bool JournalHost::loadModule(std::string& error) {
  return m_parts->runtime.loadPlugin(m_settings.module, error) && m_parts->runtime.start(error);
}

bool JournalHost::serveClients(std::string& error) {
  Parts& p = *m_parts;
  fw::ClientServerOptions options;
  options.socketPath = m_settings.clientSocket;
  options.tcpHost = m_settings.clientTcpHost;
  options.tcpPort = m_settings.clientTcpPort;
  options.allowNonLoopbackTcp = m_settings.clientTcpAllowRemote;
  if (m_settings.clientWebPort >= 0) {
    options.webHost = m_settings.clientWebHost;
    options.webPort = m_settings.clientWebPort;
  }
  options.allowNonLoopbackWeb = m_settings.clientWebAllowRemote;
  options.webRoot = m_settings.clientWebRoot;
  options.maxConnections = static_cast<std::size_t>(m_settings.clientMaxConnections);
  if (!makeParentDirectories(options.socketPath, error)) return false;
  p.server = std::make_unique<fw::ClientServer>(p.runtime.context(), options);
  p.runtime.onStop(fw::JournalRuntime::StopPhase::BeforeModule, [&p] {
    p.server->stop();  // no request, proxy or subscription outlives this
    p.server.reset();
  });
  p.server->setTarget(p.runtime.service(), p.runtime.invoker());
  const fw::Plugin* plugin = p.runtime.plugin();
  p.server->addProxyFactory(
      kObserverInterface, [plugin] { return plugin->create<Proxy>("createJournalServiceObserverProxy"); },
      JournalServiceHelper::createMethodRequest(JournalServiceHelper::UNSUBSCRIBE));
  // A connection that asks for link messages gets a watcher; it goes with the connection.
  LinkWatchers* watchers = p.linkWatchers.get();
  p.server->addProxyFactory(
      kLinkWatcherInterface, [watchers]() -> Proxy* { return new LinkWatcher(*watchers); }, std::string());
  p.server->setHandler(kManagementRequest, [this](const std::string& message, const std::string& clientId) {
    return handleManagement(message, clientId);
  });
  if (!p.server->start(error)) return false;
  if (p.server->webPort() >= 0) {
    const std::string& host = m_settings.clientWebHost;
    HOSTLOG(4, "clients on the web at http://%s:%d/ (the page's files from %s)",
            (host.find(':') == std::string::npos ? host : "[" + host + "]").c_str(), p.server->webPort(),
            m_settings.clientWebRoot.c_str());
  }
  return true;
}

void JournalHost::stop() {
  Parts& p = *m_parts;
  // Clients, the access agent and the switch's events end first, then the module, then the store.
  p.runtime.stop();
  if (p.sinkReplaced) {
    fw::setLogSink(p.previousSink);
    p.sinkReplaced = false;
  }
  if (m_started) HOSTLOG(4, "journal stopped");
  m_started = false;
}

// Everything that can refuse the new file is checked before any of it is used: the file itself,
// every setting and phone value, the log file and the phonebook (whose reload keeps the contacts
// held before when it fails). What changed is logged after the log file is opened again, so the
// lines are in the file a rotation leaves.
bool JournalHost::reload(std::string& error) {
  if (m_configPath.empty()) {
    error = "no configuration file to read again";
    return false;
  }
  std::map<std::string, std::string> values;
  Settings settings;
  std::shared_ptr<fw::LogSink> sink;
  if (!readConfiguration(values, settings, error)) return false;
  // Opened again under the same name too: a log rotation renamed the file written so far.
  if (!settings.logFile.empty() && !openLogFile(settings.logFile, sink, error)) return false;
  if (!reloadPhonebook(settings.phonebook, error)) return false;

  const std::map<std::string, std::string> before = m_parts->mgmt.values();
  const std::map<std::string, std::string> waiting = holdStartOnlyValues(before, values);
  useLogFile(settings.logFile, sink);
  logConfigurationChanges(before, values, waiting);
  {
    fw::MutexLock guard(m_waitingMutex);
    m_waitingForStart = waiting;
  }
  m_parts->mgmt.replaceValues(values);
  m_settings.logLevels = settings.logLevels;
  m_settings.mobilityUrl = settings.mobilityUrl;
  if (!waiting.count("phonebook")) m_settings.phonebook = settings.phonebook;
  applyLogThresholds(m_settings.logLevels);
  if (m_parts->mobility) m_parts->mobility->setUrl(settings.mobilityUrl);
  m_parts->mgmt.drainNotifications();
  applyJournalSwitches();
  HOSTLOG(4, "configuration %s read again", m_configPath.c_str());
  return true;
}

bool JournalHost::reloadPhonebook(const std::string& path, std::string& error) {
  if (path.empty()) return true;  // none configured, or the one loaded kept until the next start
  if (path == m_settings.phonebook) return m_parts->phonebook.reload(error).has_value();
  struct stat file {};
  if (stat(path.c_str(), &file) == 0 && !S_ISREG(file.st_mode)) {
    error = "phonebook " + path + " is not a file";
    return false;
  }
  return m_parts->phonebook.load(path, error).has_value();
}

void JournalHost::applyJournalSwitches() {
  MgmtAgentIfc* agent = m_parts->mgmt.agent(kJournalAgent);
  if (!agent) return;
  std::size_t count = 0;
  const SettingInfo* table = settingTable(count);
  for (std::size_t i = 0; i < count; ++i) {
    const char* key = table[i].key;
    std::string configured, code, current;
    if (!isJournalSwitch(key) || !m_parts->mgmt.value(key, configured) || configured.empty() ||
        !journalCode(key, configured, code))
      continue;
    ManageableData read(key);
    agent->getData(read);
    if (read.interogate(key, current) && current == code) continue;
    ManageableData data;
    data.populate(key, code);
    agent->setData(data);
    HOSTLOG(4, "configuration: %s changed from %s to %s", key, journalWord(key, current).c_str(),
            journalWord(key, code).c_str());
  }
}

std::string JournalHost::request(const std::string& message) {
  std::string reply;
  return m_parts->runtime.request(message, reply) ? reply : JournalServiceHelper::FAILURE;
}

std::string JournalHost::handleManagement(const std::string& message, const std::string& clientId) {
  // On the client server's request threads, several at once: the levels a set gives are read
  // from the management values and applied, and m_settings (the main thread's) is left alone.
  ManagementContext context{m_parts->mgmt,
                            [this] {
                              Settings s;
                              std::string error;
                              if (readSettings(m_parts->mgmt.values(), s, error)) applyLogThresholds(s.logLevels);
                            },
                            [this] { return status(); },
                            m_configPath,
                            [this] { return waitingForStart(); },
                            clientId,
                            [this](const std::string& client) {
                              Parts& p = *m_parts;
                              return p.server && p.linkWatchers && !client.empty() &&
                                     p.linkWatchers->subscribe(p.runtime.context(), client);
                            }};
  return answerManagement(message, context);
}

namespace {

// The number of entries of the list a read reply holds (with `unviewed` also the missed entries
// not yet viewed); false when the reply is no list.
template <class Item, class Parse>
bool listSize(const std::string& reply, Parse parse, std::size_t& size, std::size_t* unviewed = nullptr) {
  std::deque<Item> list;
  if (reply == JournalServiceHelper::FAILURE || !parse(reply, list)) return false;
  size = list.size();
  if constexpr (std::is_same_v<Item, MissedCallItem>) {
    if (unviewed)
      *unviewed = static_cast<std::size_t>(
          std::count_if(list.begin(), list.end(), [](const Item& i) { return !i.getViewed(); }));
  }
  return true;
}

// Status lines in the order they are added.
class StatusLines {
 public:
  void text(const char* key, const std::string& value) { add(key, value, kTypeText); }
  void flag(const char* key, bool value) { add(key, value ? "true" : "false", kTypeBool); }
  void number(const char* key, std::size_t value) { add(key, std::to_string(value), kTypeNumber); }
  void seconds(const char* key, long long value) { add(key, std::to_string(value), kTypeSeconds); }
  void time(const char* key, std::chrono::system_clock::time_point value) { add(key, isoLocalTime(value), kTypeTime); }
  std::vector<ManagementSetting> lines;

 private:
  void add(const char* key, const std::string& value, const char* type) {
    lines.push_back({key, value, "status", type});
  }
};

// Why the journal does not follow the line; empty when it does.
std::string notFollowingBecause(bool switchConfigured, const fw::CstaLinkService::LinkState& link, bool listsLoaded) {
  if (!switchConfigured) return "no switch configured";
  if (!link.connected) return "the switch link is down (" + link.reason + ")";
  if (link.monitors.asked == 0) return "no monitor is asked for (call-log access is off)";
  if (link.monitors.running < link.monitors.asked) return "the monitor does not run at the switch yet";
  if (!listsLoaded) return "the lists could not be read from the database";
  return std::string();
}

}  // namespace

std::vector<ManagementSetting> JournalHost::status() {
  Parts& p = *m_parts;
  StatusLines out;
  const bool switchConfigured = m_settings.switchPort != 0 && m_mode == Mode::Daemon;
  fw::CstaLinkService::LinkState link;
  if (p.csta) link = p.csta->linkState();
  const std::string why = notFollowingBecause(switchConfigured, link, m_listsLoaded);
  out.flag("following", why.empty());
  if (!why.empty()) out.text("not-following", why);

  out.text("switch", switchConfigured ? m_settings.switchHost + ":" + std::to_string(m_settings.switchPort) : "none");
  out.flag("link", switchConfigured && link.connected);
  out.time("link-since", link.since);
  if (!link.connected) out.text("link-reason", link.reason);
  out.flag("monitor", link.connected && link.monitors.asked > 0 && link.monitors.running == link.monitors.asked);
  out.text("monitor-state", !switchConfigured                              ? "no switch"
                            : link.monitors.asked == 0                     ? "not asked for"
                            : link.monitors.running == link.monitors.asked ? "running at the switch"
                                                                           : "waiting for the switch");

  out.flag("lists-loaded", m_listsLoaded);
  auto read = [this](int method) { return request(JournalServiceHelper::createMethodRequest(method)); };
  std::size_t size = 0, unviewed = 0;
  if (listSize<MissedCallItem>(read(JournalServiceHelper::GET_MISSED_CALL_LIST),
                               JournalServiceHelper::parseXMLMissedCallList, size, &unviewed)) {
    out.number("missed", size);
    out.number("missed-unviewed", unviewed);
  }
  if (listSize<ReceivedCallItem>(read(JournalServiceHelper::GET_RECEIVED_CALL_LIST),
                                 JournalServiceHelper::parseXMLReceivedCallList, size))
    out.number("received", size);
  if (listSize<DialledCallItem>(read(JournalServiceHelper::GET_DIALLED_CALL_LIST),
                                JournalServiceHelper::parseXMLDialledCallList, size))
    out.number("dialled", size);
  if (listSize<ForwardedCallItem>(read(JournalServiceHelper::GET_FORWARDED_CALL_LIST),
                                  JournalServiceHelper::parseXMLForwardedCallList, size))
    out.number("forwarded", size);
  if (listSize<CallBackItem>(read(JournalServiceHelper::GET_CALL_BACK_LIST), JournalServiceHelper::parseXMLCallBackList,
                             size))
    out.number("callbacks", size);

  out.text("store", m_settings.database);
  std::string storeState = "unknown";
  if (MgmtAgentIfc* agent = p.mgmt.agent(kJournalAgent)) {
    ManageableData data("store-state");
    agent->getData(data);
    data.interogate("store-state", storeState);
  }
  out.text("store-state", storeState);
  const SqliteDataAccessService::LastError storeError = p.store.lastError();
  out.text("store-error", storeError.text.empty() ? "none" : storeError.text);
  if (!storeError.text.empty()) out.time("store-error-at", storeError.at);

  out.number("clients", p.server ? p.server->connectionCount() : 0);
  out.number("clients-max", static_cast<std::size_t>(m_settings.clientMaxConnections));
  out.time("started", m_startedAt);
  out.seconds(
      "uptime",
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - m_startedSteady).count());
  return out.lines;
}

bool JournalHost::setLocalTime(const std::string& localTime, std::string& error) {
  if (m_mode != Mode::Replay) {
    error = "the clock can only be set in a replay";
    return false;
  }
  if (!m_parts->runtime.setLocalTime(localTime, error)) return false;
  settle();
  return true;
}

bool JournalHost::deliverEvent(const std::string& xml, std::string& error) {
  if (!m_parts->csta->deliverDocument(xml, error)) return false;
  settle();
  return true;
}

bool JournalHost::setValue(const std::string& key, const std::string& value, std::string& reason) {
  ManagementReply reply;
  const bool parsed = parseManagementReply(handleManagement(managementSetRequest(key, value)), reply);
  settle();
  reason = parsed ? reply.reason : "no management reply";
  return parsed && reply.ok;
}

bool JournalHost::isJournalSetting(const std::string& key) {
  ManagementReply reply;
  return parseManagementReply(handleManagement(managementGetRequest({key})), reply) && reply.ok &&
         reply.settings.size() == 1 && reply.settings.front().source == "journal";
}

void JournalHost::settle() {
  Parts& p = *m_parts;
  if (p.csta) p.csta->drainEvents();
  p.runtime.settle();
}

std::string JournalHost::clientSocketPath() const { return m_settings.clientSocket; }

int JournalHost::clientTcpPort() const { return m_parts->server ? m_parts->server->tcpPort() : -1; }
int JournalHost::clientWebPort() const { return m_parts->server ? m_parts->server->webPort() : -1; }

}  // namespace host
