#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "framework/LocalMgmt.h"
#include "framework/ManageableData.h"

namespace {

using Values = std::map<std::string, std::string>;
using Changes = std::vector<std::string>;

// Records each notification as "key=value", or "key" alone for a vanished key, marking any that
// arrives on the thread that made the change instead of the store's own. `changes` is read only
// after draining the notifications, which orders the read after every delivery.
struct RecordingAgent : MgmtAgentIfc {
  void manageableDataChanged(ManageableData& data) override {
    const std::vector<std::string> ids = data.getRootIds();
    std::string value, change = ids.size() == 1 ? ids[0] : "root ids: " + std::to_string(ids.size());
    if (ids.size() == 1 && data.interogate(ids[0], value)) change += "=" + value;
    if (std::this_thread::get_id() == creator) change += " (on the caller's thread)";
    changes.push_back(change);
  }
  const std::thread::id creator = std::this_thread::get_id();
  Changes changes;
};

TEST(LocalMgmtParse, ReadsCommentsQuotesBlanksAndEmptyValuesAndNamesEachFaultWithFileAndLine) {
  Values values;
  std::string error;
  const std::string text =
      "# settings\n\n   # indented comment\n\tmax-entries=100  \ndial-prefix =  0 \r\n"
      "url = http://host/a=b\ngreeting = \"  hello  world \"\nempty = \"\"\nbare =\n"
      "hash = \"# not a comment\"\ninner = say \"hi\"\nMode = a\nmode = b\nlast = x";
  ASSERT_TRUE(FileLocalMgmt::parse(text, "test.conf", values, error)) << error;
  EXPECT_EQ(values, (Values{{"max-entries", "100"},
                            {"dial-prefix", "0"},
                            {"url", "http://host/a=b"},
                            {"greeting", "  hello  world "},
                            {"empty", ""},
                            {"bare", ""},
                            {"hash", "# not a comment"},
                            {"inner", "say \"hi\""},
                            {"Mode", "a"},
                            {"mode", "b"},
                            {"last", "x"}}));
  const std::pair<const char*, const char*> faults[] = {
      // each leaves the result untouched
      {"a = 1\n\njust words\n", "test.conf:3: expected 'key = value'"},
      {"a = 1\nb = \"open\n", "test.conf:2: unterminated quoted value"},
      {"a = 1\nb = 2\n\na = 3\n", "test.conf:4: duplicate key 'a'"},
      {"a = \"x\" y\n", "test.conf:1: unexpected text after quoted value"}};
  for (const auto& [bad, expected] : faults) {
    values = {{"kept", "yes"}};
    EXPECT_FALSE(FileLocalMgmt::parse(bad, "test.conf", values, error)) << bad;
    EXPECT_EQ(values, Values({{"kept", "yes"}})) << bad;
    EXPECT_EQ(error, expected);
  }
}

class LocalMgmt : public ::testing::Test {
 protected:
  void TearDown() override {
    mgmt.forget(&agent);
    std::remove(path.c_str());
  }
  std::string write(const std::string& content) {
    std::ofstream(path, std::ios::trunc) << content;
    return path;
  }
  Changes delivered() {
    mgmt.drainNotifications();
    return agent.changes;
  }

  const std::string path = ::testing::TempDir() + "local_mgmt_" + std::to_string(getpid()) + ".conf";
  FileLocalMgmt mgmt;
  RecordingAgent agent;
};

TEST_F(LocalMgmt, ReloadNotifiesChangedNewAndRemovedKeysUntilForgottenAndAFailedLoadChangesNothing) {
  std::string error;
  EXPECT_FALSE(mgmt.loadFile(path + ".absent", error));
  EXPECT_EQ(error, path + ".absent: cannot open: " + std::strerror(ENOENT));
  ASSERT_TRUE(mgmt.loadFile(write("same = 1\nchanged = old\nremoved = x\n"), error)) << error;
  for (const char* key : {"same", "changed", "removed", "added"}) ASSERT_TRUE(mgmt.observe(key, &agent));
  write("same = 2\nchanged = 3\nbroken line\n");
  EXPECT_FALSE(mgmt.reload(error));
  EXPECT_EQ(error, path + ":3: expected 'key = value'");
  EXPECT_EQ(mgmt.values(), (Values{{"same", "1"}, {"changed", "old"}, {"removed", "x"}}));
  write("same = 1\nchanged = new\nadded = \"\"\n");
  ASSERT_TRUE(mgmt.reload(error)) << error;
  Changes changes = delivered();
  std::sort(changes.begin(), changes.end());
  EXPECT_EQ(changes, (Changes{"added=", "changed=new", "removed"}));
  EXPECT_EQ(mgmt.values(), (Values{{"same", "1"}, {"changed", "new"}, {"added", ""}}));
  mgmt.forget(&agent);
  write("same = 2\n");
  ASSERT_TRUE(mgmt.reload(error)) << error;
  EXPECT_EQ(delivered().size(), 3u);
}

TEST_F(LocalMgmt, PublishNotifiesObserversOfChangedKeysOnlyOnAnotherThreadInOrderAndReadDataSeesThem) {
  mgmt.setValue("enabled", "true");
  ASSERT_TRUE(mgmt.observe("enabled", &agent));
  ASSERT_TRUE(mgmt.observe("max-entries", &agent));
  Changes expected;
  for (int i = 1; i <= 20; ++i) {
    ManageableData data;
    data.populate("enabled", i >= 10 && i < 15 ? "false" : "true");  // changes at 10 and 15 only
    data.populate("max-entries", std::to_string(i));
    EXPECT_TRUE(mgmt.publishData(data));
    if (i == 10 || i == 15) expected.push_back(i == 10 ? "enabled=false" : "enabled=true");
    expected.push_back("max-entries=" + std::to_string(i));
  }
  EXPECT_EQ(delivered(), expected);

  ManageableData read("unknown");
  EXPECT_FALSE(mgmt.readData(read));
  read.setRootId("max-entries");
  std::string value;
  ASSERT_TRUE(mgmt.readData(read));
  EXPECT_TRUE(read.interogate("max-entries", value));
  EXPECT_EQ(value, "20");
  EXPECT_FALSE(read.hasValue("unknown"));
}

TEST_F(LocalMgmt, ADefaultIsReadWhileNothingIsConfiguredAndObserversHearOfTheValueInForce) {
  mgmt.setDefault("software-type", "Velmora KPX");
  ASSERT_TRUE(mgmt.observe("software-type", &agent));
  std::string value;
  EXPECT_FALSE(mgmt.value("software-type", value));  // nothing configured
  ManageableData read("software-type");
  ASSERT_TRUE(mgmt.readData(read));
  ASSERT_TRUE(read.interogate("software-type", value));
  EXPECT_EQ("Velmora KPX", value);

  mgmt.replaceValues({{"software-type", "Velmora KPX"}});  // the value in force stays
  mgmt.replaceValues({{"software-type", "Velmora SIP"}});
  mgmt.replaceValues({});  // back to the default
  EXPECT_EQ((Changes{"software-type=Velmora SIP", "software-type=Velmora KPX"}), delivered());
  EXPECT_EQ(Values{}, mgmt.values());
}

}  // namespace
