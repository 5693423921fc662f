#include "JournalServiceObserverProxy.h"

#include "framework/JournalServiceHelper.h"

using Helper = JournalServiceHelper;

void JournalServiceObserverProxy::initProxy(ProxyRequest& request) {
  m_pProxyRequest = &request;
  m_pProxyRequest->setPayloadType("xml_text");
}

// Counts travel unsigned; a negative count arrives as its two's-complement value.
void JournalServiceObserverProxy::missedCallsCountUpdate(int count) {
  m_pProxyRequest->send(Helper::obsReqMissedCallsCountUpdate(static_cast<unsigned int>(count)));
}

void JournalServiceObserverProxy::missedCallsUpdate(MissedCallItem item, std::string id, ActionType action) {
  m_pProxyRequest->send(Helper::obsReqMissedCallsUpdate(item, id, action));
}

void JournalServiceObserverProxy::dialledCallsUpdate(DialledCallItem item, std::string id, ActionType action) {
  m_pProxyRequest->send(Helper::obsReqDialledCallsUpdate(item, id, action));
}

void JournalServiceObserverProxy::receivedCallsUpdate(ReceivedCallItem item, std::string id, ActionType action) {
  m_pProxyRequest->send(Helper::obsReqReceivedCallsUpdate(item, id, action));
}

void JournalServiceObserverProxy::forwardedCallsUpdate(ForwardedCallItem item, std::string id, ActionType action) {
  m_pProxyRequest->send(Helper::obsReqForwardedCallsUpdate(item, id, action));
}

void JournalServiceObserverProxy::callBacksUpdate(CallBackItem item, std::string id, ActionType action) {
  m_pProxyRequest->send(Helper::obsReqCallBacksUpdate(item, id, action));
}

void JournalServiceObserverProxy::callBacksCountUpdate(int count) {
  m_pProxyRequest->send(Helper::obsReqCallBacksCountUpdate(static_cast<unsigned int>(count)));
}
