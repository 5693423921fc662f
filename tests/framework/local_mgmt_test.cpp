#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/LocalMgmt.h"
#include "framework/Logging.h"
#include "framework/ManageableData.h"

namespace {

// ---- Helpers ----

struct Delivery {
  std::string key;
  bool hasValue = false;
  std::string value;
  std::vector<std::string> rootIds;
  std::thread::id thread;
};

// Records every change notification it receives.
class RecordingAgent : public MgmtAgentIfc {
 public:
  bool setData(ManageableData&) override { return true; }
  bool getData(ManageableData&) override { return true; }
  void resetUserData() override {}
  void manageableDataChanged(ManageableData& data) override {
    Delivery d;
    d.rootIds = data.getRootIds();
    d.key = d.rootIds.empty() ? "" : d.rootIds.front();
    d.hasValue = data.interogate(d.key, d.value);
    d.thread = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(m_mutex);
    m_deliveries.push_back(d);
  }
  std::vector<Delivery> deliveries() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_deliveries;
  }
  // "key=value" per delivery, "key" alone for a vanished key.
  std::vector<std::string> changes() const {
    std::vector<std::string> result;
    for (const auto& d : deliveries()) result.push_back(d.hasValue ? d.key + "=" + d.value : d.key);
    return result;
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<Delivery> m_deliveries;
};

// A directory of its own under the temporary directory, removed with its files.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "local_mgmt_XXXXXX").string();
    if (!mkdtemp(&pattern[0])) throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    m_path = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  std::string write(const std::string& name, const std::string& content) const {
    std::string path = (m_path / name).string();
    std::ofstream(path, std::ios::trunc) << content;
    return path;
  }
  std::string path(const std::string& name) const { return (m_path / name).string(); }

 private:
  std::filesystem::path m_path;
};

std::map<std::string, std::string> parseOrFail(const std::string& text) {
  std::map<std::string, std::string> values;
  std::string error;
  EXPECT_TRUE(FileLocalMgmt::parse(text, "test.conf", values, error)) << error;
  return values;
}

std::string parseError(const std::string& text) {
  std::map<std::string, std::string> values;
  std::string error;
  EXPECT_FALSE(FileLocalMgmt::parse(text, "test.conf", values, error));
  return error;
}

// ---- Parsing ----

TEST(LocalMgmtParse, ReadsKeyValueLinesSkippingCommentsAndBlankLines) {
  auto values = parseOrFail(
      "# the phone's settings\n"
      "\n"
      "call-log-enabled = true\n"
      "   # an indented comment\n"
      "\tmax-entries=100  \n"
      "dial-prefix =  0 \r\n"
      "url = http://host/a=b\n"
      "last-line = no newline");
  std::map<std::string, std::string> expected = {{"call-log-enabled", "true"},
                                                 {"max-entries", "100"},
                                                 {"dial-prefix", "0"},
                                                 {"url", "http://host/a=b"},
                                                 {"last-line", "no newline"}};
  EXPECT_EQ(values, expected);
}

TEST(LocalMgmtParse, QuotedValuesKeepTheirBlanksAndMayBeEmpty) {
  auto values = parseOrFail(
      "greeting = \"  hello  world \"\n"
      "empty = \"\"\n"
      "bare =\n"
      "hash = \"# not a comment\"\n"
      "inner = say \"hi\"\n");
  EXPECT_EQ(values["greeting"], "  hello  world ");
  EXPECT_EQ(values["empty"], "");
  EXPECT_EQ(values["bare"], "");
  EXPECT_EQ(values["hash"], "# not a comment");
  EXPECT_EQ(values["inner"], "say \"hi\"");
  EXPECT_EQ(values.size(), 5u);
}

TEST(LocalMgmtParse, KeysAreCaseSensitive) {
  auto values = parseOrFail("Mode = a\nmode = b\n");
  EXPECT_EQ(values["Mode"], "a");
  EXPECT_EQ(values["mode"], "b");
}

