#include "HostSettings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "SettingTable.h"
#include "framework/LocalMgmt.h"

namespace host {

namespace {

bool isRoot() { return geteuid() == 0; }

std::string homeDirectory() {
  const char* home = std::getenv("HOME");
  return home && *home ? home : "/tmp";
}

bool parseNumber(const std::string& text, int& value) {
  if (text.empty()) return false;
  char* end = nullptr;
  long v = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || v < INT_MIN || v > INT_MAX) return false;
  value = static_cast<int>(v);
  return true;
}

// The configured value of `key`, else its default from the table.
std::string inForce(const std::map<std::string, std::string>& values, const char* key) {
  auto it = values.find(key);
  if (it != values.end() && !it->second.empty()) return it->second;
  const SettingInfo* setting = findSetting(key);
  return setting ? defaultValue(*setting) : std::string();
}

}  // namespace

std::string defaultDatabase() {
  if (isRoot()) return "/var/lib/calljournal/journal.db";
  return homeDirectory() + "/.local/state/calljournal/journal.db";
}

std::string defaultClientSocket() {
  if (isRoot()) return "/run/calljournal/calljournal.sock";
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime) return std::string(runtime) + "/calljournal.sock";
  return sharedSocketFolder() + "/calljournal.sock";
}

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
  static const std::map<std::string, std::string> defaults = [] {
    std::map<std::string, std::string> values;
    std::size_t count = 0;
    const SettingInfo* table = settingTable(count);
    for (std::size_t i = 0; i < count; ++i)
      if (table[i].phoneValue) values[table[i].key] = defaultValue(table[i]);
    return values;
  }();
  return defaults;
}

// Every value is checked before any is used, so the settings come from values known to be good.
bool readSettings(const std::map<std::string, std::string>& values, Settings& s, std::string& error) {
  for (const auto& [key, value] : values)
    if (!checkSetting(key, value, error)) return false;
  s.database = inForce(values, "database");
  s.phonebook = inForce(values, "phonebook");
  s.monitoredDevice = inForce(values, "monitored-device");
  s.clientSocket = inForce(values, "client-socket");
  s.logLevels = inForce(values, "log-levels");
  s.logFile = inForce(values, "log-file");
  s.mobilityUrl = inForce(values, "mobility-url");
  s.module = inForce(values, "module");
  s.clientTcpAllowRemote = inForce(values, "client-tcp-allow-remote") == "true";
  s.clientWebAllowRemote = inForce(values, "client-web-allow-remote") == "true";
  s.clientWebRoot = inForce(values, "client-web-root");
  s.requestTimeoutMs = std::atoi(inForce(values, "csta-request-timeout-ms").c_str());
  s.clientMaxConnections = std::atoi(inForce(values, "client-max-connections").c_str());
  s.switchHost.clear();
  s.switchPort = 0;
  if (const std::string sw = inForce(values, "switch"); !sw.empty()) splitHostPort(sw, s.switchHost, s.switchPort);
  s.clientTcpHost.clear();
  s.clientTcpPort = -1;
  if (const std::string tcp = inForce(values, "client-tcp"); !tcp.empty())
    splitHostPort(tcp, s.clientTcpHost, s.clientTcpPort);
  s.clientWebHost.clear();
  s.clientWebPort = -1;
  if (const std::string web = inForce(values, "client-web"); !web.empty())
    splitHostPort(web, s.clientWebHost, s.clientWebPort);
  return true;
}

Settings defaultSettings() {
  Settings settings;
  std::string unused;
  readSettings({}, settings, unused);
  return settings;
}

std::string fileFolder(const std::string& path) {
  std::string folder = path.substr(0, path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
  if (path.rfind('/') == 0) folder = "/";
  if (!folder.empty() && folder.front() == '/') return folder;
  char cwd[PATH_MAX];
  const std::string here = getcwd(cwd, sizeof cwd) ? cwd : ".";
  const std::string joined = folder.empty() ? here : here + "/" + folder;
  // "/srv/work/../etc" reads as "/srv/etc" in the values shown and logged.
  char real[PATH_MAX];
  return realpath(joined.c_str(), real) ? std::string(real) : joined;
}

bool readConfiguration(const std::string& path, const std::map<std::string, std::string>& overrides,
                       std::map<std::string, std::string>& values, Settings& settings, std::string& error,
                       bool pathsFromFileFolder) {
  values.clear();
  if (!path.empty() && !FileLocalMgmt::readFile(path, values, error)) return false;
  if (pathsFromFileFolder && !path.empty()) {
    const std::string folder = fileFolder(path);
    for (auto& [key, value] : values)
      if (isPathSetting(key) && !value.empty() && value.front() != '/')
        value = (folder == "/" ? "" : folder) + "/" + value;
  }
  for (const auto& [key, value] : overrides) values[key] = value;  // --set stays over the file
  if (!readSettings(values, settings, error)) {
    if (!path.empty()) error = path + ": " + error;
    return false;
  }
  return true;
}

}  // namespace host
