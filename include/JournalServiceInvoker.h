// Decodes the request messages of remote clients into calls of the journal's client interface
// and answers each with an XML reply built by the journal helper library.
//
// Stateless apart from the framework context (used to obtain the observer proxy of a client that
// subscribes); called on the framework's request threads, for several clients at once (one
// request of each client at a time), so it keeps no state of a request. The framework
// owns the invoker, the target service and the response.
#pragma once

#include <string>

#include "framework/Invoker.h"

class JournalServiceIfc;

class JournalServiceInvoker : public Invoker {
 public:
  void handleMessage(Executable* target, const char* msg, int length, InvokerResponse* response) override;
  void initInvoker(FrameworkContext* context) override;

 private:
  // The reply text for one request; `completeEmpty` is set when the request is answered by
  // completing the response without text.
  std::string dispatch(JournalServiceIfc& service, int method, std::string& message, InvokerResponse& response,
                       bool& completeEmpty);
  // Subscribes (or unsubscribes) the observer proxy of the requesting client; the reply text.
  std::string subscription(JournalServiceIfc& service, InvokerResponse& response, bool subscribe);

  FrameworkContext* m_pFrameworkContext = nullptr;
};