TEST(LocalMgmtParse, EachFaultIsNamedWithFileAndLine) {
  EXPECT_EQ(parseError("a = 1\n\njust words\n"), "test.conf:3: expected 'key = value'");
  EXPECT_EQ(parseError("# comment\n = value\n"), "test.conf:2: expected 'key = value'");
  EXPECT_EQ(parseError("a = 1\nb = \"open\n"), "test.conf:2: unterminated quoted value");
  EXPECT_EQ(parseError("b = \"\n"), "test.conf:1: unterminated quoted value");
  EXPECT_EQ(parseError("a = 1\nb = 2\n\na = 3\n"), "test.conf:4: duplicate key 'a'");
  EXPECT_EQ(parseError("a = \"x\" y\n"), "test.conf:1: unexpected text after quoted value");
}

TEST(LocalMgmtParse, AFaultLeavesTheResultUntouched) {
  std::map<std::string, std::string> values = {{"kept", "yes"}};
  std::string error;
  EXPECT_FALSE(FileLocalMgmt::parse("a = 1\nbroken\n", "x", values, error));
  EXPECT_EQ(values, (std::map<std::string, std::string>{{"kept", "yes"}}));
}

// ---- Loading files ----

class LocalMgmtFile : public ::testing::Test {
 protected:
  TempDir dir;
  FileLocalMgmt mgmt;
  RecordingAgent agent;

  void TearDown() override { mgmt.forget(&agent); }

  void load(const std::string& path) {
    std::string error;
    ASSERT_TRUE(mgmt.loadFile(path, error)) << error;
  }
  void observe(std::initializer_list<const char*> keys) {
    for (const char* key : keys) ASSERT_TRUE(mgmt.observe(key, &agent));
  }
  std::vector<std::string> deliveredChanges() {
    mgmt.drainNotifications();
    return agent.changes();
  }
};

TEST_F(LocalMgmtFile, LoadsTheValuesOfTheFile) {
  load(dir.write("phone.conf", "a = 1\nb = \"two words\"\n"));
  EXPECT_EQ(mgmt.values(), (std::map<std::string, std::string>{{"a", "1"}, {"b", "two words"}}));
  std::string value;
  EXPECT_TRUE(mgmt.value("b", value));
  EXPECT_EQ(value, "two words");
  EXPECT_FALSE(mgmt.value("c", value));
}

TEST_F(LocalMgmtFile, AMissingFileIsNamedWithTheSystemsReason) {
  std::string path = dir.path("absent.conf");
  std::string error;
  EXPECT_FALSE(mgmt.loadFile(path, error));
  EXPECT_EQ(error, path + ": cannot open: " + std::strerror(ENOENT));
}

TEST_F(LocalMgmtFile, AFailedLoadKeepsTheEarlierValuesAndIsLogged) {
  auto sink = std::make_shared<fw::MemorySink>();
  auto previous = fw::setLogSink(sink);
  std::string path = dir.write("phone.conf", "a = 1\n");
  load(path);
  dir.write("phone.conf", "a = 2\nb = 3\nbroken line\n");
  std::string error;
  EXPECT_FALSE(mgmt.loadFile(path, error));
  EXPECT_EQ(error, path + ":3: expected 'key = value'");
  EXPECT_FALSE(mgmt.reload(error));
  EXPECT_EQ(mgmt.values(), (std::map<std::string, std::string>{{"a", "1"}}));
  EXPECT_TRUE(sink->contains(path + ":3: expected 'key = value'", fw::kLogError));
  fw::setLogSink(previous);
}

TEST_F(LocalMgmtFile, ReloadWithoutAFileFails) {
  std::string error;
  EXPECT_FALSE(mgmt.reload(error));
  EXPECT_FALSE(error.empty());
}

TEST_F(LocalMgmtFile, ReloadNotifiesChangedNewAndRemovedKeys) {
  std::string path = dir.write("phone.conf", "same = 1\nchanged = old\nremoved = x\n");
  load(path);
  observe({"same", "changed", "removed", "added"});
  dir.write("phone.conf", "same = 1\nchanged = new\nadded = \"\"\n");
  std::string error;
  ASSERT_TRUE(mgmt.reload(error)) << error;

  auto changes = deliveredChanges();
  std::sort(changes.begin(), changes.end());
  EXPECT_EQ(changes, (std::vector<std::string>{"added=", "changed=new", "removed"}));
  for (const auto& d : agent.deliveries()) EXPECT_EQ(d.rootIds, std::vector<std::string>{d.key});
  EXPECT_EQ(mgmt.values(), (std::map<std::string, std::string>{{"same", "1"}, {"changed", "new"}, {"added", ""}}));
}

