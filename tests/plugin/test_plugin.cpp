// A tiny module for the plug-in loader tests: exports the ABI version and one factory.
#include "framework/Executable.h"
#include "framework/PluginLoader.h"

namespace {
class TestPluginService : public Service {
 public:
  const char* type() const override { return "TestPluginService"; }
};
}  // namespace

extern "C" __attribute__((visibility("default"))) int fwPluginAbiVersion() { return fw::kPluginAbiVersion; }
extern "C" __attribute__((visibility("default"))) Executable* createTestPluginService() {
  return new TestPluginService;
}
