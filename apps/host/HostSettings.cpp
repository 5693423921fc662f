#include "HostSettings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace host {

namespace {

const char* const kKeys[] = {"database",
                             "phonebook",
                             "feature-access-codes",
                             "switch",
                             "monitored-device",
                             "csta-request-timeout-ms",
                             "client-socket",
                             "client-tcp",
                             "client-tcp-allow-remote",
                             "client-max-connections",
                             "log-levels",
                             "log-file",
                             "mobility-url",
                             "module",
                             nullptr};

bool isRoot() { return geteuid() == 0; }

std::string homeDirectory() {
  const char* home = std::getenv("HOME");
  return home && *home ? home : "/tmp";
}

std::string defaultDatabase() {
  if (isRoot()) return "/var/lib/calljournal/journal.db";
  return homeDirectory() + "/.local/state/calljournal/journal.db";
}

std::string defaultSocket() {
  if (isRoot()) return "/run/calljournal/calljournal.sock";
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime) return std::string(runtime) + "/calljournal.sock";
  return sharedSocketFolder() + "/calljournal.sock";
}

bool parseNumber(const std::string& text, int& value) {
  if (text.empty()) return false;
  char* end = nullptr;
  long v = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || v < INT_MIN || v > INT_MAX) return false;
  value = static_cast<int>(v);
  return true;
}

bool isOneOf(const std::string& value, std::initializer_list<const char*> allowed) {
  for (const char* a : allowed)
    if (value == a) return true;
  return false;
}

std::string valueOf(const std::map<std::string, std::string>& values, const char* key, std::string fallback) {
  auto it = values.find(key);
  return it == values.end() || it->second.empty() ? fallback : it->second;
}

}  // namespace

const char* const* settingKeys() { return kKeys; }

std::string sharedSocketFolder() { return "/tmp/calljournal-" + std::to_string(geteuid()); }

bool checkPrivateFolder(const std::string& folder, std::string& error) {
  struct stat info {};
  if (lstat(folder.c_str(), &info) != 0) {
    error = "cannot use the socket folder " + folder + ": " + std::strerror(errno);
    return false;
  }
  const std::string advice = "; set XDG_RUNTIME_DIR or client-socket to use another folder";
  if (!S_ISDIR(info.st_mode)) {
    error = "the socket folder " + folder + " is not a directory" + advice;
    return false;
  }
  if (info.st_uid != geteuid()) {
    error = "the socket folder " + folder + " belongs to user " + std::to_string(info.st_uid) + ", not to user " +
            std::to_string(geteuid()) + " who runs the daemon" + advice;
    return false;
  }
  if ((info.st_mode & 077) != 0) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(info.st_mode & 07777));
    error = "the socket folder " + folder + " is open to other users (mode " + mode +
            "); make it owner-only (chmod 700 " + folder + ")" + advice;
    return false;
  }
  return true;
}

bool isSettingKey(const std::string& key) {
  for (const char* const* k = kKeys; *k; ++k)
    if (key == *k) return true;
  return false;
}

bool splitHostPort(const std::string& text, std::string& host, int& port) {
  auto colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) return false;
  if (!parseNumber(text.substr(colon + 1), port) || port < 0 || port > 65535) return false;
  host = text.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  return true;
}

std::string programDirectory() {
  char path[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return ".";
  path[n] = '\0';
  std::string full(path);
  auto slash = full.rfind('/');
  return slash == std::string::npos ? "." : full.substr(0, slash);
}

const std::map<std::string, std::string>& phoneDefaults() {
  // Without a software type the journal is a KPX phone in every respect.
  static const std::map<std::string, std::string> defaults = {{"software-type", "Velmora KPX"}};
  return defaults;
}

bool checkPhoneValue(const std::string& key, const std::string& value, std::string& error) {
  if (value.empty()) return true;  // as good as not given
  int number = 0;
  if (isOneOf(key, {"system-identifier", "sntp-tz-offset", "daylight-save-minutes"}) && !parseNumber(value, number)) {
    error = key + ": \"" + value + "\" is not a whole number";
    return false;
  }
  if (isOneOf(key, {"daylight-save", "server-based-features"}) && !isOneOf(value, {"true", "false"})) {
    error = key + ": \"" + value + "\" is neither true nor false";
    return false;
  }
  if (key == "disable-access-calllog" && !isOneOf(value, {"0", "1", "2"})) {
    error = key + ": \"" + value + "\" is not 0, 1 or 2";
    return false;
  }
  return true;
}

bool readSettings(const std::map<std::string, std::string>& values, Settings& s, std::string& error) {
  for (const auto& [key, value] : values)
    if (!checkPhoneValue(key, value, error)) return false;
  s.database = valueOf(values, "database", defaultDatabase());
  s.phonebook = valueOf(values, "phonebook", "");
  s.monitoredDevice = valueOf(values, "monitored-device", "3100");
  s.clientSocket = valueOf(values, "client-socket", defaultSocket());
  s.logLevels = valueOf(values, "log-levels", "*=4");
  s.logFile = valueOf(values, "log-file", "");
  s.mobilityUrl = valueOf(values, "mobility-url", "");
  s.module = valueOf(values, "module", programDirectory() + "/../lib/libjournalservice.so");
  s.clientTcpAllowRemote = valueOf(values, "client-tcp-allow-remote", "false") == "true";

  std::string sw = valueOf(values, "switch", "");
  s.switchHost.clear();
  s.switchPort = 0;
  if (!sw.empty() && (!splitHostPort(sw, s.switchHost, s.switchPort) || s.switchPort == 0)) {
    error = "switch: \"" + sw + "\" is not host:port (for example 192.0.2.10:1040)";
    return false;
  }
  std::string tcp = valueOf(values, "client-tcp", "");
  s.clientTcpHost.clear();
  s.clientTcpPort = -1;
  if (!tcp.empty() && !splitHostPort(tcp, s.clientTcpHost, s.clientTcpPort)) {
    error = "client-tcp: \"" + tcp + "\" is not host:port (for example 127.0.0.1:7070)";
    return false;
  }
  std::string timeout = valueOf(values, "csta-request-timeout-ms", "5000");
  if (!parseNumber(timeout, s.requestTimeoutMs) || s.requestTimeoutMs <= 0) {
    error = "csta-request-timeout-ms: \"" + timeout + "\" is not a positive number of milliseconds";
    return false;
  }
  std::string connections = valueOf(values, "client-max-connections", "64");
  if (!parseNumber(connections, s.clientMaxConnections) || s.clientMaxConnections <= 0) {
    error = "client-max-connections: \"" + connections + "\" is not a positive number of clients";
    return false;
  }
  return true;
}

}  // namespace host