// ---- Reading and publishing ----

class LocalMgmtData : public LocalMgmtFile {
 protected:
  void SetUp() override {
    mgmt.setValue("call-log-enabled", "true");
    mgmt.setValue("max-entries", "100");
  }
};

TEST_F(LocalMgmtData, ReadDataFillsOnlyKnownKeys) {
  ManageableData data;
  data.setRootId("unknown");
  data.setRootId("max-entries");
  EXPECT_TRUE(mgmt.readData(data));
  std::string value;
  EXPECT_TRUE(data.interogate("max-entries", value));
  EXPECT_EQ(value, "100");
  EXPECT_FALSE(data.hasValue("unknown"));
  EXPECT_EQ(data.getRootIds(), (std::vector<std::string>{"unknown", "max-entries"}));
}

TEST_F(LocalMgmtData, ReadDataReportsFalseWhenNoKeyIsKnown) {
  ManageableData data("unknown");
  EXPECT_FALSE(mgmt.readData(data));
  EXPECT_FALSE(data.hasValue("unknown"));
  ManageableData none;
  EXPECT_FALSE(mgmt.readData(none));
}

TEST_F(LocalMgmtData, PublishNotifiesObserversOfChangedKeysOnAnotherThread) {
  observe({"call-log-enabled", "max-entries"});
  RecordingAgent other;
  ASSERT_TRUE(mgmt.observe("unrelated", &other));

  ManageableData data;
  data.populate("call-log-enabled", "true");  // unchanged
  data.populate("max-entries", "50");
  data.populate("new-key", "x");
  data.setRootId("no-value");  // nothing to store
  EXPECT_TRUE(mgmt.publishData(data));

  EXPECT_EQ(deliveredChanges(), (std::vector<std::string>{"max-entries=50"}));
  EXPECT_NE(agent.deliveries().at(0).thread, std::this_thread::get_id());
  EXPECT_TRUE(other.deliveries().empty());
  std::string value;
  EXPECT_TRUE(mgmt.value("new-key", value));
  EXPECT_FALSE(mgmt.value("no-value", value));
  mgmt.forget(&other);
}

TEST_F(LocalMgmtData, PublishWithoutValuesStoresNothing) {
  ManageableData data("max-entries");
  EXPECT_FALSE(mgmt.publishData(data));
  std::string value;
  EXPECT_TRUE(mgmt.value("max-entries", value));
  EXPECT_EQ(value, "100");
}

TEST_F(LocalMgmtData, NotificationsArriveInTheOrderOfTheChanges) {
  observe({"max-entries", "call-log-enabled"});
  // call-log-enabled starts "true": the writes at 5 and 15 repeat the value held and are silent.
  const std::map<int, std::string> enabledWrites = {{5, "true"}, {10, "false"}, {15, "false"}, {20, "true"}};
  std::vector<std::string> expected;
  for (int i = 1; i <= 20; ++i) {
    mgmt.setValue("max-entries", std::to_string(i));
    expected.push_back("max-entries=" + std::to_string(i));
    auto write = enabledWrites.find(i);
    if (write == enabledWrites.end()) continue;
    mgmt.setValue("call-log-enabled", write->second);
    if (i == 10 || i == 20) expected.push_back("call-log-enabled=" + write->second);
  }
  EXPECT_EQ(deliveredChanges(), expected);
}

TEST_F(LocalMgmtData, AnUnchangedValueDoesNotNotify) {
  observe({"max-entries"});
  mgmt.setValue("max-entries", "100");
  ManageableData data;
  data.populate("max-entries", "100");
  mgmt.publishData(data);
  EXPECT_TRUE(deliveredChanges().empty());
}

