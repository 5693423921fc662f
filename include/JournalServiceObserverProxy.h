// Stands for an observer in another process: every observer call becomes one observer message
// sent to that client through the framework's proxy request channel.
//
// The framework makes the proxy (createJournalServiceObserverProxy), gives it its channel once
// (initProxy) and owns both; the proxy keeps a pointer to the channel only. It has no lock: it is
// called on whichever thread the notifier fans out on, and the channel is safe for that.
#pragma once

#include <string>

#include "JournalServiceObserverIfc.h"
#include "framework/Invoker.h"

class JournalServiceObserverProxy : public Proxy, public JournalServiceObserverIfc {
 public:
  void initProxy(ProxyRequest& request) override;

  void missedCallsCountUpdate(int count) override;
  void missedCallsUpdate(MissedCallItem item, std::string id, ActionType action) override;
  void dialledCallsUpdate(DialledCallItem item, std::string id, ActionType action) override;
  void receivedCallsUpdate(ReceivedCallItem item, std::string id, ActionType action) override;
  void forwardedCallsUpdate(ForwardedCallItem item, std::string id, ActionType action) override;
  void callBacksUpdate(CallBackItem item, std::string id, ActionType action) override;
  void callBacksCountUpdate(int count) override;

 private:
  ProxyRequest* m_pProxyRequest = nullptr;  // not owned
};
