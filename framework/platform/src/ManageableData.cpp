#include "framework/ManageableData.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>

void ManageableData::setRootId(const std::string& key) {
  if (std::find(m_rootIds.begin(), m_rootIds.end(), key) == m_rootIds.end()) m_rootIds.push_back(key);
}

bool ManageableData::interogate(const std::string& key, std::string& value) const {
  auto it = m_values.find(key);
  if (it == m_values.end()) return false;
  value = it->second;
  return true;
}

bool ManageableData::hasValue(const std::string& key) const { return m_values.count(key) != 0; }

void ManageableData::populate(const std::string& key, const std::string& value) {
  setRootId(key);
  m_values[key] = value;
}

void ManageableData::addRejectReason(const std::string& key, const std::string& field, const std::string& reason) {
  m_rejects.push_back(RejectReason{key, field, reason});
}

void ManageableData::setRejectReason(int code, const std::string& text) {
  m_rejectCode = code;
  m_rejectText = text;
}

void setRejectReason(int code, std::string& reason, const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list measureArgs;
  va_copy(measureArgs, args);
  int length = std::vsnprintf(nullptr, 0, format, measureArgs);
  va_end(measureArgs);
  std::string text;
  if (length > 0) {
    text.resize(static_cast<size_t>(length) + 1);
    std::vsnprintf(&text[0], text.size(), format, args);
    text.resize(static_cast<size_t>(length));
  }
  va_end(args);
  reason = std::to_string(code) + ": " + text;
}

namespace ClientUtils {

bool stob(const std::string& value) {
  std::string lower(value);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower == "true" || lower == "1" || lower == "yes" || lower == "on";
}

}  // namespace ClientUtils