TEST_F(LocalMgmtData, ObserveRefusesAnEmptyKeyOrNoAgentAndIgnoresARepeat) {
  EXPECT_FALSE(mgmt.observe("", &agent));
  EXPECT_FALSE(mgmt.observe("max-entries", nullptr));
  EXPECT_TRUE(mgmt.observe("max-entries", &agent));
  EXPECT_TRUE(mgmt.observe("max-entries", &agent));
  mgmt.setValue("max-entries", "7");
  EXPECT_EQ(deliveredChanges(), (std::vector<std::string>{"max-entries=7"}));
}

TEST_F(LocalMgmtData, EveryObserverOfAKeyIsNotified) {
  RecordingAgent second;
  observe({"max-entries"});
  ASSERT_TRUE(mgmt.observe("max-entries", &second));
  mgmt.setValue("max-entries", "1");
  EXPECT_EQ(deliveredChanges(), (std::vector<std::string>{"max-entries=1"}));
  EXPECT_EQ(second.changes(), (std::vector<std::string>{"max-entries=1"}));
  mgmt.forget(&second);
}

TEST_F(LocalMgmtData, AnObserverMayReadTheStoreFromItsNotification) {
  // The store's lock is not held while an agent runs: reading back from the callback must work.
  class ReadingAgent : public RecordingAgent {
   public:
    explicit ReadingAgent(FileLocalMgmt& mgmt) : m_mgmt(mgmt) {}
    void manageableDataChanged(ManageableData& data) override {
      ManageableData current("max-entries");
      m_mgmt.readData(current);
      RecordingAgent::manageableDataChanged(current);
      (void)data;
    }

   private:
    FileLocalMgmt& m_mgmt;
  } reader(mgmt);
  ASSERT_TRUE(mgmt.observe("max-entries", &reader));
  mgmt.setValue("max-entries", "5");
  mgmt.drainNotifications();
  EXPECT_EQ(reader.changes(), (std::vector<std::string>{"max-entries=5"}));
  mgmt.forget(&reader);
}

// ---- Forgetting agents and the agent registry ----

TEST_F(LocalMgmtData, ForgetStopsDeliveries) {
  observe({"max-entries"});
  ASSERT_TRUE(mgmt.registerAgent("JournalMgmtId", &agent, true));
  mgmt.setValue("max-entries", "1");
  EXPECT_EQ(deliveredChanges(), (std::vector<std::string>{"max-entries=1"}));
  mgmt.forget(&agent);
  EXPECT_EQ(mgmt.agent("JournalMgmtId"), nullptr);
  mgmt.setValue("max-entries", "2");
  EXPECT_EQ(deliveredChanges(), (std::vector<std::string>{"max-entries=1"}));
}

TEST_F(LocalMgmtData, DeliveriesQueuedForAForgottenAgentAreDropped) {
  // The first agent holds the notification thread until a change for the second is queued, then
  // forgets the second from the notification thread (where forget must not wait for itself).
  RecordingAgent forgotten;
  std::promise<void> queued;
  std::shared_future<void> queuedSignal = queued.get_future().share();
  class GatingAgent : public RecordingAgent {
   public:
    GatingAgent(FileLocalMgmt& mgmt, MgmtAgentIfc& victim, std::shared_future<void> gate)
        : m_mgmt(mgmt), m_victim(victim), m_gate(std::move(gate)) {}
    void manageableDataChanged(ManageableData& data) override {
      m_gate.wait();
      m_mgmt.forget(&m_victim);
      RecordingAgent::manageableDataChanged(data);
    }

   private:
    FileLocalMgmt& m_mgmt;
    MgmtAgentIfc& m_victim;
    std::shared_future<void> m_gate;
  } gating(mgmt, forgotten, queuedSignal);

  ASSERT_TRUE(mgmt.observe("call-log-enabled", &gating));
  ASSERT_TRUE(mgmt.observe("max-entries", &forgotten));
  mgmt.setValue("call-log-enabled", "false");
  mgmt.setValue("max-entries", "9");
  queued.set_value();
  mgmt.drainNotifications();

  EXPECT_EQ(gating.changes(), (std::vector<std::string>{"call-log-enabled=false"}));
  EXPECT_TRUE(forgotten.deliveries().empty());
  mgmt.forget(&gating);
}

