// The client server: serves the remote clients of a module (the phone's screen, tools) over a
// Unix socket and, optionally, a TCP listener and a web listener on the loopback interface.
//
// Framing on the Unix socket and TCP, both directions: a 4-byte big-endian length of the payload (the header itself not
// counted), then the payload, UTF-8 XML. A zero-length payload is legal: it is the reply to a
// request the module completed without text. A frame longer than maxFrameSize closes that
// connection (level-2 log line); the other connections carry on. A payload that is not
// well-formed XML is still handed on (the module answers it with its failure reply): only
// framing faults close a connection.
//
// The web listener (webPort) speaks HTTP: GET / and GET /NAME serve index.html and NAME of
// webRoot (no subfolders; names with '/', '..' or a leading '.' are not found; other methods
// are answered 405), and /ws takes a WebSocket on which each text frame is one message, the
// frame being the framing (maxFrameSize bounds a message; binary frames close the connection).
// The handshake is refused (403) when the request names an Origin whose host:port is not the
// request's Host: a page of another site in the user's browser may not talk to the server. A
// web connection is a client like the others: the same dispatch, limits, queue and proxies.
//
// Dispatch: a message whose root element has a handler (setHandler) is answered by that handler;
// every other message goes to invoker->handleMessage(target, ...). Exactly one reply is sent per
// request, in request order per connection.
//
// Threads: one I/O thread runs every socket, so that a slow service never stalls socket I/O.
// Requests are handled on a fixed pool of request threads (options.requestThreads). The requests
// of one connection are handled one at a time, in the order they arrived, each answered before
// the next starts; requests of different connections are handled at the same time, so a request
// that waits (on the switch, say) holds up only its own client, as long as a request thread is
// free for the others. Connections with work take turns, one request each. The invoker, the
// handlers, the proxy factories and the detach messages run on the request threads, possibly
// several at once for different clients: each must be safe to call from several threads.
//
// Client identity (InvokerResponse::getClientId and the context's getProxy): one text per
// connection, never reused while the server runs: "unix:7", "tcp:127.0.0.1:5555#8",
// "web:127.0.0.1:5556#9" (every connection of the web listener, a page's file request too).
//
// Incoming frames: a frame's buffer grows as its bytes arrive, so a header announcing a large
// frame costs nothing until the bytes come. At most maxConnections are served at once, over all
// listeners together; a client connecting beyond that is closed at once (a level-2 line for the
// first refusal of a run of them).
//
// Outgoing queue: each connection has one queue for its replies and its proxies' messages, sent
// in the order they were queued. ProxyRequest::send may be called from any thread and never
// blocks; when more than maxQueuedBytes (the transport's frame headers included) wait to be
// written, the client is disconnected with a level-2 log line. A message queued while nothing
// else waits always goes, however large (a reply of a large list can always be read). Messages
// for a closed connection are dropped.
//
// Connection end: the proxies of that client are detached on a request thread, after every
// request the client sent before (in the connection's order, as one more of its requests): for
// each proxy with a detach message, the message is handed to the invoker on the client's behalf
// (getProxy still finds the proxy meanwhile, but makes no new one), then the proxy is deleted.
// Its ProxyRequest is shared-owned and stays valid (sends are dropped) for as long as anyone
// holds it.
//
// Locks, in the order they may be taken (a lock is only ever taken while holding locks above it;
// the WebSocket library runs on the I/O thread only, configured without locks of its own):
//   1. m_mutex of the server (handlers, factories, target, the connection table)
//   2. each connection's proxy mutex (its proxies, the "detaching" flag)
//   3. each connection's output mutex (outgoing queue, byte count, closed flag): a leaf lock,
//      the only lock ProxyRequest::send takes, so a notifier may send while holding its own lock.
//   -  the request pool's mutex (the requests waiting per connection): a leaf, taken with no
//      other lock of the server held, never held while a request runs.
// No lock of the server is held while the invoker, a handler or a proxy factory runs, nor while
// a proxy is initialised or deleted, nor while logging.
//
// Life: start() once; stop() (also run by the destructor) closes every connection, detaches
// their proxies (the target and invoker must still be alive then), joins the threads and removes
// the socket file. Call stop() before the target service is shut down.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "framework/FrameworkContext.h"
#include "framework/Invoker.h"

#pragma GCC visibility push(default)

namespace fw {

struct ClientServerOptions {
  std::string socketPath;  // Unix socket; created owner-only (0600), an old socket file replaced; removed by stop()
  std::string tcpHost = "127.0.0.1";      // optional TCP listener
  int tcpPort = -1;                       // -1: none; 0: ephemeral
  bool allowNonLoopbackTcp = false;       // refuse (start() fails) a non-loopback tcpHost unless set
  std::string webHost = "127.0.0.1";      // optional web listener: the page's files and /ws
  int webPort = -1;                       // -1: none; 0: ephemeral
  bool allowNonLoopbackWeb = false;       // refuse (start() fails) a non-loopback webHost unless set
  std::string webRoot;                    // folder of the page's files (missing: logged, every file not found)
  std::size_t maxFrameSize = 4u << 20;    // a larger frame closes that connection with a log line
  std::size_t maxQueuedBytes = 8u << 20;  // per connection; more piled up disconnects the client
  std::size_t maxConnections = 64;        // more at once are refused (closed at once, logged)
  std::size_t requestThreads = 4;         // requests of this many connections run at once (0 counts as 1)
};

class ClientServer {
 public:
  explicit ClientServer(FrameworkContext& context, ClientServerOptions options);
  ~ClientServer();  // stop()
  ClientServer(const ClientServer&) = delete;
  ClientServer& operator=(const ClientServer&) = delete;

  // Requests (root element `journalRequest` or any root without its own handler) go to
  // invoker->handleMessage(target, ...). Without a target they are answered with the failure reply.
  void setTarget(Executable* target, Invoker* invoker);
  // Proxies of `interfaceName` for a client are made by `factory` once per connection,
  // initialised with that connection's ProxyRequest; when the connection closes, `detachMessage`
  // (if not empty) is handed to the invoker on the client's behalf before the proxy is deleted,
  // again and again while the invoker answers it with true (a proxy subscribed twice is detached
  // twice).
  void addProxyFactory(const std::string& interfaceName, std::function<Proxy*()> factory, std::string detachMessage);
  // Messages whose root element is `rootElement` are answered by `handler`.
  void setHandler(const std::string& rootElement,
                  std::function<std::string(const std::string& message, const std::string& clientId)> handler);

  // Binds and listens, and installs the server as the context's proxy provider. False with a
  // plain-language `error` when a listener cannot be set up (nothing is left listening then).
  bool start(std::string& error);
  // Closes every connection, joins the threads, removes the socket file. Idempotent.
  void stop();
  int tcpPort() const;  // the bound port, -1 without a TCP listener
  int webPort() const;  // the bound port, -1 without a web listener
  // Connections accepted and not yet fully closed (their proxies detached).
  std::size_t connectionCount() const;

  class Impl;

 private:
  std::unique_ptr<Impl> m_impl;
};

}  // namespace fw

#pragma GCC visibility pop
