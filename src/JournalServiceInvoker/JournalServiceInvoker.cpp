// Method codes are the helper library's; each request is handled from scratch.
#include "JournalServiceInvoker.h"

#include <deque>
#include <set>
#include <vector>

#include "JournalLog.h"
#include "JournalServiceIfc.h"
#include "JournalServiceObserverIfc.h"
#include "framework/FrameworkContext.h"
#include "framework/JournalServiceHelper.h"

using journal::kInvokerLog;
using Helper = JournalServiceHelper;

namespace {

// The interface name under which observer proxies are requested from the framework.
const std::string kObserverInterface = "JournalServiceObserverIfc";

// Every ENTRYID of the message, each once, from one reading of it (a request may name thousands).
std::set<std::string> entryIds(const std::string& message) {
  std::vector<std::string> ids;
  Helper::getXMLValues(message, Helper::ENTRYID, ids);
  return std::set<std::string>(ids.begin(), ids.end());
}

// A list read: the list's reply written from the list in place (no copy of a whole list).
template <class Item, class Read, class Reply>
std::string readList(JournalServiceIfc& service, Read read, Reply reply) {
  std::string text;
  const bool done = (service.*read)([&](const std::deque<Item>& list) { text = reply(list); });
  // Returned by name, so that the megabytes of a full list's reply are moved, never copied.
  if (!done) text = reply(std::deque<Item>());
  return text;
}

// The callback list is short: read as a copy.
template <class Item, class Copy, class Reply>
std::string readCopiedList(JournalServiceIfc& service, Copy copy, Reply reply) {
  std::deque<Item> list;
  (service.*copy)(list);
  return reply(list);
}

// A single delete: true is answered as a boolean, a refusal or a missing id as FAILURE.
std::string deleteOne(const std::string& message, JournalServiceIfc& service,
                      bool (JournalServiceIfc::*remove)(const std::string&)) {
  std::string id;
  if (!Helper::getXMLValue(message, Helper::ENTRYID, id)) return Helper::FAILURE;
  return (service.*remove)(id) ? Helper::respBool(true) : Helper::FAILURE;
}

// A list operation: always answered with its boolean result.
std::string applyToSet(const std::string& message, JournalServiceIfc& service,
                       bool (JournalServiceIfc::*operation)(const std::set<std::string>&)) {
  return Helper::respBool((service.*operation)(entryIds(message)));
}

}  // namespace

void JournalServiceInvoker::initInvoker(FrameworkContext* context) { m_pFrameworkContext = context; }

void JournalServiceInvoker::handleMessage(Executable* target, const char* msg, int length, InvokerResponse* response) {
  if (!response) {
    JLOG(kInvokerLog, 2, "Invoker response is NULL");
    return;
  }
  std::string reply = Helper::FAILURE;
  auto* service = dynamic_cast<JournalServiceIfc*>(target);
  if (!service) {
    response->setResponse(reply.data(), static_cast<int>(reply.size()));
    JLOG(kInvokerLog, 2, "Journal Service interface is NULL");
    response->complete();
    return;
  }
  std::string message = msg && length > 0 ? std::string(msg, static_cast<size_t>(length)) : std::string();
  bool completeEmpty = false;
  try {
    reply = dispatch(*service, Helper::getMethodFromXMLMsg(message), message, *response, completeEmpty);
  } catch (const std::exception& e) {
    // Nothing may leave the module: an unexpected failure is answered like any other.
    JLOG(kInvokerLog, 2, "%s():request failed: %s", "handleMessage", e.what());
    reply = Helper::FAILURE;
    completeEmpty = false;
  }
  if (!completeEmpty) response->takeResponse(std::move(reply));
  response->complete();
}

