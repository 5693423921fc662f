// The daemon's link watchers: the client connections that asked (management operation
// "subscribe-link") to hear when the switch link goes down and comes back. Each such connection
// gets a LinkWatcher proxy from the client server (interface kLinkWatcherInterface); the proxy
// lives as long as its connection and leaves the list when the client server deletes it. The
// link's state listener (changed(), on the link's I/O thread) sends the link message to every
// watcher; a connection that did not ask gets nothing.
//
// Owned by the host; outlives the link and the client server (both stop before it goes).
//
// Lock: m_mutex guards the watchers and the state last heard. It is held while a message is
// queued for a watcher (ProxyRequest::send takes only the connection's output lock and never
// blocks), so that a new watcher's first message and the changes after it reach it in order and a
// watcher is never sent to while it is deleted. Nothing else is locked under it; it is never held
// while the link is asked anything.
#pragma once

#include <string>
#include <vector>

#include "HostStatus.h"
#include "csta_link/CstaLinkService.h"
#include "framework/Invoker.h"
#include "framework/Mutex.h"
#include "framework/ThreadAnnotations.h"

class FrameworkContext;

namespace host {

class LinkWatchers;

// One connection's watcher, made by the client server's proxy factory.
class LinkWatcher : public Proxy {
 public:
  explicit LinkWatcher(LinkWatchers& watchers) : m_watchers(watchers) {}
  ~LinkWatcher() override;  // leaves the list
  void initProxy(ProxyRequest& request) override { m_request = &request; }
  void send(const std::string& message) {
    if (m_request) m_request->send(message);
  }

 private:
  LinkWatchers& m_watchers;
  ProxyRequest* m_request = nullptr;  // the client server's, valid while this proxy lives
};

class LinkWatchers {
 public:
  // `switchAddress`: HOST:PORT, or "none"; `initial`: the link's state when it is made.
  LinkWatchers(std::string switchAddress, const fw::CstaLinkService::LinkState& initial);

  // The link's state listener: remembers the state and tells every watcher.
  void changed(const fw::CstaLinkService::LinkState& state);
  // The connection `clientId` asks for link messages: its watcher joins (once) and is sent the
  // current state. False when the client server has no watcher for it (connection gone).
  bool subscribe(FrameworkContext& context, const std::string& clientId);
  void forget(LinkWatcher* watcher);

 private:
  LinkNews news(const fw::CstaLinkService::LinkState& state) const;

  const std::string m_switch;
  fw::Mutex m_mutex;  // see above
  std::vector<LinkWatcher*> m_watchers GUARDED_BY(m_mutex);
  std::string m_message GUARDED_BY(m_mutex);  // the link message of the state last heard
};

}  // namespace host
