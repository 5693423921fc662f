#include "LinkWatchers.h"

#include <algorithm>

#include "framework/FrameworkContext.h"
#include "framework/Logging.h"

namespace host {

using fw::MutexLock;

LinkWatcher::~LinkWatcher() { m_watchers.forget(this); }

LinkWatchers::LinkWatchers(std::string switchAddress, const fw::CstaLinkService::LinkState& initial)
    : m_switch(std::move(switchAddress)), m_message(linkNewsMessage(news(initial))) {}

LinkNews LinkWatchers::news(const fw::CstaLinkService::LinkState& state) const {
  LinkNews n;
  n.link = state.connected;
  n.since = isoLocalTime(state.since);
  n.reason = state.connected ? std::string() : state.reason;
  n.monitor = state.connected && state.monitors.asked > 0 && state.monitors.running == state.monitors.asked;
  n.switchAddress = m_switch;
  return n;
}

void LinkWatchers::changed(const fw::CstaLinkService::LinkState& state) {
  const std::string message = linkNewsMessage(news(state));
  MutexLock guard(m_mutex);
  m_message = message;
  for (LinkWatcher* watcher : m_watchers) watcher->send(message);
}

// On the connection's request lane: the client server deletes the connection's proxies on that
// lane too, after this request, so the watcher found here lives until it has joined the list.
bool LinkWatchers::subscribe(FrameworkContext& context, const std::string& clientId) {
  auto* watcher = dynamic_cast<LinkWatcher*>(context.getProxy(kLinkWatcherInterface, clientId));
  if (!watcher) return false;
  std::size_t count = 0;
  {
    MutexLock guard(m_mutex);
    if (std::find(m_watchers.begin(), m_watchers.end(), watcher) == m_watchers.end()) m_watchers.push_back(watcher);
    watcher->send(m_message);
    count = m_watchers.size();
  }
  logAppUni("Journal Host", __FILE__, 5, __LINE__, "client %s hears of the switch link (%zu watching)",
            clientId.c_str(), count);
  return true;
}

void LinkWatchers::forget(LinkWatcher* watcher) {
  MutexLock guard(m_mutex);
  m_watchers.erase(std::remove(m_watchers.begin(), m_watchers.end(), watcher), m_watchers.end());
}

}  // namespace host
