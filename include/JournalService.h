// The call journal service: keeps the phone's lists of missed, received, dialled and forwarded
// calls and of callbacks, newest first, and follows the phone's calls to fill them.
//
// Lifecycle: made by the exported factory createJournalService (plug-in), initialised once with
// the framework's Context (init), then driven by the framework's threads: CSTA events, client
// requests (of different clients at the same time too), management callbacks and timer expiries
// (timerEvent, on the timer thread) may overlap.
//
// Ownership: the service owns its observer notifier (also one handed to the constructor), the
// tracked calls and the five lists. The framework services found at init are not owned.
//
// Locks (framework Semaphores used as mutexes, taken without time limit, never recursively):
//   m_dataLock   ->  notifier lock -> list locks   (a management write may delete the lists)
//   m_callsLock  ->  notifier lock -> list locks   (an event's changes are told while it is handled)
//   m_callsLock  ->  list locks                    (entries are created inside the event handlers)
//   m_dialledLock -> m_missedLock                  (a dialled entry may remove the party's missed entry)
// The store's own lock, m_uniqueIdLock and the entry ids' lock are leaves taken under a list lock
// (every change is stored at once, the unique id of the write is kept, and the ids in use follow
// the entries); m_softwareTypeLock is a leaf too. The store backlog's lock is a leaf, taken under
// a list lock, under m_dataLock (the management value) or alone; its retry runs on the timer
// thread, takes one list lock at a time and makes its probe write with no lock held.
// The notifier is never called while a list lock is held: its lock comes before the list locks,
// since it reads lists while holding it. Work that notifies computes what observers are told
// under the list lock, gives the lock, then notifies.
// The compiler checks these rules (framework/ThreadAnnotations.h, the clang-tsa preset): the
// members below are GUARDED_BY their lock, helpers that run under a lock REQUIRES it, the order
// among this class's locks is declared with ACQUIRED_AFTER, and the requests to the switch
// EXCLUDES the list locks. The notifier's, the store's and the entry ids' locks live in other
// objects: their place in the order is kept by the rules above, not checked.
// Event handling: the call event handlers run on the link's event thread and hold m_callsLock
// for the whole of their tracking step (in trackEvent or under a guard of their own), as
// applyCallLogEntry does for a switch's call-log entry on a worker thread the event thread waits
// for (callback events take no m_callsLock). When that step files or removes an entry, it takes
// the list lock and gives it; then, still under m_callsLock, the notifier takes its lock and runs
// every subscribed observer's update, one after the other on that thread. An observer's update
// thus delays the next event and the timer thread (timerEvent takes m_callsLock to tell the call
// sweep's timer from the others); it must not wait for anything that waits for m_callsLock, nor
// subscribe or unsubscribe (the notifier's lock is not recursive).
// The switch: no list lock is held across a request to the switch. What a change under a list
// lock reports to the switch's call log is noted in a PendingSwitchReports and sent once the lock
// is given (src/JournalService/PendingSwitchReports.h); the monitor's requests are made with no
// lock held. A report may still go out under m_callsLock (an event's entry pushed a call out of
// the list or took a missed entry away) or under m_dataLock (a management write emptied the
// lists); client reads take neither.
#pragma once

#include <atomic>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "EntryIds.h"
#include "JournalServiceIfc.h"
#include "NumberIndex.h"
#include "ObserverNotifierIfc.h"
#include "framework/CallItems.h"
#include "framework/ClockService.h"
#include "framework/Csta.h"
#include "framework/CstaEventValues.h"
#include "framework/Executable.h"
#include "framework/LocalMgmt.h"
#include "framework/Semaphore.h"
#include "framework/Services.h"
#include "framework/ThreadAnnotations.h"

class CallLogEntryRequest;
// Reports to the switch's call log noted under a list lock, sent once it is given
// (src/JournalService/PendingSwitchReports.h).
class PendingSwitchReports;
// Per list type: the list, its lock, its stored table and its XML codec (src/JournalService).
template <class Item>
struct JournalListTraits;
// How a list files an occurrence, and what filing did (src/JournalServiceEvents/EntryFiling.h).
template <class Item>
struct FilingRules;
template <class Item>
struct FiledOccurrence;
class CSTADeliveredEvent;
// What waits to be stored, and the store's state (src/JournalService/StoreBacklog.h).
struct StoreBacklog;
struct ListBacklog;

