// The journal's XML library: builds and parses every XML text the journal exchanges.
//
//   - store messages for the data access service (write, update, delete and read of the four
//     stored call lists, and the journal settings), and the store's replies;
//   - client request messages (a method name and entry id arguments) and the replies to them;
//   - observer messages sent to clients in other processes.
//
// The vocabulary (element names, message shapes, examples) is documented in
// docs/store-protocol.md. All operations are static and thread-safe; malformed input never
// throws: parsers answer false, FAILURE or method 0.
//
// Text fields survive a round trip byte for byte: markup characters are escaped, blanks,
// newlines and carriage returns are kept, UTF-8 passes through untouched.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "framework/CallItems.h"

#pragma GCC visibility push(default)

class JournalServiceHelper {
 public:
  // Sets up the library's shared state (the method-name index); idempotent. The library works
  // without it, building the index on first use, but services call it at construction.
  static void init();
  // Releases the shared state; idempotent. A later use sets it up again.
  static void finit();
  static bool isInitialised();

  // ---- Store message vocabulary -------------------------------------------------------------
  // Reason of a store message: the element REASONFORMESSAGE holds one of the request texts.
  static constexpr const char* REASONFORMESSAGE = "reason";
  static constexpr const char* READREQUEST = "read";
  static constexpr const char* WRITEREQUEST = "write";
  static constexpr const char* UPDATEREQUEST = "update";
  static constexpr const char* DELETEREQUEST = "delete";
  // One entry of a list: its text is the entry's item body (escaped).
  static constexpr const char* ENTRY = "entry";
  // Entry identifier: a field of every item body and the argument of client requests.
  static constexpr const char* ENTRYID = "entryId";
  // Root elements and the table attribute of store requests and replies.
  static constexpr const char* STOREREQUEST = "storeRequest";
  static constexpr const char* STOREREPLY = "storeReply";
  static constexpr const char* TABLE = "table";
  // Unique id of the row written, in the store's reply to a write or update.
  static constexpr const char* LASTUNIQUEID = "lastUniqueId";
  // Attribute of an ENTRY in a store's read reply: the length in bytes of the entry's content.
  static constexpr const char* SIZE = "size";

  // Tables of the data access service.
  static constexpr const char* DAS_CALLLOGMISSEDCALLS = "callLogMissedCalls";
  static constexpr const char* DAS_CALLLOGDIALLEDCALLS = "callLogDialledCalls";
  static constexpr const char* DAS_CALLLOGRECEIVEDCALLS = "callLogReceivedCalls";
  static constexpr const char* DAS_CALLLOGFORWARDEDCALLS = "callLogForwardedCalls";
  static constexpr const char* SETTINGS_SCHEMA = "journalSettings";
  // Settings of the journal (values "true" / "false").
  static constexpr const char* CALL_LOG_ENABLED = "callLogEnabled";
  static constexpr const char* MISSED_LOGGING = "missedLogging";
  static constexpr const char* DELETE_MISSED_WHEN_CALLED = "deleteMissedWhenCalled";

  // ---- Item body vocabulary -----------------------------------------------------------------
  // Root element of each item type's body.
  static constexpr const char* MISSEDCALL = "missedCall";
  static constexpr const char* RECEIVEDCALL = "receivedCall";
  static constexpr const char* DIALLEDCALL = "dialledCall";
  static constexpr const char* FORWARDEDCALL = "forwardedCall";
  static constexpr const char* CALLBACK = "callBack";
  // Entry fields (ENTRYID above is the entry id).
  static constexpr const char* UNIQUEID = "uniqueId";
  static constexpr const char* SURNAME = "surname";
  static constexpr const char* FIRSTNAME = "firstname";
  static constexpr const char* PICTURECLIP = "pictureClip";
  static constexpr const char* VIEWED = "viewed";
  static constexpr const char* GROUPBY = "groupBy";
  static constexpr const char* LISTORDER = "listOrder";
  static constexpr const char* CALLINFOS = "callInfos";
  static constexpr const char* CALLINFO = "callInfo";
  // Callback fields (NUMBER and NUMBERTYPE are shared with the infos).
  static constexpr const char* TIMEDATE = "timeDate";
  static constexpr const char* CALLBACKTYPE = "callBackType";
  static constexpr const char* CALLBACKSTATE = "callBackState";
  static constexpr const char* DEVICEID = "deviceId";
  // Info fields.
  static constexpr const char* NUMBER = "number";
  static constexpr const char* CONNECTEDNUMBER = "connectedNumber";
  static constexpr const char* CONNECTEDSURNAME = "connectedSurname";
  static constexpr const char* CONNECTEDFIRSTNAME = "connectedFirstname";
  static constexpr const char* LOGTARGET = "logTarget";
  static constexpr const char* NUMBERPRESENTATION = "numberPresentation";
  static constexpr const char* NAMEPRESENTATION = "namePresentation";
  static constexpr const char* NUMBERTYPE = "numberType";
  static constexpr const char* CONNECTEDNUMBERTYPE = "connectedNumberType";
  static constexpr const char* TIMEFORMAT = "timeFormat";
  static constexpr const char* DURATION = "duration";
  static constexpr const char* DEFLECTNUMBER = "deflectNumber";
  static constexpr const char* DEFLECTNAME = "deflectName";
  static constexpr const char* DEFLECTNUMBERTYPE = "deflectNumberType";
  static constexpr const char* DEFLECTNUMBERPRESENTATION = "deflectNumberPresentation";
  static constexpr const char* DEFLECTNAMEPRESENTATION = "deflectNamePresentation";
  static constexpr const char* COMPLETEDELSEWHERE = "completedElsewhere";
  static constexpr const char* DIALLEDNUMBER = "dialledNumber";
  static constexpr const char* ISFEATUREACCESSCODE = "isFeatureAccessCode";
  static constexpr const char* TRUETEXT = "true";
  static constexpr const char* FALSETEXT = "false";

