// The processes the daemon benchmark drives: the switch simulator and calljournald, each a child
// process (tests/support/Subprocess, killed when the object goes), found beside this program, and
// what /proc says of them (resident memory, a thread's time on the CPU). Waits have generous time
// limits and end in a BenchFailure naming what did not happen; an interrupt (SIGINT, SIGTERM)
// ends them the same way, so that every child is killed and the temporary folder removed on the
// way out. Used from the benchmark's only thread.
#pragma once

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>

#include "Subprocess.h"

namespace bench {

// A set-up that did not work: nothing was measured.
struct BenchFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline std::atomic<bool> g_interrupted{false};

inline void onInterrupt(int) { g_interrupted = true; }

inline void catchInterrupts() {
  std::signal(SIGINT, onInterrupt);
  std::signal(SIGTERM, onInterrupt);
}

inline void throwIfInterrupted() {
  if (g_interrupted) throw BenchFailure("interrupted");
}

// Polls `condition` every `pollMs` until it holds; a BenchFailure naming `what` after `timeoutMs`.
inline void waitUntil(const std::function<bool()>& condition, int timeoutMs, const std::string& what, int pollMs = 5) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!condition()) {
    throwIfInterrupted();
    if (std::chrono::steady_clock::now() > deadline)
      throw BenchFailure("no " + what + " within " + std::to_string(timeoutMs / 1000) + " s");
    std::this_thread::sleep_for(std::chrono::milliseconds(pollMs));
  }
}

// The program `name` in the folder of this program (the build's bin folder).
inline std::string besideThisProgram(const std::string& name) {
  char self[4096];
  const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) throw BenchFailure("cannot read /proc/self/exe");
  self[n] = '\0';
  std::string path(self);
  path = path.substr(0, path.rfind('/') + 1) + name;
  if (access(path.c_str(), X_OK) != 0) throw BenchFailure(path + " is not there: build it first");
  return path;
}

// ---- /proc ----------------------------------------------------------------------------------------

// A "Vm...:" field of /proc/PID/status in kB; -1 when it cannot be read.
inline long statusKb(pid_t pid, const char* field) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line))
    if (line.compare(0, std::strlen(field), field) == 0) return std::atol(line.c_str() + std::strlen(field));
  return -1;
}

// The id of the thread of `pid` named `name` (/proc/PID/task/TID/comm); 0 when there is none.
inline pid_t threadNamed(pid_t pid, const std::string& name) {
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  DIR* dir = opendir(tasks.c_str());
  if (!dir) return 0;
  pid_t found = 0;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    std::string comm;
    std::getline(std::ifstream(tasks + "/" + entry->d_name + "/comm"), comm);
    if (comm == name) found = static_cast<pid_t>(std::atol(entry->d_name));
  }
  closedir(dir);
  return found;
}

// The time thread `tid` of `pid` has spent on a CPU, in ns (the first field of its schedstat).
inline long long onCpuNs(pid_t pid, pid_t tid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) + "/schedstat");
  long long ns = -1;
  if (!(in >> ns)) throw BenchFailure("cannot read the schedstat of thread " + std::to_string(tid));
  return ns;
}

// ---- The switch simulator --------------------------------------------------------------------------

// cstaswitchsim on 127.0.0.1, playing `trace` (none: answering only) with no pause between events
// each time a phone's monitor starts.
class SwitchProcess {
 public:
  SwitchProcess(int port, const std::string& trace) {
    std::vector<std::string> argv = {besideThisProgram("cstaswitchsim"), "--port", std::to_string(port)};
    if (!trace.empty()) argv.insert(argv.end(), {"--trace", trace, "--delay-ms", "0"});
    m_process = std::make_unique<Subprocess>(argv);
    if (!m_process->start()) throw BenchFailure("cannot start cstaswitchsim");
    const std::regex listening("listening on 127\\.0\\.0\\.1:([0-9]+)");
    std::smatch match;
    std::string out;
    waitUntil(
        [&] {
          if (!m_process->running()) throw BenchFailure("cstaswitchsim ended: " + m_process->err());
          out = m_process->out();
          return std::regex_search(out, match, listening);
        },
        15000, "listening switch simulator");
    m_port = std::stoi(match[1].str());
  }
  ~SwitchProcess() { stop(); }

  int port() const { return m_port; }
  void stop() {
    m_process->signal(SIGTERM);
    if (m_process->wait(10000) < 0) m_process->signal(SIGKILL);
    m_process->wait(5000);
  }

 private:
  std::unique_ptr<Subprocess> m_process;
  int m_port = 0;
};

// ---- The daemon -------------------------------------------------------------------------------------

// calljournald on the configuration file `config`; started by start() (fork and exec).
class DaemonProcess {
 public:
  explicit DaemonProcess(const std::string& config)
      : m_process(std::vector<std::string>{besideThisProgram("calljournald"), "--config", config}) {}
  ~DaemonProcess() { m_process.signal(SIGKILL); }

  void start() {
    if (!m_process.start()) throw BenchFailure("cannot start calljournald");
  }
  void checkRunning() {
    if (!m_process.running()) throw BenchFailure("calljournald ended: " + m_process.err());
  }
  pid_t pid() const { return m_process.pid(); }
  // SIGTERM, and the end of its pending writes.
  void stop() {
    m_process.signal(SIGTERM);
    if (m_process.wait(60000) != 0) throw BenchFailure("calljournald did not stop cleanly: " + m_process.err());
  }
  long statusKb(const char* field) const { return bench::statusKb(m_process.pid(), field); }
  std::string err() const { return m_process.err(); }
  // Whether the daemon has logged that its monitor at the switch runs (log lines go to stderr).
  bool monitorRuns() const { return m_process.err().find("the monitor of") != std::string::npos; }

 private:
  Subprocess m_process;
};

}  // namespace bench
