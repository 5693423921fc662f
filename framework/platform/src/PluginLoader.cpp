#include "framework/PluginLoader.h"

#include <dlfcn.h>

#include "framework/Logging.h"

namespace fw {
namespace {

const char* const kLogHandle = "Framework";
const char* const kAbiVersionSymbol = "fwPluginAbiVersion";

std::string lastDlError() {
  const char* text = dlerror();
  return text ? text : "unknown error";
}

void logLoadFailure(const std::string& error) {
  logAppUni(kLogHandle, __FILE__, kLogError, __LINE__, "%s", error.c_str());
}

// Empty when the module declares the framework's ABI version, otherwise the reason to refuse it.
std::string checkAbiVersion(void* handle, const std::string& path) {
  dlerror();
  using VersionFunction = int (*)();
  auto version = reinterpret_cast<VersionFunction>(dlsym(handle, kAbiVersionSymbol));
  if (!version) {
    return "module '" + path + "' does not export '" + kAbiVersionSymbol + "': " + lastDlError();
  }
  int moduleVersion = version();
  if (moduleVersion != kPluginAbiVersion) {
    return "module '" + path + "' was built for plug-in ABI version " + std::to_string(moduleVersion) +
           ", this framework has version " + std::to_string(kPluginAbiVersion);
  }
  return "";
}

}  // namespace

Plugin::~Plugin() {
  if (m_handle) dlclose(m_handle);
}

std::unique_ptr<Plugin> Plugin::load(const std::string& path, std::string& error) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    error = "cannot load module '" + path + "': " + lastDlError();
    logLoadFailure(error);
    return nullptr;
  }
  std::string refusal = checkAbiVersion(handle, path);
  if (!refusal.empty()) {
    dlclose(handle);
    error = refusal;
    logLoadFailure(error);
    return nullptr;
  }
  logAppUni(kLogHandle, __FILE__, kLogNotable, __LINE__, "loaded module '%s'", path.c_str());
  return std::unique_ptr<Plugin>(new Plugin(handle, path));
}

void* Plugin::symbol(const std::string& name, std::string* error) const {
  dlerror();
  void* address = dlsym(m_handle, name.c_str());
  if (!address && error) {
    *error = "symbol '" + name + "' not found in module '" + m_path + "': " + lastDlError();
  }
  return address;
}

}  // namespace fw