  // ---- Client protocol vocabulary -----------------------------------------------------------
  static constexpr const char* CLIENTREQUEST = "journalRequest";
  static constexpr const char* CLIENTRESPONSE = "journalResponse";
  static constexpr const char* METHOD = "method";
  static constexpr const char* RESULT = "result";
  static constexpr const char* FAILURETEXT = "failure";
  // The complete reply to a client request that failed.
  static const std::string FAILURE;

  // Method codes of client requests; the message carries the method's name (methodName).
  enum Method {
    METHOD_NONE = 0,
    GET_MISSED_CALL_LIST = 1,
    SET_MISSED_CALL_LIST_AS_VIEWED = 3,
    AGE_MISSED_CALL = 4,
    DELETE_MISSED_CALL = 6,
    DELETE_MISSED_CALL_LIST = 7,
    GET_DIALLED_CALL_LIST = 9,
    DELETE_DIALLED_CALL = 10,
    DELETE_DIALLED_CALL_LIST = 11,
    GET_RECEIVED_CALL_LIST = 12,
    DELETE_RECEIVED_CALL = 13,
    DELETE_RECEIVED_CALL_LIST = 14,
    GET_FORWARDED_CALL_LIST = 15,
    DELETE_FORWARDED_CALL = 16,
    DELETE_FORWARDED_CALL_LIST = 17,
    GET_CALL_BACK_LIST = 18,
    DELETE_CALL_BACK = 19,
    DELETE_CALL_BACK_LIST = 20,
    GET_LAST_DIALLED_NUMBER = 21,
    SUBSCRIBE = 22,
    UNSUBSCRIBE = 23,
    REFRESH_CALL_LOG = 24,
    DELETE_CALLS = 32,
    METHOD_LAST = 32
  };

  // ---- Observer message vocabulary ----------------------------------------------------------
  static constexpr const char* OBSERVERMESSAGE = "journalEvent";
  static constexpr const char* OPERATION = "operation";
  static constexpr const char* ACTION = "action";
  static constexpr const char* ID = "id";
  static constexpr const char* COUNT = "count";
  static constexpr const char* OBS_MISSEDCALLSCOUNTUPDATE = "missedCallsCountUpdate";
  static constexpr const char* OBS_MISSEDCALLSUPDATE = "missedCallsUpdate";
  static constexpr const char* OBS_DIALLEDCALLSUPDATE = "dialledCallsUpdate";
  static constexpr const char* OBS_RECEIVEDCALLSUPDATE = "receivedCallsUpdate";
  static constexpr const char* OBS_FORWARDEDCALLSUPDATE = "forwardedCallsUpdate";
  static constexpr const char* OBS_CALLBACKSUPDATE = "callBacksUpdate";
  static constexpr const char* OBS_CALLBACKSCOUNTUPDATE = "callBacksCountUpdate";

  // ---- Fields and messages ------------------------------------------------------------------
  // One element `name` whose text is `value`, escaped: "<name>value</name>".
  static std::string createXMLField(const char* name, const std::string& value);
  static std::string createXMLField(const char* name, const char* value);
  // Wraps `message` in place in the store request root element naming `table`.
  static void addXMLHeaderFooter(std::string& message, const std::string& table);

