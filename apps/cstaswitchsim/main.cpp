// cstaswitchsim --version
// cstaswitchsim --port N [--trace FILE] [--delay-ms N] [--first-event N] [--at-monitor-start FILE]
//               [--escape-delay-ms N]
//
// A scripted switch on 127.0.0.1 for trying the journal's CSTA link by hand: it serves one phone at
// a time, answers its requests and, each time the phone's monitor has started, plays the trace's
// events to it (waiting --delay-ms between events), from event number --first-event on (counted
// from 0: the rest of a day after a stop). --at-monitor-start names a trace whose events are sent
// in the same write as every MonitorStart answer. --escape-delay-ms answers each Escape request
// (the phone's reports to the switch's call log) that much later, as a slow switch does. Runs
// until interrupted.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "SwitchSimulator.h"

namespace {

std::atomic<bool> g_stop{false};

void onSignal(int) { g_stop = true; }

constexpr const char* kUsage =
    "usage: %s --port N [--trace FILE] [--delay-ms N] [--first-event N] [--at-monitor-start FILE]\n"
    "          [--escape-delay-ms N]\n";

constexpr const char* kOptions =
    "A scripted switch on 127.0.0.1: serves one phone at a time, answers its requests and plays a trace\n"
    "each time the phone's monitor has started. Runs until interrupted.\n"
    "  --port N                 the port to listen on (0: any free one, printed)\n"
    "  --trace FILE             the trace whose events are played\n"
    "  --delay-ms N             pause between the trace's events (default 0)\n"
    "  --first-event N          play from event number N on, counted from 0 (default 0)\n"
    "  --at-monitor-start FILE  events sent in the same write as every MonitorStart answer\n"
    "  --escape-delay-ms N      answer each Escape request (a report to the switch's call log) N ms\n"
    "                           late, as a slow switch does (default 0: at once)\n"
    "  --version                print the version and exit\n";

int usage(const char* program) {
  std::fprintf(stderr, kUsage, program);
  return 2;
}

int help(const char* program) {
  std::printf(kUsage, program);
  std::printf("%s", kOptions);
  return 0;
}

int version() {
  std::printf("cstaswitchsim %s\n", JOURNAL_VERSION);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  SwitchSimulator::Options options;
  std::string trace;
  std::string atMonitorStart;
  int delayMs = 0;
  int firstEvent = 0;
  int escapeDelayMs = 0;
  bool havePort = false;
  for (int i = 1; i < argc; ++i) {
    const bool hasValue = i + 1 < argc;
    if (std::strcmp(argv[i], "--help") == 0) return help(argv[0]);
    if (std::strcmp(argv[i], "--version") == 0) return version();
    if (std::strcmp(argv[i], "--port") == 0 && hasValue) {
      options.port = std::atoi(argv[++i]);
      havePort = true;
    } else if (std::strcmp(argv[i], "--trace") == 0 && hasValue) {
      trace = argv[++i];
    } else if (std::strcmp(argv[i], "--delay-ms") == 0 && hasValue) {
      delayMs = std::atoi(argv[++i]);
    } else if (std::strcmp(argv[i], "--first-event") == 0 && hasValue) {
      firstEvent = std::atoi(argv[++i]);
    } else if (std::strcmp(argv[i], "--at-monitor-start") == 0 && hasValue) {
      atMonitorStart = argv[++i];
    } else if (std::strcmp(argv[i], "--escape-delay-ms") == 0 && hasValue) {
      escapeDelayMs = std::atoi(argv[++i]);
    } else {
      return usage(argv[0]);
    }
  }
  if (!havePort || options.port < 0 || options.port > 65535 || delayMs < 0 || firstEvent < 0 || escapeDelayMs < 0)
    return usage(argv[0]);

  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  SwitchSimulator simulator(options);
  simulator.setAnswerDelay("Escape", escapeDelayMs);
  if (!atMonitorStart.empty()) {
    std::vector<std::string> events;
    std::string error;
    if (!SwitchSimulator::readTraceEvents(atMonitorStart, events, error)) {
      std::fprintf(stderr, "cstaswitchsim: %s\n", error.c_str());
      return 1;
    }
    simulator.setEventsAfterMonitorStart(std::move(events));
  }
  std::printf("cstaswitchsim: listening on 127.0.0.1:%d\n", simulator.port());
  std::fflush(stdout);

  std::size_t monitorsSeen = 0;
  while (!g_stop) {
    if (!simulator.waitForRequest("MonitorStart", 200, monitorsSeen + 1)) continue;
    ++monitorsSeen;
    const std::string id = simulator.currentMonitorId();
    std::printf("cstaswitchsim: monitor %s started\n", id.empty() ? "(refused)" : id.c_str());
    if (trace.empty() || id.empty()) continue;
    std::string error;
    const int sent = simulator.playTrace(trace, delayMs, error, static_cast<std::size_t>(firstEvent));
    if (sent < 0) {
      std::fprintf(stderr, "cstaswitchsim: trace not played: %s\n", error.c_str());
    } else {
      std::printf("cstaswitchsim: %d events sent\n", sent);
    }
    std::fflush(stdout);
  }
  return 0;
}
