// Modules the loader must refuse. Built twice: without fwPluginAbiVersion, and with
// REFUSED_PLUGIN_WRONG_VERSION defined, declaring a version other than the framework's.
#include "framework/Executable.h"
#include "framework/PluginLoader.h"

namespace {
class RefusedService : public Service {
 public:
  const char* type() const override { return "RefusedService"; }
};
}  // namespace

#ifdef REFUSED_PLUGIN_WRONG_VERSION
extern "C" __attribute__((visibility("default"))) int fwPluginAbiVersion() {
  return fw::kPluginAbiVersion + 1;
}
#endif

extern "C" __attribute__((visibility("default"))) Executable* createRefusedService() {
  return new RefusedService;
}
