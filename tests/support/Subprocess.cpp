#include "Subprocess.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

std::string temporaryFile(const char* tag) {
  std::string pattern = std::string("/tmp/subprocess-") + tag + "-XXXXXX";
  int fd = mkstemp(pattern.data());
  if (fd >= 0) close(fd);
  return pattern;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

Subprocess::Subprocess(std::vector<std::string> argv)
    : m_argv(std::move(argv)), m_outPath(temporaryFile("out")), m_errPath(temporaryFile("err")) {}

Subprocess::~Subprocess() {
  if (running()) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  unlink(m_outPath.c_str());
  unlink(m_errPath.c_str());
}

bool Subprocess::start() {
  std::vector<char*> args;
  for (std::string& a : m_argv) args.push_back(a.data());
  args.push_back(nullptr);
  m_pid = fork();
  if (m_pid == 0) {
    int out = open(m_outPath.c_str(), O_WRONLY | O_TRUNC);
    int err = open(m_errPath.c_str(), O_WRONLY | O_TRUNC);
    dup2(out, 1);
    dup2(err, 2);
    // The test's own sockets (a switch simulator's listener, say) must not live on in the child.
    for (int fd = 3; fd < 1024; ++fd) ::close(fd);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  return m_pid > 0;
}

bool Subprocess::running() {
  if (m_pid <= 0 || m_status != -1) return false;
  int status = 0;
  if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
    m_status = status;
    return false;
  }
  return true;
}

void Subprocess::signal(int sig) {
  if (running()) kill(m_pid, sig);
}

int Subprocess::wait(int timeoutMs) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (running() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  if (running() || m_status == -1) return -1;
  return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -1;
}

std::string Subprocess::out() const { return readFile(m_outPath); }
std::string Subprocess::err() const { return readFile(m_errPath); }

Subprocess::Result Subprocess::run(const std::vector<std::string>& argv, int timeoutMs) {
  Subprocess p(argv);
  Result r;
  if (!p.start()) return r;
  r.code = p.wait(timeoutMs);
  r.out = p.out();
  r.err = p.err();
  return r;
}
