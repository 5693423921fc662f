#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "framework/Executable.h"
#include "framework/Logging.h"
#include "framework/PluginLoader.h"

namespace {

// Collects the framework's log lines for the duration of a test.
class PluginLoader : public ::testing::Test {
 protected:
  void SetUp() override { m_previousSink = fw::setLogSink(log); }
  void TearDown() override { fw::setLogSink(m_previousSink); }

  std::shared_ptr<fw::MemorySink> log = std::make_shared<fw::MemorySink>();

 private:
  std::shared_ptr<fw::LogSink> m_previousSink;
};

TEST_F(PluginLoader, LoadsTheModuleAndCreatesItsService) {
  std::string error;
  auto plugin = fw::Plugin::load(FW_TEST_PLUGIN_PATH, error);
  ASSERT_NE(plugin, nullptr) << error;
  EXPECT_EQ(plugin->path(), FW_TEST_PLUGIN_PATH);
  EXPECT_TRUE(log->contains(FW_TEST_PLUGIN_PATH, fw::kLogNotable));

  std::string symbolError;
  Executable* service = plugin->create<Executable>("createTestPluginService", &symbolError);
  ASSERT_NE(service, nullptr) << symbolError;
  auto* threadable = dynamic_cast<Threadable*>(service);
  ASSERT_NE(threadable, nullptr);
  EXPECT_STREQ(threadable->type(), "TestPluginService");
  delete service;  // before the plug-in is unloaded: its code runs the destructor
}

TEST_F(PluginLoader, MissingFileIsReportedWithItsPath) {
  const std::string path = "/nonexistent/dir/libnothing.so";
  std::string error;
  EXPECT_EQ(fw::Plugin::load(path, error), nullptr);
  EXPECT_NE(error.find("cannot load module '" + path + "'"), std::string::npos) << error;
  EXPECT_TRUE(log->contains(path, fw::kLogError));
}

TEST_F(PluginLoader, MissingSymbolGivesNullAndNamesTheSymbol) {
  std::string error;
  auto plugin = fw::Plugin::load(FW_TEST_PLUGIN_PATH, error);
  ASSERT_NE(plugin, nullptr) << error;

  std::string symbolError;
  EXPECT_EQ(plugin->symbol("createNoSuchService", &symbolError), nullptr);
  EXPECT_NE(symbolError.find("createNoSuchService"), std::string::npos) << symbolError;
  EXPECT_NE(symbolError.find(FW_TEST_PLUGIN_PATH), std::string::npos) << symbolError;

  symbolError.clear();
  EXPECT_EQ(plugin->create<Executable>("createNoSuchService", &symbolError), nullptr);
  EXPECT_NE(symbolError.find("createNoSuchService"), std::string::npos) << symbolError;
  EXPECT_EQ(plugin->symbol("createNoSuchService"), nullptr);  // the error text is optional
}

TEST_F(PluginLoader, RefusesModuleWithoutAbiVersion) {
  std::string error;
  EXPECT_EQ(fw::Plugin::load(FW_NO_VERSION_PLUGIN_PATH, error), nullptr);
  EXPECT_NE(error.find(FW_NO_VERSION_PLUGIN_PATH), std::string::npos) << error;
  EXPECT_NE(error.find("fwPluginAbiVersion"), std::string::npos) << error;
  EXPECT_TRUE(log->contains(FW_NO_VERSION_PLUGIN_PATH, fw::kLogError));
}

TEST_F(PluginLoader, RefusesModuleBuiltForAnotherAbiVersion) {
  std::string error;
  EXPECT_EQ(fw::Plugin::load(FW_WRONG_VERSION_PLUGIN_PATH, error), nullptr);
  EXPECT_NE(error.find(FW_WRONG_VERSION_PLUGIN_PATH), std::string::npos) << error;
  const std::string frameworkVersion = "version " + std::to_string(fw::kPluginAbiVersion);
  const std::string moduleVersion = "version " + std::to_string(fw::kPluginAbiVersion + 1);
  EXPECT_NE(error.find(frameworkVersion), std::string::npos) << error;
  EXPECT_NE(error.find(moduleVersion), std::string::npos) << error;
  EXPECT_TRUE(log->contains(FW_WRONG_VERSION_PLUGIN_PATH, fw::kLogError));
}

TEST_F(PluginLoader, ModuleCanBeLoadedAgainAfterUnloading) {
  std::string error;
  auto first = fw::Plugin::load(FW_TEST_PLUGIN_PATH, error);
  ASSERT_NE(first, nullptr) << error;
  first.reset();
  auto second = fw::Plugin::load(FW_TEST_PLUGIN_PATH, error);
  ASSERT_NE(second, nullptr) << error;
  Executable* service = second->create<Executable>("createTestPluginService");
  ASSERT_NE(service, nullptr);
  delete service;
}

}  // namespace
