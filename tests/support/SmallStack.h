// Runs a piece of work on a thread with a small stack, so that a recursion per level of a deeply
// nested input, which would take down a daemon thread on a phone (2 MB stacks), takes down the
// test program here too instead of passing on a large main-thread stack.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <string>

inline bool runOnSmallStack(std::function<void()> work, std::size_t stackBytes = 512 * 1024) {
  pthread_attr_t attr;
  if (pthread_attr_init(&attr) != 0) return false;
  pthread_attr_setstacksize(&attr, stackBytes);
  pthread_t thread;
  const auto run = [](void* arg) -> void* {
    (*static_cast<std::function<void()>*>(arg))();
    return nullptr;
  };
  const bool started = pthread_create(&thread, &attr, run, &work) == 0;
  pthread_attr_destroy(&attr);
  return started && pthread_join(thread, nullptr) == 0;
}

// `levels` nested elements `name` around `inner`: "<a><a>...inner...</a></a>".
inline std::string nested(const std::string& name, std::size_t levels, const std::string& inner = "") {
  std::string out;
  out.reserve(levels * (2 * name.size() + 5) + inner.size());
  for (std::size_t i = 0; i < levels; ++i) out += "<" + name + ">";
  out += inner;
  for (std::size_t i = 0; i < levels; ++i) out += "</" + name + ">";
  return out;
}
