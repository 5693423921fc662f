// Loads a module (shared library) with dlopen(RTLD_NOW | RTLD_LOCAL) and resolves its exported,
// unmangled factory functions. A module declares the framework version it was built for by
// exporting `int fwPluginAbiVersion()`; a module without it, or built for another version, is
// refused with a message naming the file.
//
// The Plugin object owns the handle: objects made by the module's factories must be destroyed
// before the Plugin is. Not thread-safe; load at start-up.
#pragma once

#include <memory>
#include <string>

#pragma GCC visibility push(default)

namespace fw {

constexpr int kPluginAbiVersion = 1;

class Plugin {
 public:
  ~Plugin();
  Plugin(const Plugin&) = delete;
  Plugin& operator=(const Plugin&) = delete;

  // Loads `path`; on failure returns null and explains in `error`.
  static std::unique_ptr<Plugin> load(const std::string& path, std::string& error);

  // The address of the exported symbol `name`, or null (with `error` set when given).
  void* symbol(const std::string& name, std::string* error = nullptr) const;

  // Resolves a factory of the form `T* name()`; null when absent.
  template <class T>
  T* create(const std::string& name, std::string* error = nullptr) const {
    using Factory = T* (*)();
    auto factory = reinterpret_cast<Factory>(symbol(name, error));
    return factory ? factory() : nullptr;
  }

  const std::string& path() const { return m_path; }

 private:
  Plugin(void* handle, std::string path) : m_handle(handle), m_path(std::move(path)) {}
  void* m_handle;
  std::string m_path;
};

}  // namespace fw

#pragma GCC visibility pop
