// The proxy the client server tests register: it counts the live proxies and keeps the channel
// it was given, so a test can send as the module would and see when the server deleted it.
#pragma once

#include <atomic>
#include <mutex>

#include "framework/Invoker.h"

namespace clientservertest {

// `gate` stands for the module's notifier lock: a sender holding it never sees a deleted proxy.
struct CountedProxy : Proxy {
  inline static std::atomic<int> live{0};
  inline static std::mutex gate;
  ProxyRequest* channel = nullptr;
  CountedProxy() { ++live; }
  ~CountedProxy() override {
    std::lock_guard<std::mutex> guard(gate);
    --live;
  }
  void initProxy(ProxyRequest& request) override { channel = &request; }
};

}  // namespace clientservertest