TEST_F(LocalMgmtData, AgentsAreRegisteredReplacedAndUnregisteredById) {
  RecordingAgent second;
  EXPECT_EQ(mgmt.agent("JournalMgmtId"), nullptr);
  EXPECT_FALSE(mgmt.registerAgent("", &agent, true));
  EXPECT_FALSE(mgmt.registerAgent("JournalMgmtId", nullptr, true));
  EXPECT_TRUE(mgmt.registerAgent("JournalMgmtId", &agent, true));
  EXPECT_EQ(mgmt.agent("JournalMgmtId"), &agent);
  EXPECT_TRUE(mgmt.registerAgent("JournalMgmtId", &second, false));
  EXPECT_EQ(mgmt.agent("JournalMgmtId"), &second);
  EXPECT_TRUE(mgmt.registerAgent("OtherId", &agent, false));
  EXPECT_TRUE(mgmt.unregisterAgent("JournalMgmtId"));
  EXPECT_FALSE(mgmt.unregisterAgent("JournalMgmtId"));
  EXPECT_EQ(mgmt.agent("JournalMgmtId"), nullptr);
  EXPECT_EQ(mgmt.agent("OtherId"), &agent);
}

// ---- ManageableData ----

TEST(ManageableData, RootIdsKeepTheOrderOfFirstAddition) {
  ManageableData data("b");
  data.setRootId("a");
  data.setRootId("b");
  data.populate("c", "3");
  data.populate("a", "1");
  EXPECT_EQ(data.getRootIds(), (std::vector<std::string>{"b", "a", "c"}));
}

TEST(ManageableData, InterogateReportsOnlyValuesThatWereSet) {
  ManageableData data("a");
  std::string value = "untouched";
  EXPECT_FALSE(data.interogate("a", value));
  EXPECT_FALSE(data.hasValue("a"));
  EXPECT_EQ(value, "untouched");
  data.populate("a", "");
  EXPECT_TRUE(data.interogate("a", value));
  EXPECT_EQ(value, "");
  data.populate("a", "2");
  EXPECT_TRUE(data.interogate("a", value));
  EXPECT_EQ(value, "2");
  EXPECT_FALSE(data.interogate("b", value));
}

TEST(ManageableData, KeepsRejectReasons) {
  ManageableData data;
  EXPECT_EQ(data.rejectCode(), 0);
  EXPECT_TRUE(data.getRejectReasons().empty());
  data.addRejectReason("max-entries", "value", "out of range");
  data.addRejectReason("call-log-enabled", "", "read only");
  ASSERT_EQ(data.getRejectReasons().size(), 2u);
  EXPECT_EQ(data.getRejectReasons()[0].key, "max-entries");
  EXPECT_EQ(data.getRejectReasons()[0].field, "value");
  EXPECT_EQ(data.getRejectReasons()[0].reason, "out of range");
  EXPECT_EQ(data.getRejectReasons()[1].key, "call-log-enabled");
  data.setRejectReason(kRejectValueNotChanged, "not changed");
  EXPECT_EQ(data.rejectCode(), 10);
  EXPECT_EQ(data.rejectText(), "not changed");
}

TEST(ManageableData, SetRejectReasonPrefixesTheCode) {
  std::string reason = "earlier";
  setRejectReason(kRejectValueNotChanged, reason, "%s value is not changed", "call-log-enabled");
  EXPECT_EQ(reason, "10: call-log-enabled value is not changed");
  setRejectReason(kRejectDataInvalid, reason, "%d is not in %d..%d", 500, 1, 100);
  EXPECT_EQ(reason, "4: 500 is not in 1..100");
  std::string longText(1000, 'x');
  setRejectReason(4, reason, "%s", longText.c_str());
  EXPECT_EQ(reason, "4: " + longText);
}

TEST(ClientUtils, StobAcceptsTheTrueWordsInAnyCase) {
  for (const char* text : {"true", "TRUE", "True", "1", "yes", "YeS", "on", "ON"})
    EXPECT_TRUE(ClientUtils::stob(text)) << text;
  for (const char* text : {"false", "0", "no", "off", "", "2", " true", "truee", "y", "enabled"})
    EXPECT_FALSE(ClientUtils::stob(text)) << text;
}

}  // namespace
