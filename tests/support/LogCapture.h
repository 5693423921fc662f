// Routes the framework's log lines into memory for the life of the object, at full detail.
#pragma once

#include <memory>

#include "framework/Logging.h"

class LogCapture {
 public:
  LogCapture() : m_sink(std::make_shared<fw::MemorySink>()) {
    m_previous = fw::setLogSink(m_sink);
    fw::setDefaultLogThreshold(9);
  }
  ~LogCapture() {
    fw::setLogSink(m_previous);
    fw::setDefaultLogThreshold(fw::kLogNotable);
  }
  bool contains(const std::string& text, int level = -1) const { return m_sink->contains(text, level); }
  int count(const std::string& text) const {
    int n = 0;
    for (const auto& r : m_sink->records()) n += r.text.find(text) != std::string::npos;
    return n;
  }
  void clear() { m_sink->clear(); }

 private:
  std::shared_ptr<fw::MemorySink> m_sink;
  std::shared_ptr<fw::LogSink> m_previous;
};