  // Text of the first element named `tag` (document order, any depth). False when the text is
  // not well-formed XML or holds no such element. Texts read from a message are well-formed
  // UTF-8 (fw::utf8::sanitize): a client's bytes never reach the lists or a reply raw.
  static bool getXMLValue(const std::string& xml, const char* tag, std::string& value);
  // As getXMLValue, and removes that element from `xml` (which is then written out again).
  static bool getAndRemoveXMLValue(std::string& xml, const char* tag, std::string& value);
  // The texts of every element named `tag`, in document order, from one reading of `xml`
  // (appended to `values`). False when the text is not well-formed XML.
  static bool getXMLValues(const std::string& xml, const char* tag, std::vector<std::string>& values);
  // Unique id of the row written, from the store's reply to a write or update. Without one,
  // `id` is emptied and the answer is false.
  static bool parseLastUniqueId(const std::string& reply, std::string& id);

  // Complete read messages of the four stored tables.
  static std::string readMissedCallList();
  static std::string readDialledCallList();
  static std::string readReceivedCallList();
  static std::string readForwardedCallList();

  // ---- Item bodies --------------------------------------------------------------------------
  // The body of one entry: a root element of the item's type holding every field. A delete body
  // (isDelete) holds only the unique id and the entry id. The overloads taking `text` append
  // the body wrapped in an ENTRY field, i.e. createXMLField(ENTRY, body), ready for a store
  // message or a list reply.
  static std::string createXMLMissedCallItemBody(const MissedCallItem& item, bool isDelete);
  static std::string createXMLReceivedCallItemBody(const ReceivedCallItem& item, bool isDelete);
  static std::string createXMLDialledCallItemBody(const DialledCallItem& item, bool isDelete);
  static std::string createXMLForwardedCallItemBody(const ForwardedCallItem& item, bool isDelete);
  static std::string createXMLCallBackItemBody(const CallBackItem& item, bool isDelete);
  static void createXMLMissedCallItemBody(const MissedCallItem& item, std::string& text, bool isDelete);
  static void createXMLReceivedCallItemBody(const ReceivedCallItem& item, std::string& text, bool isDelete);
  static void createXMLDialledCallItemBody(const DialledCallItem& item, std::string& text, bool isDelete);
  static void createXMLForwardedCallItemBody(const ForwardedCallItem& item, std::string& text, bool isDelete);
  static void createXMLCallBackItemBody(const CallBackItem& item, std::string& text, bool isDelete);

  // One item body back into an item. Missing fields keep their defaults; a wrong root element
  // or a field that is not a number where a number belongs makes it false.
  static bool parseXMLItemBody(const std::string& body, MissedCallItem& item);
  static bool parseXMLItemBody(const std::string& body, ReceivedCallItem& item);
  static bool parseXMLItemBody(const std::string& body, DialledCallItem& item);
  static bool parseXMLItemBody(const std::string& body, ForwardedCallItem& item);
  static bool parseXMLItemBody(const std::string& body, CallBackItem& item);

  // ---- Lists --------------------------------------------------------------------------------
  // Appends the entries of a list document (store read reply or client list reply: ENTRY
  // children of the root element) to `list`, in document order. An ENTRY with a `uniqueId`
  // attribute takes that as the item's unique id. A document that is not well-formed appends
  // nothing; a malformed entry is skipped. Either makes the answer false.
  static bool parseXMLMissedCallList(const std::string& reply, std::deque<MissedCallItem>& list);
  static bool parseXMLReceivedCallList(const std::string& reply, std::deque<ReceivedCallItem>& list);
  static bool parseXMLDialledCallList(const std::string& reply, std::deque<DialledCallItem>& list);
  static bool parseXMLForwardedCallList(const std::string& reply, std::deque<ForwardedCallItem>& list);
  static bool parseXMLCallBackList(const std::string& reply, std::deque<CallBackItem>& list);
  // The entries of a store's read reply, for loading a list. Unlike the parsers above, a damaged
  // entry (a row not well-formed or not an item of the type, edited by hand or hurt by a disk
  // fault) costs only itself: it is left out and its unique id (the ENTRY's attribute, empty when
  // it has none) added to `skipped`, also when it makes the reply as a whole not well-formed, as
  // the entries are then read one by one by their SIZE. False, appending nothing, for a reply that
  // is a failure or cannot be read at all (not well-formed and without sizes).
  static bool parseStoredMissedCallList(const std::string& reply, std::deque<MissedCallItem>& list,
                                        std::vector<std::string>& skipped);
  static bool parseStoredReceivedCallList(const std::string& reply, std::deque<ReceivedCallItem>& list,
                                          std::vector<std::string>& skipped);
  static bool parseStoredDialledCallList(const std::string& reply, std::deque<DialledCallItem>& list,
                                         std::vector<std::string>& skipped);
  static bool parseStoredForwardedCallList(const std::string& reply, std::deque<ForwardedCallItem>& list,
                                           std::vector<std::string>& skipped);
  // Shorter names of the same parsers.
  static bool parseXMLMissedList(const std::string& r, std::deque<MissedCallItem>& l) {
    return parseXMLMissedCallList(r, l);
  }
  static bool parseXMLReceivedList(const std::string& r, std::deque<ReceivedCallItem>& l) {
    return parseXMLReceivedCallList(r, l);
  }
  static bool parseXMLDialledList(const std::string& r, std::deque<DialledCallItem>& l) {
    return parseXMLDialledCallList(r, l);
  }
  static bool parseXMLForwardedList(const std::string& r, std::deque<ForwardedCallItem>& l) {
    return parseXMLForwardedCallList(r, l);
  }