std::string JournalServiceInvoker::dispatch(JournalServiceIfc& s, int method, std::string& message,
                                            InvokerResponse& response, bool& completeEmpty) {
  using S = JournalServiceIfc;
  switch (method) {
    case Helper::GET_MISSED_CALL_LIST:
      return readList<MissedCallItem>(s, &S::readMissedCallList, Helper::respGetMissedCallList);
    case Helper::SET_MISSED_CALL_LIST_AS_VIEWED:
      return applyToSet(message, s, &S::setMissedCallListAsViewed);
    case Helper::AGE_MISSED_CALL: {
      std::string id;
      if (!Helper::getXMLValue(message, Helper::ENTRYID, id)) return Helper::FAILURE;
      s.ageMissedCall(id);
      completeEmpty = true;
      return std::string();
    }
    case Helper::DELETE_MISSED_CALL:
      return deleteOne(message, s, &S::deleteMissedCall);
    case Helper::DELETE_MISSED_CALL_LIST:
      return applyToSet(message, s, &S::deleteMissedCallList);
    case Helper::GET_DIALLED_CALL_LIST:
      return readList<DialledCallItem>(s, &S::readDialledCallList, Helper::respGetDialledCallList);
    case Helper::DELETE_DIALLED_CALL:
      return deleteOne(message, s, &S::deleteDialledCall);
    case Helper::DELETE_DIALLED_CALL_LIST:
      return applyToSet(message, s, &S::deleteDialledCallList);
    case Helper::GET_RECEIVED_CALL_LIST:
      return readList<ReceivedCallItem>(s, &S::readReceivedCallList, Helper::respGetReceivedCallList);
    case Helper::DELETE_RECEIVED_CALL:
      return deleteOne(message, s, &S::deleteReceivedCall);
    case Helper::DELETE_RECEIVED_CALL_LIST:
      return applyToSet(message, s, &S::deleteReceivedCallList);
    case Helper::GET_FORWARDED_CALL_LIST:
      return readList<ForwardedCallItem>(s, &S::readForwardedCallList, Helper::respGetForwardedCallList);
    case Helper::DELETE_FORWARDED_CALL:
      return deleteOne(message, s, &S::deleteForwardedCall);
    case Helper::DELETE_FORWARDED_CALL_LIST:
      return applyToSet(message, s, &S::deleteForwardedCallList);
    case Helper::GET_CALL_BACK_LIST:
      return readCopiedList<CallBackItem>(s, &S::getCallBackList, Helper::respGetCallBackList);
    case Helper::DELETE_CALL_BACK:
      return deleteOne(message, s, &S::deleteCallBack);
    case Helper::DELETE_CALL_BACK_LIST:
      return applyToSet(message, s, &S::deleteCallBackList);
    case Helper::GET_LAST_DIALLED_NUMBER: {
      DialledCallItem item;
      return s.getLastDialledNumber(item) ? Helper::respGetLastNumberDialled(item) : Helper::FAILURE;
    }
    case Helper::SUBSCRIBE:
      return subscription(s, response, true);
    case Helper::UNSUBSCRIBE:
      return subscription(s, response, false);
    case Helper::REFRESH_CALL_LOG:
      return Helper::respBool(s.refreshCallLog());
    case Helper::DELETE_CALLS:
      return applyToSet(message, s, &S::deleteCalls);
    default:
      return Helper::FAILURE;
  }
}

std::string JournalServiceInvoker::subscription(JournalServiceIfc& service, InvokerResponse& response, bool subscribe) {
  const std::string client = response.getClientId();
  Proxy* proxy = m_pFrameworkContext ? m_pFrameworkContext->getProxy(kObserverInterface, client) : nullptr;
  if (!proxy) {
    JLOG(kInvokerLog, 2, "Observer proxy is NULL");
    return Helper::FAILURE;
  }
  auto* observer = dynamic_cast<JournalServiceObserverIfc*>(proxy);
  if (!observer) {
    JLOG(kInvokerLog, 2, "Observer interface is NULL");
    return Helper::FAILURE;
  }
  return Helper::respBool(subscribe ? service.subscribe(observer) : service.unsubscribe(observer));
}
