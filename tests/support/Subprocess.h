// Runs a program of this build as a child process for the end-to-end tests: its output goes to
// files that the test reads, it can be signalled, waited for with a time limit, and is killed
// when the object goes out of scope. Used from the test's thread only.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class Subprocess {
 public:
  struct Result {
    int code = -1;  // exit code; -1 when it did not end in time or was killed by a signal
    std::string out, err;
  };

  explicit Subprocess(std::vector<std::string> argv);
  ~Subprocess();  // SIGKILL and reap when still running
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  bool start();
  bool running();
  pid_t pid() const { return m_pid; }  // -1 before start()
  void signal(int sig);
  // Waits up to `timeoutMs` for the end; the exit code, or -1 (still running or killed).
  int wait(int timeoutMs);
  std::string out() const;
  std::string err() const;

  // Runs `argv` to its end (killed after `timeoutMs`).
  static Result run(const std::vector<std::string>& argv, int timeoutMs = 20000);

 private:
  std::vector<std::string> m_argv;
  std::string m_outPath, m_errPath;
  pid_t m_pid = -1;
  int m_status = -1;
};