  // ---- Client requests and replies ----------------------------------------------------------
  // Name of a method code ("getMissedCallList", ...); empty for a code outside 1 to 32.
  static std::string methodName(int code);
  // Code of a method name; 0 for an unknown name.
  static int methodCode(const std::string& name);
  // A client request: the method's name and one ENTRYID element per id. Empty for an unknown code.
  static std::string createMethodRequest(int code, const std::vector<std::string>& entryIds = {});
  // Method code of a client request; 0 for an unknown method or a malformed message.
  static int getMethodFromXMLMsg(const std::string& msg);

  static std::string respBool(bool value);
  static std::string respGetMissedCallList(const std::deque<MissedCallItem>& list);
  static std::string respGetDialledCallList(const std::deque<DialledCallItem>& list);
  static std::string respGetReceivedCallList(const std::deque<ReceivedCallItem>& list);
  static std::string respGetForwardedCallList(const std::deque<ForwardedCallItem>& list);
  static std::string respGetCallBackList(const std::deque<CallBackItem>& list);
  static std::string respGetLastNumberDialled(const DialledCallItem& item);
  // The value of a respBool reply; false for FAILURE or a malformed reply.
  static bool parseRespBool(const std::string& reply, bool& value);
  // The entry of a respGetLastNumberDialled reply; false for FAILURE or a malformed reply.
  static bool parseRespGetLastNumberDialled(const std::string& reply, DialledCallItem& item);

  // ---- Observer messages --------------------------------------------------------------------
  // `action` is a JournalServiceObserverIfc::ActionType value.
  static std::string obsReqMissedCallsCountUpdate(unsigned int count);
  static std::string obsReqCallBacksCountUpdate(unsigned int count);
  static std::string obsReqMissedCallsUpdate(const MissedCallItem& item, const std::string& id, int action);
  static std::string obsReqDialledCallsUpdate(const DialledCallItem& item, const std::string& id, int action);
  static std::string obsReqReceivedCallsUpdate(const ReceivedCallItem& item, const std::string& id, int action);
  static std::string obsReqForwardedCallsUpdate(const ForwardedCallItem& item, const std::string& id, int action);
  static std::string obsReqCallBacksUpdate(const CallBackItem& item, const std::string& id, int action);

  // Operation name of an observer message (OBS_...); empty when malformed.
  static std::string getObserverOperation(const std::string& msg);
  // The count of a count update; false when the message is not that operation or malformed.
  static bool parseObsReqMissedCallsCountUpdate(const std::string& msg, unsigned int& count);
  static bool parseObsReqCallBacksCountUpdate(const std::string& msg, unsigned int& count);
  // Item, id and action of an update; false when the message is not that operation or malformed.
  static bool parseObsReqMissedCallsUpdate(const std::string& msg, MissedCallItem& item, std::string& id, int& action);
  static bool parseObsReqDialledCallsUpdate(const std::string& msg, DialledCallItem& item, std::string& id,
                                            int& action);
  static bool parseObsReqReceivedCallsUpdate(const std::string& msg, ReceivedCallItem& item, std::string& id,
                                             int& action);
  static bool parseObsReqForwardedCallsUpdate(const std::string& msg, ForwardedCallItem& item, std::string& id,
                                              int& action);
  static bool parseObsReqCallBacksUpdate(const std::string& msg, CallBackItem& item, std::string& id, int& action);
};

#pragma GCC visibility pop
