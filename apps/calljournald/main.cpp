// calljournald: the call journal daemon. Follows the phone's line at the switch, keeps the lists
// in its database and serves clients on a Unix socket until SIGTERM or SIGINT; SIGHUP reads the
// configuration file again. --print-config prints the configuration, every setting described.
// Started by systemd (Type=notify), it reports readiness, reloads and its stop on NOTIFY_SOCKET.
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "HostSettings.h"
#include "JournalHost.h"
#include "ProcessHeap.h"
#include "SettingTable.h"
#include "UsageErrors.h"
#include "framework/Logging.h"

namespace {

constexpr const char* kSystemConfig = "/etc/calljournal/calljournald.conf";

// Signals are taken by the main thread alone: blocked here before any thread starts, so every
// thread made later inherits the mask, then collected with sigwait.
sigset_t blockControlSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signal(SIGPIPE, SIG_IGN);  // a client gone mid-write is an error on that socket, not a crash
  return set;
}

// The configuration as a commented file: checked as at start-up (a fault is one line and exit
// code 1), the values given active, every other setting commented out at its default.
int printConfiguration(const std::string& path, const std::map<std::string, std::string>& overrides) {
  std::map<std::string, std::string> values;
  host::Settings unused;
  std::string error;
  if (!host::readConfiguration(path, overrides, values, unused, error)) {
    std::cerr << "calljournald: " << error << '\n';
    return 1;
  }
  std::cout << host::configurationText(values);
  return 0;
}

// The service manager's view of the daemon (systemd's Type=notify): READY=1 once clients are
// served and the lists are read, RELOADING=1 ... READY=1 around a reload, STOPPING=1 when a stop
// begins, each with a STATUS= line. Without NOTIFY_SOCKET (not started by systemd) nothing is sent.
// Each message is one datagram to the Unix socket NOTIFY_SOCKET names: a path, or an abstract
// socket name when it begins with '@'. A message that cannot be sent is dropped, as the manager
// would only time out waiting for it.
void notifyServiceManager(const char* state, const std::string& status) {
  const char* name = std::getenv("NOTIFY_SOCKET");
  if (!name || (name[0] != '/' && name[0] != '@')) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const size_t length = std::strlen(name);
  if (length >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, name, length);
  if (name[0] == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  const std::string message = std::string(state) + "\nSTATUS=" + status;
  ::sendto(fd, message.data(), message.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size);
  ::close(fd);
}

std::string servingStatus(const host::JournalHost& journal) {
  return "serving clients on " + journal.clientSocketPath();
}

void runUntilStopped(host::JournalHost& journal, const sigset_t& signals) {
  for (;;) {
    int sig = 0;
    if (sigwait(&signals, &sig) != 0) continue;
    if (sig == SIGHUP) {
      notifyServiceManager("RELOADING=1", "reading the configuration again");
      std::string error;
      const bool reloaded = journal.reload(error);
      if (!reloaded) logAppUni("Journal Host", __FILE__, 2, __LINE__, "reload failed: %s", error.c_str());
      notifyServiceManager("READY=1", servingStatus(journal) + (reloaded ? "" : "; the last reload failed: " + error));
      continue;
    }
    logAppUni("Journal Host", __FILE__, 4, __LINE__, "%s received, stopping", sig == SIGTERM ? "SIGTERM" : "SIGINT");
    notifyServiceManager("STOPPING=1", "stopping: finishing the pending writes");
    return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"calljournald: the call journal daemon (lists of missed, received, dialled and forwarded calls)"};
  std::string config;
  app.add_option("-c,--config", config,
                 "configuration file (default: " + std::string(kSystemConfig) +
                     " when it exists, else built-in defaults); relative paths in it are read from its folder");
  std::vector<std::string> sets;
  app.add_option("-s,--set", sets,
                 "KEY=VALUE over the configuration file (repeatable); a relative path is read from the working "
                 "directory");
  app.set_version_flag("--version", "calljournald " JOURNAL_VERSION, "print the version and exit");
  bool printConfig = false;
  app.add_flag("--print-config", printConfig,
               "print the configuration and exit: every setting described (what it takes, its default, when a "
               "change applies), the values of --config and --set given, the others commented out at their "
               "defaults. A file is checked as at start; without one the defaults are printed, a file to start from");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return host::usageError(app, e, "calljournald", "calljournald");  // --help is not an error
  }

  if (config.empty() && access(kSystemConfig, R_OK) == 0) config = kSystemConfig;
  std::map<std::string, std::string> overrides;
  for (const std::string& s : sets) {
    auto eq = s.find('=');
    if (eq == std::string::npos || eq == 0) {
      std::cerr << "calljournald: --set needs KEY=VALUE, got \"" << s << "\"\n";
      return 2;
    }
    overrides[s.substr(0, eq)] = s.substr(eq + 1);
  }
  if (printConfig) return printConfiguration(config, overrides);

  // The call history is personal data: every file the daemon makes (database, its companions, a
  // log file) is its user's alone.
  umask(077);
  host::limitHeapGrowth();
  sigset_t signals = blockControlSignals();
  // Every fault the daemon knows of is a plain message from configure or start; anything thrown
  // past them still ends with one line and exit code 1, never an abort.
  try {
    host::JournalHost journal(host::JournalHost::Mode::Daemon);
    std::string error;
    if (!journal.configure(config, overrides, error) || !journal.start(error)) {
      std::cerr << "calljournald: " << error << '\n';
      return 1;
    }
    std::cerr << "calljournald: serving clients on " << journal.clientSocketPath() << '\n';
    notifyServiceManager("READY=1", servingStatus(journal));
    runUntilStopped(journal, signals);
    journal.stop();
  } catch (const std::exception& e) {
    std::cerr << "calljournald: " << e.what() << '\n';
    return 1;
  }
  return 0;
}
