#include "CurlLibrary.h"

#include <dlfcn.h>

#include <mutex>

namespace {

constexpr const char* kLibraryName = "libcurl.so.4";

// Sets `function` to the symbol `name` of `handle`; false when it is not there.
template <class Function>
bool lookUp(void* handle, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(handle, name));
  return function != nullptr;
}

bool lookUpAll(void* handle, CurlLibrary& curl, std::string& missing) {
  const auto check = [&](bool found, const char* name) {
    if (!found && missing.empty()) missing = name;
    return found;
  };
  bool ok = check(lookUp(handle, "curl_global_init", curl.global_init), "curl_global_init");
  ok = check(lookUp(handle, "curl_easy_init", curl.easy_init), "curl_easy_init") && ok;
  ok = check(lookUp(handle, "curl_easy_setopt", curl.easy_setopt), "curl_easy_setopt") && ok;
  ok = check(lookUp(handle, "curl_easy_perform", curl.easy_perform), "curl_easy_perform") && ok;
  ok = check(lookUp(handle, "curl_easy_getinfo", curl.easy_getinfo), "curl_easy_getinfo") && ok;
  ok = check(lookUp(handle, "curl_easy_cleanup", curl.easy_cleanup), "curl_easy_cleanup") && ok;
  ok = check(lookUp(handle, "curl_easy_strerror", curl.easy_strerror), "curl_easy_strerror") && ok;
  ok = check(lookUp(handle, "curl_slist_append", curl.slist_append), "curl_slist_append") && ok;
  ok = check(lookUp(handle, "curl_slist_free_all", curl.slist_free_all), "curl_slist_free_all") && ok;
  return ok;
}

// The one load of the process and its outcome.
struct Loaded {
  CurlLibrary library;
  bool ok = false;
  std::string error;
};

Loaded loadOnce() {
  Loaded loaded;
  void* handle = ::dlopen(kLibraryName, RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* why = ::dlerror();
    loaded.error = std::string("libcurl is not installed (") + (why ? why : kLibraryName) + ")";
    return loaded;
  }
  std::string missing;
  if (!lookUpAll(handle, loaded.library, missing)) {
    loaded.error = std::string(kLibraryName) + " has no function " + missing;
    return loaded;
  }
  if (loaded.library.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    loaded.error = "libcurl could not be initialised";
    return loaded;
  }
  loaded.ok = true;
  return loaded;
}

}  // namespace

const CurlLibrary* CurlLibrary::load(std::string& error) {
  static std::once_flag once;
  static Loaded loaded;
  std::call_once(once, [] { loaded = loadOnce(); });
  if (!loaded.ok) {
    error = loaded.error;
    return nullptr;
  }
  return &loaded.library;
}
