// The framework's side of remote clients: a module's Invoker turns a client's request message
// into a call of its service and answers through an InvokerResponse; a module's Proxy stands for
// a remote observer inside the process and sends what it is told through a ProxyRequest.
//
// The client server (ClientServer.h) makes one InvokerResponse per request and one ProxyRequest
// per connection and proxied interface. Both are the framework's: modules use them, never own them.
#pragma once

#include <string>

#include "framework/Executable.h"

#pragma GCC visibility push(default)

class FrameworkContext;

// The answer to one request. Called on the thread that handles the request.
class InvokerResponse {
 public:
  virtual ~InvokerResponse();
  // The reply text (copied). Without a call the reply is empty.
  virtual void setResponse(const char* text, int length) = 0;
  void setResponse(const std::string& text) { setResponse(text.data(), static_cast<int>(text.size())); }
  // The same, handing the text over: a response that keeps a string takes it without a copy (a
  // full list's reply is a few MB).
  virtual void takeResponse(std::string&& text) { setResponse(text.data(), static_cast<int>(text.size())); }
  // The reply is complete: the framework sends it. Later calls are ignored.
  virtual void complete() = 0;
  // Who asked: an identity that stays the same for the whole connection.
  virtual std::string getClientId() const = 0;
};

// The channel from a proxy to its remote client. Safe to call from any thread; never blocks on
// the client (a client that cannot keep up is disconnected by the framework).
class ProxyRequest {
 public:
  virtual ~ProxyRequest();
  // The kind of payload the proxy sends ("xml_text").
  virtual void setPayloadType(const std::string& type) = 0;
  virtual void send(const std::string& payload) = 0;
};

// A remote object's stand-in. Made by a module factory, initialised once with its channel.
class Proxy : public Executable {
 public:
  ~Proxy() override;
  virtual void initProxy(ProxyRequest& request) = 0;
};

// Decodes client requests for a service of the module.
class Invoker {
 public:
  virtual ~Invoker();
  // Handles one message of `length` bytes for `target` and completes `response` (the module may
  // complete it without text). Called on the framework's request threads: the requests of one
  // client one at a time, those of different clients at the same time.
  virtual void handleMessage(Executable* target, const char* msg, int length, InvokerResponse* response) = 0;
  virtual void initInvoker(FrameworkContext* context);
};

#pragma GCC visibility pop
