// A management request or notification: a set of keys ("root ids"), a value per key that has
// one, and the reasons why a write of a key was refused.
//
// A reader sets the keys it wants (setRootId) and has the data filled (populate); a writer sets
// keys and values; a refusal is recorded with addRejectReason. Plain value type, not thread-safe.
#pragma once

#include <map>
#include <string>
#include <vector>

#pragma GCC visibility push(default)

class ManageableData {
 public:
  struct RejectReason {
    std::string key;
    std::string field;
    std::string reason;
  };

  ManageableData() = default;
  explicit ManageableData(const std::string& rootId) { setRootId(rootId); }

  // Adds `key` to the keys of the data (once; order of first addition is kept).
  void setRootId(const std::string& key);
  std::vector<std::string> getRootIds() const { return m_rootIds; }

  // The value of `key`: false when the data holds no value for it.
  bool interogate(const std::string& key, std::string& value) const;
  bool hasValue(const std::string& key) const;
  // Sets the value of `key` (and makes it a root id).
  void populate(const std::string& key, const std::string& value);

  void addRejectReason(const std::string& key, const std::string& field, const std::string& reason);
  const std::vector<RejectReason>& getRejectReasons() const { return m_rejects; }

  // A code and text for the whole request (framework reject-reason list: 4 data invalid,
  // 10 value not changed, ...).
  void setRejectReason(int code, const std::string& text);
  int rejectCode() const { return m_rejectCode; }
  const std::string& rejectText() const { return m_rejectText; }

 private:
  std::vector<std::string> m_rootIds;
  std::map<std::string, std::string> m_values;
  std::vector<RejectReason> m_rejects;
  int m_rejectCode = 0;
  std::string m_rejectText;
};

// Framework reject-reason codes used by the modules.
enum RejectCode { kRejectDataInvalid = 4, kRejectValueNotChanged = 10 };

// Formats a reject reason for `code` into `reason`: the printf-formatted text, prefixed by the
// code ("10: call-log-enabled value is not changed").
void setRejectReason(int code, std::string& reason, const char* format, ...) __attribute__((format(printf, 3, 4)));

namespace ClientUtils {
// "true", "1", "yes", "on" (any case) are true; everything else is false.
bool stob(const std::string& value);
}  // namespace ClientUtils

#pragma GCC visibility pop
