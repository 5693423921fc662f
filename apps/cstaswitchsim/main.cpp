// cstaswitchsim --version
// cstaswitchsim --port N [--trace FILE] [--delay-ms N | --pace X [--max-gap S]] [--first-event N]
//               [--at-monitor-start FILE] [--escape-delay-ms N]
//
// A scripted switch on 127.0.0.1 for trying the journal's CSTA link by hand: it serves one phone at
// a time, answers its requests and, each time the phone's monitor has started, plays the trace's
// events to it (waiting --delay-ms between events, or at the pace of the events' times, --pace
// times faster), from event number --first-event on (counted from 0: the rest of a day after a
// stop). --at-monitor-start names a trace whose events are sent
// in the same write as every MonitorStart answer. --escape-delay-ms answers each Escape request
// (the phone's reports to the switch's call log) that much later, as a slow switch does. Runs
// until interrupted.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "SwitchSimulator.h"

namespace {

std::atomic<bool> g_stop{false};

void onSignal(int) { g_stop = true; }

constexpr const char* kUsage =
    "usage: %s --port N [--trace FILE] [--delay-ms N | --pace X [--max-gap S]] [--first-event N]\n"
    "          [--at-monitor-start FILE] [--escape-delay-ms N]\n";

constexpr const char* kOptions =
    "A scripted switch on 127.0.0.1: serves one phone at a time, answers its requests and plays a trace\n"
    "each time the phone's monitor has started. Runs until interrupted.\n"
    "  --port N                 the port to listen on (0: any free one, printed)\n"
    "  --trace FILE             the trace whose events are played\n"
    "  --delay-ms N             pause between the trace's events (default 0)\n"
    "  --pace X                 play the trace at the pace of its events' times, X times faster (1: as it\n"
    "                           happened, 60: a minute in a second). The phone times calls by its own clock,\n"
    "                           so a call of 3 minutes lasts 3 min / X at the phone and in its lists\n"
    "  --max-gap S              with --pace: a pause of more than S seconds of the trace between two events\n"
    "                           is cut to S, so that idle hours do not hold up the calls (default: none)\n"
    "  --first-event N          play from event number N on, counted from 0 (default 0)\n"
    "  --at-monitor-start FILE  events sent in the same write as every MonitorStart answer\n"
    "  --escape-delay-ms N      answer each Escape request (a report to the switch's call log) N ms\n"
    "                           late, as a slow switch does (default 0: at once)\n"
    "  --version                print the version and exit\n";

// One line naming what is wrong with the command line; exit code 2.
int usageError(const std::string& message) {
  std::fprintf(stderr, "cstaswitchsim: %s; see cstaswitchsim --help\n", message.c_str());
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

// A whole decimal number from `low` to `high`; false for anything else.
bool readInt(const char* text, int low, int high, int& value) {
  char* end = nullptr;
  errno = 0;
  const long n = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || n < low || n > high) return false;
  value = static_cast<int>(n);
  return true;
}

// What the command line asks for.
struct Settings {
  SwitchSimulator::Options options;
  std::string trace, atMonitorStart;
  int delayMs = 0, firstEvent = 0, escapeDelayMs = 0;
  double pace = 0;        // 0: not paced by the trace's times
  int maxGapSeconds = 0;  // 0: pauses of the trace kept whole
};

// Reads argv into `settings`; -1 to run, otherwise the exit code.
int readCommandLine(int argc, char** argv, Settings& settings) {
  bool havePort = false;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help" || option == "-h") return help(argv[0]);
    if (option == "--version") return version();
    const bool known = option == "--port" || option == "--trace" || option == "--delay-ms" || option == "--pace" ||
                       option == "--max-gap" || option == "--first-event" || option == "--at-monitor-start" ||
                       option == "--escape-delay-ms";
    if (!known) return usageError("unknown option \"" + option + "\"");
    if (i + 1 >= argc) return usageError(option + " needs a value");
    const char* value = argv[++i];
    bool ok = true;
    if (option == "--port") {
      ok = readInt(value, 0, 65535, settings.options.port), havePort = true;
    } else if (option == "--trace") {
      settings.trace = value;
    } else if (option == "--delay-ms") {
      ok = readInt(value, 0, 3600000, settings.delayMs);
    } else if (option == "--pace") {
      char* end = nullptr;
      settings.pace = std::strtod(value, &end);
      ok = end != value && *end == '\0' && settings.pace > 0 && settings.pace <= 1e6;
    } else if (option == "--max-gap") {
      ok = readInt(value, 1, 86400 * 366, settings.maxGapSeconds);
    } else if (option == "--first-event") {
      ok = readInt(value, 0, 1 << 30, settings.firstEvent);
    } else if (option == "--at-monitor-start") {
      settings.atMonitorStart = value;
    } else {
      ok = readInt(value, 0, 3600000, settings.escapeDelayMs);
    }
    if (!ok) return usageError(option + " \"" + value + "\" is not a number it takes");
  }
  if (!havePort) return usageError("--port N is needed (0: any free port)");
  if (settings.pace > 0 && settings.delayMs > 0) return usageError("give --delay-ms or --pace, not both");
  if (settings.maxGapSeconds > 0 && settings.pace == 0) return usageError("--max-gap needs --pace");
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  if (int code = readCommandLine(argc, argv, settings); code >= 0) return code;
  SwitchSimulator::Options& options = settings.options;
  const std::string& trace = settings.trace;
  const std::string& atMonitorStart = settings.atMonitorStart;

  std::signal(SIGINT, onSignal);
  std::signal(SIGTERM, onSignal);
  // A port someone else holds is a plain line and exit code 1, not an abort.
  std::unique_ptr<SwitchSimulator> listening;
  try {
    listening = std::make_unique<SwitchSimulator>(options);
  } catch (const std::system_error& e) {
    std::fprintf(stderr, "cstaswitchsim: cannot listen on 127.0.0.1:%d: %s\n", options.port,
                 e.code().message().c_str());
    return 1;
  }
  SwitchSimulator& simulator = *listening;
  simulator.setAnswerDelay("Escape", settings.escapeDelayMs);
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
    const auto first = static_cast<std::size_t>(settings.firstEvent);
    const int sent = settings.pace > 0 ? simulator.playTraceAtPace(trace, settings.pace, error, first, &g_stop,
                                                                   settings.maxGapSeconds)
                                       : simulator.playTrace(trace, settings.delayMs, error, first);
    if (sent < 0) {
      std::fprintf(stderr, "cstaswitchsim: trace not played: %s\n", error.c_str());
    } else {
      std::printf("cstaswitchsim: %d events sent\n", sent);
    }
    std::fflush(stdout);
  }
  return 0;
}
