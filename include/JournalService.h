// The call journal service: keeps the phone's lists of missed, received, dialled and forwarded
// calls and of callbacks, newest first, and follows the phone's calls to fill them.
//
// Lifecycle: made by the exported factory createJournalService (plug-in), initialised once with
// the framework's Context (init), then driven by the framework's threads: CSTA events, client
// requests, management callbacks and timer expiries (timerEvent, on the timer thread) may overlap.
//
// Ownership: the service owns its observer notifier (also one handed to the constructor), the
// tracked calls and the five lists. The framework services found at init are not owned.
//
// Locks (framework Semaphores used as mutexes, taken without time limit, never recursively):
//   m_callsLock  ->  list locks            (entries are created inside the event handlers)
//   m_dialledLock -> m_missedLock          (a dialled entry may remove the party's missed entry)
//   notifier lock -> list locks            (the notifier reads lists while holding its own lock)
// The notifier is never called while a list lock is held. m_dataLock guards the management data
// exchange and is taken alone.
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <string>

#include "JournalServiceIfc.h"
#include "ObserverNotifierIfc.h"
#include "framework/CallItems.h"
#include "framework/ClockService.h"
#include "framework/Csta.h"
#include "framework/Executable.h"
#include "framework/LocalMgmt.h"
#include "framework/Semaphore.h"
#include "framework/Services.h"

class JournalServiceTestPeer;

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
  bool isUsingLumaUX() const;

  // Configuration values of the local management store.
  bool getKVDBValue(const char* tag, std::string& value);
  void readLocalMgmtData(unsigned groups);
  void observeManageableData(const char* key);
  void initEvents();

  // Tracked calls. The caller holds m_callsLock.
  Call* findCallFromId(std::string callId);
  bool removeCall(std::string callId);
  void removeAllCalls();
  int getNumberOfCalls() const { return static_cast<int>(m_calls.size()); }

  // Entry identifiers and time texts, on the clock service found at init.
  static std::string createEntryId(std::string callNumber);
  static long getCurrentTimeSec();
  static std::string formatTimeDate(long seconds);
  static std::string formatDuration(long start, long end);
  bool compareTimes(std::string const& a, std::string const& b, int& result) const;
  // Drops the oldest dialled entry when the list holds more than its limit; hands back the
  // dropped entry's unique id in both texts. The caller holds m_dialledLock.
  void getUniqueIds(std::string& first, std::string& second);

  // Shared by all code of the module; set by init, reset by the destructor.
  static ClockServiceIfc* m_pClockSvc;

  static constexpr size_t kMaxListEntries = 1000;

 private:
  friend class JournalServiceTestPeer;

  void lookUpServices();
  void startAutoSaveTimer();
  void deriveLoggingMode();
  void uploadVisitorCallLog();

  CSTAServiceIfc* m_pCSTASvc = nullptr;
  DataAccessServiceIfc* m_pDataAccessSvc = nullptr;
  DirectoryServiceIfc* m_pDirectorySvc = nullptr;
  LocalMgmtIfc* m_pLocalMgmt = nullptr;
  DigitAnalysisServiceIfc* m_pDigitAnalysisSvc = nullptr;
  std::deque<MissedCallItem> m_missedCallList;        // guarded by m_missedLock
  std::deque<DialledCallItem> m_dialledCallList;      // guarded by m_dialledLock
  std::deque<ReceivedCallItem> m_receivedCallList;    // guarded by m_receivedLock
  std::deque<CallBackItem> m_callBackList;            // guarded by m_callBackLock
  std::deque<ForwardedCallItem> m_forwardedCallList;  // guarded by m_forwardedLock
  Semaphore m_missedLock;
  Semaphore m_dialledLock;
  Semaphore m_receivedLock;
  Semaphore m_forwardedLock;
  Semaphore m_callBackLock;
  Semaphore m_dataLock;
  std::string m_lastUniqueId;
  std::string m_softwareType;
  std::map<std::string, Call*> m_calls;  // owning; guarded by m_callsLock
  Semaphore m_callsLock;
  int m_tzOffset = 0;
  int m_daylightSaveMinutes = 0;
  int m_systemIdentifier = 0;
  std::string m_callLogControl;
  std::string m_regNumber;
  bool m_serverBasedFeatures = false;
  bool m_localCallLog = false;
  bool m_serverCallLog = false;
  bool m_mixedCallLog = false;
  bool m_callLogEnabled = true;
  bool m_missedLogging = true;
  bool m_deleteMissedWhenCalled = false;
  MobilityServiceIfc* m_pMobilitySvc = nullptr;
  int m_autoSaveInitialTimer = -1;
  int m_autoSaveTimer = -1;
  Context* m_pContext = nullptr;
  std::atomic<bool> m_visitorCallLogChanged{false};
  ObserverNotifierIfc* m_pObserverNotifier;
  long m_lastMissedTimeSec = -1;
  long m_lastForwardedTimeSec = -1;
  bool m_savedMissedViewed = false;
  bool m_listsLoaded = false;
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
