#include <gtest/gtest.h>

#include <string>

#include "framework/Executable.h"
#include "framework/PluginLoader.h"

namespace {

TEST(PluginLoader, CreatesTheModulesServiceAndNamesAMissingSymbol) {
  std::string error;
  auto plugin = fw::Plugin::load(FW_TEST_PLUGIN_PATH, error);
  ASSERT_NE(plugin, nullptr) << error;
  Executable* service = plugin->create<Executable>("createTestPluginService", &error);
  ASSERT_NE(dynamic_cast<Threadable*>(service), nullptr) << error;
  EXPECT_STREQ(dynamic_cast<Threadable*>(service)->type(), "TestPluginService");
  delete service;  // before the plug-in is unloaded: its code runs the destructor
  EXPECT_EQ(plugin->create<Executable>("createNoSuchService", &error), nullptr);
  EXPECT_NE(error.find("createNoSuchService"), std::string::npos) << error;
}

TEST(PluginLoader, RefusesMissingFileAndModulesWithoutOrWithAnotherAbiVersion) {
  const std::string paths[] = {"/nonexistent/libnothing.so", FW_NO_VERSION_PLUGIN_PATH, FW_WRONG_VERSION_PLUGIN_PATH};
  const std::string reasons[] = {"cannot load module", "fwPluginAbiVersion",
                                 "version " + std::to_string(fw::kPluginAbiVersion + 1)};
  for (int i = 0; i < 3; ++i) {
    std::string error;
    EXPECT_EQ(fw::Plugin::load(paths[i], error), nullptr);
    EXPECT_NE(error.find(paths[i]), std::string::npos) << error;
    EXPECT_NE(error.find(reasons[i]), std::string::npos) << error;
  }
}

}  // namespace