class JournalService : public Service,
                       public JournalServiceIfc,
                       public CSTAEventIfc,
                       public CSTAEventObserverBase,
                       public MgmtAgentIfc {
 public:
  // One live call, followed by its CSTA call identifier from its first event to its end.
  struct Call {
    enum states_t {
      NoState = -1,
      Originated = 0,
      Offered = 1,
      Delivered = 2,
      Established = 3,
      Diverted = 4,
      Cleared = 5,
      Failed = 6,
      MarkedMissed = 7
    };
    enum directions_t { Incoming = 0, Outgoing = 1, UnknownDirection = -1 };

    Call(directions_t const& direction, std::string const& callId);

    states_t state = NoState;
    directions_t direction;
    std::string callId;
    std::string firstParty;
    std::string firstPartyName;
    std::string remoteParty;
    std::string remotePartyName;
    std::string divertedParty;
    std::string divertedPartyName;
    std::string dialled;
    long startTime;
    long connectTime = -1;
    long endTime = -1;
    bool treatAsIncoming = false;
    bool completedElsewhere = false;
    long lastEventTime;  // seconds, of the call's last event (its start at first)
  };

  // A call that went into a KPX conference: its id and the number of its remote device.
  struct KPXConferencedCallID {
    std::string callId;
    std::string deviceId;
  };
  // A KPX conference call and the calls that went into it, in order of joining (owned).
  struct KPXConference {
    KPXConference() = default;
    ~KPXConference();
    KPXConference(const KPXConference&) = delete;
    KPXConference& operator=(const KPXConference&) = delete;
    std::string conferenceCallId;
    std::list<KPXConferencedCallID*> members;
  };
  // The calls a SIP switch joined into the conference call `newCallId`, in order of joining, and
  // which of them ended.
  struct SipConference {
    struct Member {
      std::string callId;
      bool cleared = false;
    };
    std::string newCallId;
    std::vector<Member> members;
  };

  // Builds the service; with a null `notifier` it makes its own ObserverNotifier. Owns it either way.
  explicit JournalService(ObserverNotifierIfc* notifier);
  ~JournalService() override;
  JournalService(const JournalService&) = delete;
  JournalService& operator=(const JournalService&) = delete;

  // Executable / Service
  void init(Context& context) override;
  void shutdown() override;
  void timerEvent(int timerId) override;
  void run() override;

  // CSTAEventIfc: lets the event dispatch itself to its handler.
  void deliverEvent(CSTAEvent* event) override;

  // Start-up with a context that may be absent (init passes its reference here).
  void initWithContext(Context* context);
  Executable* findService(const char* name);
  DigitAnalysisServiceIfc* getDigitAnalysisService() const { return m_pDigitAnalysisSvc; }
  // The configured software type ("Velmora KPX", "Velmora SIP", ...), from any thread.
  std::string softwareType() const;
  bool isUsingLumaUX() const;

  // ---- Client operations (JournalServiceIfc) ---------------------------------------------------
  bool getMissedCallList(std::deque<MissedCallItem>& list) override;
  bool setMissedCallListAsViewed(const std::set<std::string>& entryIds) override;
  bool ageMissedCall(const std::string& entryId) override;
  bool deleteMissedCall(const std::string& entryId) override;
  bool deleteMissedCallList(const std::set<std::string>& entryIds) override;
  bool getDialledCallList(std::deque<DialledCallItem>& list) override;
  bool deleteDialledCall(const std::string& entryId) override;
  bool deleteDialledCallList(const std::set<std::string>& entryIds) override;
  bool getLastDialledNumber(DialledCallItem& item) override;
  bool getReceivedCallList(std::deque<ReceivedCallItem>& list) override;
  bool deleteReceivedCall(const std::string& entryId) override;
  bool deleteReceivedCallList(const std::set<std::string>& entryIds) override;
  bool getForwardedCallList(std::deque<ForwardedCallItem>& list) override;
  bool deleteForwardedCall(const std::string& entryId) override;
  bool deleteForwardedCallList(const std::set<std::string>& entryIds) override;
  bool getCallBackList(std::deque<CallBackItem>& list) override;
  bool readMissedCallList(const ListReader<MissedCallItem>& read) override;
  bool readDialledCallList(const ListReader<DialledCallItem>& read) override;
  bool readReceivedCallList(const ListReader<ReceivedCallItem>& read) override;
  bool readForwardedCallList(const ListReader<ForwardedCallItem>& read) override;
  bool deleteCallBack(const std::string& entryId) override;
  bool deleteCallBackList(const std::set<std::string>& entryIds) override;
  bool deleteCalls(const std::set<std::string>& entryIds) override;
  bool subscribe(JournalServiceObserverIfc* observer) override;
  bool unsubscribe(JournalServiceObserverIfc* observer) override;
  bool refreshCallLog() override;

  // Copies of the first entry of a list; an empty item when the list is empty.
  MissedCallItem getFrontMissedCall();
  DialledCallItem getFrontDialledCall();
  ReceivedCallItem getFrontReceivedCall();
  ForwardedCallItem getFrontForwardedCall();
  CallBackItem getFrontCallbackCall();
  // Deletes the entries of Item's list that `entryIds` names, with one store message, and updates
  // the observers once (by the entry's id when one went and `tellSingleById`); false when the set
  // names none of them.
  template <class Item>
  bool deleteNamedEntries(const std::set<std::string>& entryIds, bool tellSingleById = false);
  // Missed entries not yet viewed; the caller holds m_missedLock.
  unsigned getUnviewedMissedCallsCount() const REQUIRES(m_missedLock);
  // Marks a missed entry of the list viewed; false when it was already.
  bool markViewed(MissedCallItem& item) REQUIRES(m_missedLock);
  // The same count taken under m_missedLock, for callers that hold no list lock.
  unsigned countUnviewedMissedCalls();
  // Whole-list deletions; deleteCallLists keeps the callbacks (and the forwarded list off SIP).
  bool deleteMissedCallList();
  bool deleteDialledCallList();
  bool deleteReceivedCallList();
  bool deleteForwardedCallList();
  bool deleteCallBackList();
  bool deleteCallLists();

  // ---- Management agent (MgmtAgentIfc) -----------------------------------------------------------
  bool setData(ManageableData& data) override;
  bool getData(ManageableData& data) override;
  void manageableDataChanged(ManageableData& data) override;
  bool resetUserData() override;

  // ---- Store exchange (one synchronous request per change) ------------------------------------
  // The store's reply; "failed" when there is no store or it failed.
  std::string processRequest(std::string const& message);
  static bool isDeleteRequest(std::string const& reason);
  // One store message: the reason, then `body` (ENTRY fields), for `table`. A reply other than
  // "failed" renews m_lastUniqueId and marks the visitor's call log as changed.
  void updateEntries(std::string const& body, std::string const& reason, std::string const& table);
  void updateEntry(std::string const& itemBody, std::string const& reason, std::string const& table);
  void updateMissedEntry(MissedCallItem const& item, std::string const& reason);
  void updateDialledEntry(DialledCallItem const& item, std::string const& reason);
  void updateReceivedEntry(ReceivedCallItem const& item, std::string const& reason);
  void updateForwardedEntry(ForwardedCallItem const& item, std::string const& reason);
  // Each reads one stored table and, unless the store failed, replaces the list with it.
  void readMissedCallList();
  void readDialledCallList();
  void readReceivedCallList();
  void readForwardedCallList();
  // Replace a list with a store reply, in the order the entries had (their list order), rows that
  // are not well-formed entries skipped, entries without occurrences purged (one delete each) and
  // the list kept within its limits. A list with changes not stored yet is kept as it is; so is
  // one whose reply cannot be read. Observers are not told.
  void processMissedCallDbXml(std::string const& reply);
  void processDialledCallDbXml(std::string const& reply);
  void processReceivedCallDbXml(std::string const& reply);
  void processForwardedCallDbXml(std::string const& reply);
  // Missed, dialled and received; forwarded too on SIP phones.
  void loadCallListsFromDb();
  // The unique id the store gave the last entry written, by any thread.
  std::string lastUniqueId() const;

  // ---- Store health -------------------------------------------------------------------------------
  // Changes the store refused wait and are written when it works again (StoreBacklog.h).
  struct StoreHealth {
    bool failing = false;       // from the first refused change until all that waited is written
    size_t waitingChanges = 0;  // changes not stored yet (entries to write, rows to delete)
    std::string failingSince;   // time text of the first refused change; empty when not failing
  };
  StoreHealth storeHealth() const;
  // The same as one line: "ok", or "failing since <time>: <n> changes not stored yet". Served as
  // the read-only management value "store-state".
  std::string storeStateText() const;

  // ---- Configuration ------------------------------------------------------------------------------
  // Values of the local management store.
  bool getKVDBValue(const char* tag, std::string& value);
  // Groups: 1 time zone, 2 daylight saving, 4 system values, 8 the call table's idle limit.
  void readLocalMgmtData(unsigned groups);
  void readCallRecordMaxIdleHours();
  void observeManageableData(const char* key);
  void initEvents();
  // The journal's own three settings, kept in the store's settings table.
  void readConfigItemsFromDB();
  // Stores `value` under `tag`; true when the store took it and the member changed.
  bool updateBoolConfigItem(std::atomic<bool>& member, const char* tag, const std::string& value);
  // Each sets `reason` (code 10) when the value was already current.
  bool updateEnabledState(const std::string& value, std::string& reason);
  bool updateMissedLoggingState(const std::string& value, std::string& reason);
  bool updateDeleteMissedWhenCalledState(const std::string& value, std::string& reason);
  void publishManageableDataChange(const char* key, const char* value);
  void publishCallLogEnableState();
  void publishMissedLoggingState();
  void publishDeleteMissedWhenCalledState();
  // A call log that became disabled loses all its lists.
  void handleEnabledStateChange();

  // ---- Contact matching: does an entry stand for the party a phonebook contact describes? -----
  // Only an entry's newest occurrence is looked at; texts compare byte for byte.
  bool contactMatchesMissedCall(const MissedCallItem& item, const Contact& contact) const;
  bool contactMatchesReceivedCall(const ReceivedCallItem& item, const Contact& contact) const;
  bool contactMatchesForwardedCall(const ForwardedCallItem& item, const Contact& contact) const;
  // Dialled entries match by their group-by text (the number the party was filed under).
  bool contactMatchesDialledCall(const DialledCallItem& item, const Contact& contact) const;
  bool contactMatchesCallBack(const CallBackItem& item, const Contact& contact) const;
  bool contactMatchesCallInfo(const CallItem& item, const CallInfo& info, const Contact& contact) const;
  static bool namesMatch(const CallItem& item, const Contact& contact);
  // The number index keys an entry must hold to match `contact`; none when any entry may match.
  static std::vector<std::string> matchKeysOf(const Contact& contact);
  // Equality of two numbers, quick to refuse: numbers of one length mostly differ at their end.
  static bool sameNumber(const std::string& a, const std::string& b) {
    return a.size() == b.size() && (a.empty() || a.back() == b.back()) && a == b;
  }
  // True when `a` is known and differs from `b`.
  static bool partiesAreNotTheSame(const std::string& a, const std::string& b);
  // Phonebook look-up of contact.getNumber(); a found contact is filled in.
  bool contactIsInPhonebook(Contact& contact);
  bool contactNotInPhonebook(Contact& contact);
  bool isaFeatureAccessCode(const std::string& digits);

  // ---- Missed call entries ------------------------------------------------------------------------
  // Files a call that rang and was not answered under its party; false only for an occurrence
  // that is already there (KPX phones).
  bool newMissedCallEntry(const std::string& entryId, const std::string& remoteParty,
                          const std::string& remotePartyName, long timeSec, CallLogEntryEvent::_LogTarget logTarget,
                          CallLogEntryEvent::_PresentationValue numberPresentation,
                          CallLogEntryEvent::_PresentationValue namePresentation,
                          CallLogEntryEvent::_PresentationValue deflectNumberPresentation,
                          const std::string& deflectNumber,
                          CallLogEntryEvent::_PresentationValue deflectNamePresentation, const std::string& deflectName,
                          const std::string& timeDate, CallLogEntryEvent::_TFormat timeFormat, bool completedElsewhere);
  // False when the missed call is the echo of a call forwarded less than 5 s ago.
  bool sscfw_canAddMissedCall(const Contact& contact);
  // Removes the entry holding an occurrence of `subscriberNumber` (the party was reached).
  bool searchRemoveMissedCallEntry(const std::string& subscriberNumber);
  // The party's phonebook contact, or one named `name` (number type 0) when not in the phonebook.
  Contact lookUpParty(const std::string& number, const std::string& name);

  // ---- CSTA monitor of the local device -------------------------------------------------------
  // The monitor's requests wait for the switch: they are made with no lock of the journal held.
  void startEvents()
      EXCLUDES(m_dataLock, m_callsLock, m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  void stopEvents()
      EXCLUDES(m_dataLock, m_callsLock, m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  bool eventsStarted() const { return m_eventsStarted; }
  // Registers with the CSTA service for the switch's system status (phones other than SIP).
  void CSTASystemRegister()
      EXCLUDES(m_dataLock, m_callsLock, m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);

  // ---- Reports to the switch's call log (escape requests) ----------------------------------------
  // Each sends at once and waits for the switch's answer (up to the link's time limit): the caller
  // holds no list lock. Work under a list lock notes its reports in a PendingSwitchReports.
  bool sendCSTAEscapeRequest(CallLogEntryRequest* entry)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  bool sendMissedCallLogEntryRequest(MissedCallItem::MissedCallInfo const* info)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  bool sendReceivedCallLogEntryRequest(ReceivedCallItem::ReceivedCallInfo const* info)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  bool sendDialledCallLogEntryRequest(DialledCallItem::DialledCallInfo const* info)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  void sendMissedCallLogEntryRequests(MissedCallItem::InfoList const& infos)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  void sendReceivedCallLogEntryRequests(ReceivedCallItem::InfoList const& infos)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  void sendDialledCallLogEntryRequests(DialledCallItem::InfoList const& infos)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  // A dialled entry merged with `added`: reports the occurrences that the merge pushes out of the
  // entry's ten (where the switch keeps the call log).
  void sendCSTACAllLogEntryDeleteRequest(DialledCallItem::InfoList const& previous,
                                         DialledCallItem::DialledCallInfo const& added)
      EXCLUDES(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);

  // ---- Received, dialled and forwarded call entries --------------------------------------------
  // Each files one occurrence under its party; false only for an occurrence already there (KPX).
  bool newReceivedCallEntry(
      const std::string& entryId, const std::string& remoteParty, const std::string& remotePartyName,
      const std::string& connectedParty, const std::string& connectedPartyName, long timeSec, long startSec,
      long endSec, CallLogEntryEvent::_LogTarget logTarget, CallLogEntryEvent::_PresentationValue numberPresentation,
      CallLogEntryEvent::_PresentationValue namePresentation,
      CallLogEntryEvent::_PresentationValue deflectNumberPresentation, const std::string& deflectNumber,
      CallLogEntryEvent::_PresentationValue deflectNamePresentation, const std::string& deflectName,
      const std::string& timeDate, CallLogEntryEvent::_TFormat timeFormat);
  bool newDialledCallEntry(const std::string& entryId, const std::string& dialledParty, const std::string& remoteParty,
                           const std::string& remotePartyName, const std::string& connectedParty,
                           const std::string& connectedPartyName, long timeSec, long startSec, long endSec,
                           CallLogEntryEvent::_LogTarget logTarget,
                           CallLogEntryEvent::_PresentationValue numberPresentation,
                           CallLogEntryEvent::_PresentationValue namePresentation, const std::string& timeDate,
                           CallLogEntryEvent::_TFormat timeFormat);
  bool newForwardedCallEntry(const std::string& entryId, const std::string& remoteParty,
                             const std::string& remotePartyName, const std::string& divertedParty,
                             const std::string& divertedPartyName, long startTime, long connectTime, long endTime);
  // Takes back the missed occurrence that a forwarded call of `contact` left a moment earlier.
  void sscfw_checkNewForwardedCall(const Contact& contact);
  // The switch deleted the occurrences of a number up to `entryTime` from its call log.
  bool removeMissedCallEntry(const std::string& subscriberNumber, const std::string& entryTime);
  bool removeReceivedCallEntry(const std::string& subscriberNumber, const std::string& entryTime);
  bool removeDialledCallEntry(const std::string& subscriberNumber, const std::string& entryTime);
  // The user reached the party of `call`: the party's missed entry goes (when so configured).
  void findAndDeleteMissedEntryWhenCalled(Call* call);
  // Dialled entry rules (see DialledEntries.cpp).
  void populateDialledCallInfoNumber(DialledCallItem::DialledCallInfo& info, const std::string& dialledParty,
                                     const std::string& remoteParty);
  void populateInfoConnectedNumber(DialledCallItem::DialledCallInfo& info, const std::string& dialledParty,
                                   const std::string& connectedParty, const std::string& remoteParty);
  void populateDialledCallInfoTimeAndDate(DialledCallItem::DialledCallInfo& info, const std::string& timeDate,
                                          long startSec, long timeSec, long endSec);
  void populateContactSurname(Contact& contact, const std::string& dialledParty, const std::string& remoteParty);
  void populateRemoteContactSurname(Contact& contact, const std::string& remotePartyName, bool found);
  static void populateItemNames(DialledCallItem& item, const Contact& contact);
  bool firstInfoListItemIsIdentical(const DialledCallItem::DialledCallInfo& info, const DialledCallItem& entry) const;
  static void populateDialledCallItemWithPicture(const Contact& contact, DialledCallItem& item);

  // ---- Call tracking (CSTA event thread, m_callsLock held) -------------------------------------
  // Merges one event's parties into the call's record (made for a call not yet tracked) and moves
  // the call on; false when the event was dropped or refused.
  bool onCallEvent(Call* pCall, Call::states_t state, Call::directions_t direction, std::string callId,
                   std::string remoteParty = {}, std::string remotePartyName = {}, std::string divertedParty = {},
                   std::string divertedPartyName = {}, bool treatAsIncoming = false) REQUIRES(m_callsLock);
  bool setCallState(Call* pCall, Call::states_t state, Call::directions_t direction) REQUIRES(m_callsLock);
  // Files the finished call by the state it reached, and ends its record (but for a SIP outgoing
  // call diverted elsewhere, which goes on).
  bool createCallEntry(Call const* pCall, Call::states_t state) REQUIRES(m_callsLock);
  // Destination not obtainable and do not disturb: the call never rang anywhere.
  static bool ignoreEventByCause(CSTAEventCause cause);

  // CSTA call events of the local device (CSTAEventObserverBase)
  void handleCSTAOriginatedEvent(CSTAOriginatedEvent* event) override;
  void handleCSTAOfferedEvent(CSTAOfferedEvent* event) override;
  void handleCSTAQueuedEvent(CSTAQueuedEvent* event) override;
  void handleCSTADeliveredEvent(CSTADeliveredEvent* event) override;
  void handleCSTAEstablishedEvent(CSTAEstablishedEvent* event) override;
  void handleCSTADivertedEvent(CSTADivertedEvent* event) override;
  void handleCSTAFailedEvent(CSTAFailedEvent* event) override;
  void handleCSTAConnectionClearedEvent(CSTAConnectionClearedEvent* event) override;
  void handleCSTATransferredEvent(CSTATransferredEvent* event) override;
  void handleCSTACallInformationEvent(CSTACallInformationEvent* event) override;
  void handleCSTAHookswitchEvent(CSTAHookswitchEvent* event) override;
  void handleCSTAConferencedEvent(CSTAConferencedEvent* event) override;
  void handleCSTAPrivateEvent(CSTAPrivateEvent* event) override;
  void handleCSTACallBackEvent(CSTACallBackEvent* event) override;
  void handleCSTASystemStatusEvent(CSTASystemStatusEvent* event) override;

  // An entry of the switch's call log added or deleted, on a thread of its own at lower priority
  // that the caller waits for (under m_callsLock there).
  void handleCallLogEntryEvent(CallLogEntryEvent* event);

  // Conferences (the caller holds m_callsLock). KPX conferences live in slots, as many as there are
  // conferences at once; SIP conferences in records of their own.
  int getNumberOfConferences() const REQUIRES(m_callsLock);
  // The first free slot, a new one when all are taken; always true.
  bool getNewConferenceIDIndex(int& index) REQUIRES(m_callsLock);
  bool searchConferenceIDIndex(std::string const& conferenceCallId, int& index) const REQUIRES(m_callsLock);
  bool isConferenceMember(int index, const std::string& callId) const REQUIRES(m_callsLock);
  bool searchDeviceIDInConference(int index, std::string const& deviceId,
                                  std::list<KPXConferencedCallID*>::iterator& it) REQUIRES(m_callsLock);
  // Frees the KPX conferences (the SIP record stays).
  void removeAllConferences() REQUIRES(m_callsLock);

  // Tracked calls. The caller holds m_callsLock.
  Call* findCallFromId(std::string callId) REQUIRES(m_callsLock);
  bool removeCall(std::string callId) REQUIRES(m_callsLock);
  void removeAllCalls() REQUIRES(m_callsLock);
  int getNumberOfCalls() const REQUIRES(m_callsLock) { return static_cast<int>(m_calls.size()); }
  // The same count taken under m_callsLock, for callers that hold no lock.
  int countTrackedCalls() EXCLUDES(m_callsLock);
  // Lets go of the records of calls without an event for the configured hours
  // ("call-record-max-idle-hours", 4 by default, on the phone's clock), and of conferences none of
  // whose calls is still tracked: a call whose end the switch never reports would otherwise stay
  // for good. Runs on a timer of the context every 15 minutes while calls are tracked (on the
  // timer thread); takes m_callsLock.
  void sweepIdleCalls() EXCLUDES(m_callsLock);
  static constexpr int kDefaultCallRecordMaxIdleHours = 4;
  static constexpr int kCallSweepIntervalMs = 15 * 60 * 1000;

  // Entry identifiers and time texts, on the clock service found at init.
  // The form of an entry id: the time stamp of now, then eight hexadecimal digits of the call id.
  static std::string createEntryId(std::string callNumber);
  // The 32 bits an entry id takes from a call id as the switch gives it.
  static uint32_t callIdDigits(const std::string& callId);
  // "YYYY-MM-DDThh:mm:ssZ" of the phone's local time (the Z is part of the form); empty without a clock.
  static std::string entryIdStamp();
  // An id for a new entry (or occurrence) of the call `callId`: its own digits, or the next value
  // that no entry holds and no other call of this second was given. The CSTA event thread's.
  std::string newEntryId(const std::string& callId);
  static long getCurrentTimeSec();
  static std::string formatTimeDate(long seconds);
  static std::string formatDuration(long start, long end);
  bool compareTimes(std::string const& a, std::string const& b, int& result) const;

  // Shared by all code of the module; set by init, reset by the destructor.
  static ClockServiceIfc* m_pClockSvc;

  // Entries a list keeps; filing an entry beyond it drops the oldest (EntryFiling.h, for all lists).
  static constexpr size_t kMaxListEntries = 1000;

 private:
  // The parties an event reports: the remote party, and where the call was diverted.
  struct CallParties {
    const std::string& remote;
    const std::string& remoteName;
    const std::string& diverted;
    const std::string& divertedName;
  };
  // What observers are told when a missed entry was removed, sent once no list lock is held.
  struct MissedRemoval {
    std::string removedId;
    unsigned unviewed;
  };

  // The call tracking below runs with m_callsLock held (see onCallEvent).
  Call* trackCall(Call* call, Call::states_t state, Call::directions_t direction, const std::string& callId)
      REQUIRES(m_callsLock);
  bool onKpxCallEvent(Call* pCall, Call::states_t state, Call::directions_t direction, const std::string& callId,
                      const CallParties& event) REQUIRES(m_callsLock);
  bool onSipCallEvent(Call* pCall, Call::states_t state, Call::directions_t direction, const std::string& callId,
                      const CallParties& event, bool treatAsIncoming) REQUIRES(m_callsLock);
  static void mergeSipParties(Call& call, Call::states_t state, const CallParties& event);
  static void mergeSipDiversion(Call& call, Call::states_t state, Call::directions_t direction,
                                const CallParties& event);
  bool establishCall(Call& call, Call::directions_t direction);
  bool createKpxCallEntry(const Call& call, Call::states_t state) REQUIRES(m_callsLock);
  bool createSipCallEntry(const Call& call, Call::states_t state) REQUIRES(m_callsLock);
  bool fileKpxCall(const Call& call, Call::states_t state);
  bool fileSipCall(const Call& call, Call::states_t state, bool incoming);
  void fileMissedCall(const Call& call, bool sip);
  void fileReceivedCall(const Call& call);
  void fileForwardedCall(const Call& call);
  bool fileDivertedDialledCall(const Call& call);
  bool fileUnknownState(const Call& call) REQUIRES(m_callsLock);
  bool isSipSwitch() const;
  // Exactly "Velmora KPX" (the hourly visitor upload runs only there).
  bool isKpxSoftware() const;
  void setSoftwareType(const std::string& softwareType);
  // SIP switch with the call log on: its calls are reported another way than a KPX switch's.
  bool sipRoad() const;
  // One onCallEvent for the call `callId` under m_callsLock.
  void trackEvent(Call::states_t state, Call::directions_t direction, const std::string& callId,
                  const std::string& remote = {}, const std::string& remoteName = {}, const std::string& diverted = {},
                  const std::string& divertedName = {}, bool treatAsIncoming = false);
  void trackDelivery(const CSTADeliveredEvent& event);
  void trackSipDelivery(const CSTADeliveredEvent& event);
  void markCallMissed(const std::string& callId, const std::string& number, const std::string& name);
  // Conferences: with m_callsLock held.
  void trackKpxConference(const CSTAConferencedEvent& event) REQUIRES(m_callsLock);
  void trackSipConference(const CSTAConferencedEvent& event) REQUIRES(m_callsLock);
  // The clearing of a conference call ends its member calls; false when it is no conference's.
  bool clearKpxConference(const std::string& callId, const std::string& deviceId) REQUIRES(m_callsLock);
  bool clearSipConference(const std::string& callId, const std::string& deviceId) REQUIRES(m_callsLock);
  void endConferencedCall(const std::string& callId) REQUIRES(m_callsLock);
  void applyCallLogEntry(const CallLogEntryEvent& event);
  void addServerEntry(const CallLogEntryEvent& event, const std::string& entryId);
  void removeServerEntry(const CallLogEntryEvent& event);
  std::string callBackTimeDate();
  // The id of a new callback of `number`, held at once: the number, or the next free id when
  // another entry holds that already.
  std::string holdCallBackId(const std::string& number);
  std::string callBackIdOf(const std::string& number);
  void refreshRemotePartyName(const std::string& callId, const std::string& number, const std::string& name);

  // Removes the missed entry holding an occurrence of the number under m_missedLock; its
  // occurrences are noted in `reports` (where the switch keeps the call log).
  std::optional<MissedRemoval> removeMissedEntryOf(const std::string& subscriberNumber, PendingSwitchReports& reports);
  void notifyMissedRemoval(const MissedRemoval& removal);
  std::optional<unsigned> withdrawNewestMissedOccurrence(const Contact& contact);
  // The call-log data a KPX switch sends with a call (and the switch's call log with its entries).
  struct SwitchLogData {
    CallLogEntryEvent::_LogTarget logTarget;
    CallLogEntryEvent::_PresentationValue numberPresentation;
    CallLogEntryEvent::_PresentationValue namePresentation;
    CallLogEntryEvent::_PresentationValue deflectNumberPresentation;
    const std::string& deflectNumber;
    CallLogEntryEvent::_PresentationValue deflectNamePresentation;
    const std::string& deflectName;
    CallLogEntryEvent::_TFormat timeFormat;
    const std::string& timeDate;
  };
  template <class Info>
  void fillSwitchLogData(Info& info, const SwitchLogData& data);
  template <class Item>
  auto insertByNewestOccurrenceOf();
  template <class Info>
  void fillConnectedParty(Info& info, const std::string& remoteParty, const std::string& connectedParty,
                          const std::string& connectedName);
  // Files `info` by `rules` under the list's lock, then runs underLock() before giving it.
  template <class Item, class UnderLock>
  FiledOccurrence<Item> fileOccurrence(const typename Item::InfoList::value_type& info, const FilingRules<Item>& rules,
                                       UnderLock underLock);
  // The first entry of `list` matching rules.matches, found through the list's number index.
  template <class Item>
  typename std::deque<Item>::iterator findPartyEntry(std::deque<Item>& list, const FilingRules<Item>& rules)
      REQUIRES(listLock<Item>());
  template <class Item, class Replace>
  bool removeOccurrencesUpTo(const std::string& number, const std::string& entryTime, Replace replace);
  template <class Item>
  friend struct JournalListTraits;
  // The lock of the list of Item (JournalListTraits<Item>::lock), named so that the analysis can
  // tell which lock a list's generic work requires.
  template <class Item>
  Semaphore& listLock() RETURN_CAPABILITY(JournalListTraits<Item>::lock(*this));

  // Generic list work, one instance per list type (src/JournalService/ListAccess.h).
  template <class Item>
  bool copyList(std::deque<Item>& out);
  template <class Item>
  bool readInPlace(const ListReader<Item>& read);
  template <class Item>
  Item frontEntry();
  template <class Item, class UnderLock>
  bool eraseEntry(const std::string& entryId, UnderLock underLock);
  template <class Item, class UnderLock>
  std::vector<std::string> eraseEntries(const std::set<std::string>& entryIds, UnderLock underLock);
  template <class Item>
  void eraseAllEntries();
  template <class Item>
  void updateStoredEntry(const Item& item, const std::string& reason);
  template <class Item>
  void arrivingInList(const Item& item) REQUIRES(listLock<Item>());
  template <class Item>
  void leavingList(const Item& item) REQUIRES(listLock<Item>());
  template <class Item>
  void mergingInList(const Item& item) REQUIRES(listLock<Item>());
  template <class Item>
  void mergedInList(const Item& item) REQUIRES(listLock<Item>());
  template <class Item>
  void listChanged() REQUIRES(listLock<Item>());
  template <class Item>
  void releaseIdsOf(const std::deque<Item>& list);
  template <class Item>
  void holdLoadedIds(std::deque<Item>& list) REQUIRES(listLock<Item>());
  template <class Item>
  void readStoredList();
  template <class Item>
  void replaceWithStored(const std::string& reply);
  template <class Item>
  void replaceWithStoredLocked(const std::string& reply) REQUIRES(listLock<Item>());
  // Notes in `reports` the occurrences that merging `added` pushes out of a dialled entry.
  void reportCallsPushedOut(DialledCallItem::InfoList const& previous, DialledCallItem::DialledCallInfo const& added,
                            PendingSwitchReports& reports);
  // Writes the list's front entry after a new call was filed, under `trimmedId` when the limit
  // dropped an entry; the entry takes the unique id the store gave it. The caller holds the lock.
  template <class Item>
  void storeFrontEntry(std::deque<Item>& list, const std::string& trimmedId) REQUIRES(listLock<Item>());
  // One store exchange; the unique id the store gave, or nothing when it failed.
  bool storeEntries(std::string const& body, std::string const& reason, std::string const& table, std::string& id);

  // Changes of a stored list on their way to the store, written at once or kept in the list's
  // backlog while the store fails (src/JournalService/StoreChanges.h). The caller holds the lock.
  template <class Item>
  void storeWrite(Item& entry)
      REQUIRES(listLock<Item>());  // an entry of the list; it takes the unique id the store gives
  template <class Item>
  void storeWriteSet(const std::vector<Item*>& entries) REQUIRES(listLock<Item>());
  template <class Item>
  void storeDelete(const Item& entry) REQUIRES(listLock<Item>());  // before it leaves the list
  template <class Item>
  void storeDeletes(const std::vector<const Item*>& entries) REQUIRES(listLock<Item>());
  template <class Item>
  void storeClear() REQUIRES(listLock<Item>());
  // Gives list[index] its list order; when the list had to be numbered anew the others are stored.
  template <class Item>
  void placeEntry(std::deque<Item>& list, size_t index) REQUIRES(listLock<Item>());
  template <class Item>
  void forgetWaitingWrite(int64_t order) REQUIRES(listLock<Item>());
  template <class Item>
  ListBacklog& backlogOf() REQUIRES(listLock<Item>());
  template <class Item, class Change>
  void changeBacklog(Change change) REQUIRES(listLock<Item>());
  template <class Item>
  bool changeWaits() REQUIRES(listLock<Item>());
  template <class Item>
  bool flushBacklog(size_t& written) REQUIRES(listLock<Item>());
  template <class Item>
  bool flushBacklogLocked(size_t& written);  // takes the list's lock
  template <class Item>
  bool listIsStored() REQUIRES(listLock<Item>());
  template <class Item>
  void settleStoredList(std::deque<Item>& list) REQUIRES(listLock<Item>());
  // The store's state (src/JournalService/StoreRetry.cpp). storeFailed and storeWorked follow an
  // exchange of a list change; the retry runs on the timer thread.
  void storeFailed();
  void storeWorked();
  void noteStoreWritten(size_t written);
  bool isStoreRetryTimer(int timerId);
  void retryStore();
  bool probeStore();
  bool writeBacklogs(size_t& written);
  // At shut-down: one more try to store what waits.
  void storeBacklogBeforeStop();

  bool applyManageableValue(const std::string& key, const std::string& value, std::string& reason);
  std::string manageableValue(const std::string& key) const;
  void onUserDataChanged();
  void onCallLogAccessChanged(const std::string& value);
  void changeMonitorFilter()
      EXCLUDES(m_dataLock, m_callsLock, m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock, m_callBackLock);
  void lookUpServices();
  void startAutoSaveTimer();
  void armCallSweep() REQUIRES(m_callsLock);
  void dropConferencesWithoutCalls() REQUIRES(m_callsLock);
  void deriveLoggingMode();
  void uploadVisitorCallLog();

  CSTAServiceIfc* m_pCSTASvc = nullptr;
  DataAccessServiceIfc* m_pDataAccessSvc = nullptr;
  DirectoryServiceIfc* m_pDirectorySvc = nullptr;
  LocalMgmtIfc* m_pLocalMgmt = nullptr;
  DigitAnalysisServiceIfc* m_pDigitAnalysisSvc = nullptr;
  // The locks, in the order they are taken (see the top of this file); clang checks the order
  // declared here with -Wthread-safety-beta. The notifier's lock, in another object, sits between
  // m_dataLock / m_callsLock and the list locks; that cannot be declared here.
  Semaphore m_dataLock;
  Semaphore m_callsLock;
  Semaphore m_dialledLock ACQUIRED_AFTER(m_dataLock, m_callsLock);
  Semaphore m_missedLock ACQUIRED_AFTER(m_dataLock, m_callsLock, m_dialledLock);
  Semaphore m_receivedLock ACQUIRED_AFTER(m_dataLock, m_callsLock);
  Semaphore m_forwardedLock ACQUIRED_AFTER(m_dataLock, m_callsLock);
  Semaphore m_callBackLock ACQUIRED_AFTER(m_dataLock, m_callsLock);
  // Leaves: nothing is taken while one is held.
  mutable Semaphore m_uniqueIdLock ACQUIRED_AFTER(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock,
                                                  m_callBackLock);
  mutable Semaphore m_softwareTypeLock ACQUIRED_AFTER(m_missedLock, m_dialledLock, m_receivedLock, m_forwardedLock,
                                                      m_callBackLock);

  std::deque<MissedCallItem> m_missedCallList GUARDED_BY(m_missedLock);
  NumberIndex m_missedNumbers GUARDED_BY(m_missedLock);  // numbers of m_missedCallList's occurrences
  // The entries of m_missedCallList not yet viewed, kept with entries arriving and leaving and with
  // markViewed; -1 after any other change, counted again when next asked.
  mutable long m_unviewedMissed GUARDED_BY(m_missedLock) = -1;
  NumberIndex m_receivedNumbers GUARDED_BY(m_receivedLock);    // of m_receivedCallList
  NumberIndex m_dialledNumbers GUARDED_BY(m_dialledLock);      // group-by numbers of m_dialledCallList
  NumberIndex m_forwardedNumbers GUARDED_BY(m_forwardedLock);  // of m_forwardedCallList
  std::deque<DialledCallItem> m_dialledCallList GUARDED_BY(m_dialledLock);
  std::deque<ReceivedCallItem> m_receivedCallList GUARDED_BY(m_receivedLock);
  std::deque<CallBackItem> m_callBackList GUARDED_BY(m_callBackLock);
  std::deque<ForwardedCallItem> m_forwardedCallList GUARDED_BY(m_forwardedLock);
  EntryIds m_entryIds;  // the ids of the entries of all five lists; its own leaf lock
  std::string m_lastUniqueId GUARDED_BY(m_uniqueIdLock);
  // Changes waiting to be stored, per list (each part under its list's lock), and the store's
  // state under its own leaf lock, taken under a list lock or none.
  std::unique_ptr<StoreBacklog> m_storeBacklog;
  // The software type is written on the management thread when the configuration changes and read
  // by the event, timer and client threads: its text under a leaf lock, and what the rules ask of
  // it (which switch flavour) as an atomic snapshot taken with each change.
  enum class Flavour { Other, Kpx, Sip };
  std::atomic<Flavour> m_flavour{Flavour::Other};
  std::string m_softwareType GUARDED_BY(m_softwareTypeLock);
  std::map<std::string, Call*> m_calls GUARDED_BY(m_callsLock);                       // owning
  std::vector<std::unique_ptr<KPXConference>> m_conferences GUARDED_BY(m_callsLock);  // slots, null when free
  std::vector<SipConference> m_sipConferences GUARDED_BY(m_callsLock);
  int m_callSweepTimer GUARDED_BY(m_callsLock) = -1;  // armed while calls are tracked
  std::atomic<int> m_callRecordMaxIdleHours{kDefaultCallRecordMaxIdleHours};
  // Configuration values: written on the management thread (a change of the configuration) while
  // the CSTA event thread and client requests read them, hence atomic. Each is read on its own; no
  // rule needs two of them to change together.
  std::atomic<int> m_tzOffset{0};
  std::atomic<int> m_daylightSaveMinutes{0};
  std::atomic<int> m_systemIdentifier{0};
  std::string m_callLogControl;  // read and written on the management thread only
  std::string m_regNumber;       // read and written on the management thread only
  std::atomic<bool> m_serverBasedFeatures{false};
  std::atomic<bool> m_localCallLog{false};
  std::atomic<bool> m_serverCallLog{false};
  std::atomic<bool> m_mixedCallLog{false};
  std::atomic<bool> m_callLogEnabled{true};
  std::atomic<bool> m_missedLogging{true};
  std::atomic<bool> m_deleteMissedWhenCalled{false};
  MobilityServiceIfc* m_pMobilitySvc = nullptr;
  int m_autoSaveInitialTimer = -1;
  int m_autoSaveTimer = -1;
  Context* m_pContext = nullptr;
  std::atomic<bool> m_visitorCallLogChanged{false};
  ObserverNotifierIfc* m_pObserverNotifier;
  long m_lastMissedTimeSec = -1;
  long m_lastForwardedTimeSec = -1;
  bool m_savedMissedViewed = false;
  std::atomic<bool> m_listsLoaded{false};  // set by a refresh on a client or management thread
  char m_monitorCrossRefId[20] = {0};      // of the running monitor; ids fit in 19 characters
  bool m_eventsStarted = false;
  // Without a clock service compareTimes answers "equal" only when this is set; nothing sets it.
  bool m_equalTimesWithoutClock = false;
};

// Ordering of entries read from the store: true when the first entry is newer than the second.
// The key of an entry is the time text of its newest occurrence, or its entry id when it has none;
// keys compare as byte strings, so sorting with these puts a list newest first.
bool isMissedCallOrdered(const MissedCallItem& a, const MissedCallItem& b);
bool isReceivedCallOrdered(const ReceivedCallItem& a, const ReceivedCallItem& b);
bool isDialledCallOrdered(const DialledCallItem& a, const DialledCallItem& b);
bool isForwardedCallOrdered(const ForwardedCallItem& a, const ForwardedCallItem& b);

// Hexadecimal digits of the phone's MAC address.
unsigned hexToint(char c);
unsigned hexToint(char const* twoChars);
// The last two characters of `mac` read as a hexadecimal byte; 0 (and a log line) when shorter.
unsigned getLastByteOfMacAddr(std::string const& mac);
