#include "framework/CstaEvents.h"

std::string CSTAConferencedEvent::getConferenceCallID() const {
  if (!m_conferenceCallId.empty()) return m_conferenceCallId;
  return getConferenceconnectionsNewconnectionCallID(1);
}

std::string CSTAConferencedEvent::getConferenceconnectionsNewconnectionCallID(int index) const {
  if (index < 1 || static_cast<size_t>(index) > m_connections.size()) return std::string();
  return m_connections[index - 1].newConnection.callId;
}
