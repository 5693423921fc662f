// Construction, start-up, the visitor call-log auto-save timers and destruction.
#include <typeinfo>

#include "JournalLog.h"
#include "JournalService.h"
#include "JournalService/StoreBacklog.h"
#include "ObserverNotifier.h"
#include "framework/JournalServiceHelper.h"

using journal::kCoreLog;
using journal::kKpxSoftware;

ClockServiceIfc* JournalService::m_pClockSvc = nullptr;

namespace {

// The first save waits one hour plus up to about another hour, spread by the MAC address so
// that the phones of one site do not all upload at the same moment.
constexpr int kAutoSaveBaseDelayMs = 3600000;
constexpr int kAutoSaveSpreadPerByteMs = 14000;
constexpr int kAutoSaveIntervalMs = 3600000;

// Looks `name` up and converts it to interface I; null when either step fails.
template <class I>
I* serviceAs(JournalService& service, const char* name) {
  Executable* found = service.findService(name);
  return found ? dynamic_cast<I*>(found) : nullptr;
}

}  // namespace

JournalService::JournalService(ObserverNotifierIfc* notifier)
    : m_dataLock(1, 1, false, "m_dataLock"),
      m_callsLock(1, 1, true, "m_callsLock"),
      m_dialledLock(1, 1, true, "m_dialledLock"),
      m_missedLock(1, 1, true, "m_missedLock"),
      m_receivedLock(1, 1, true, "m_receivedLock"),
      m_forwardedLock(1, 1, true, "m_forwardedLock"),
      m_callBackLock(1, 1, true, "m_callBackLock"),
      m_uniqueIdLock(1, 1, false, "m_uniqueIdLock"),
      m_softwareTypeLock(1, 1, false, "m_softwareTypeLock"),
      m_storeBacklog(std::make_unique<StoreBacklog>()),
      m_pObserverNotifier(notifier ? notifier : new ObserverNotifier) {
  JournalServiceHelper::init();
}

JournalService::~JournalService() {
  JournalServiceHelper::finit();
  removeAllCalls();
  removeAllConferences();
  m_pClockSvc = nullptr;
  delete m_pObserverNotifier;
}

void JournalService::init(Context& context) { initWithContext(&context); }

void JournalService::initWithContext(Context* context) {
  if (context == nullptr) {
    JLOG(kCoreLog, 2, "NULL Context");
  } else {
    m_pContext = context;
    lookUpServices();
    startAutoSaveTimer();
  }

  std::string softwareType;
  if (getKVDBValue("software-type", softwareType)) m_pObserverNotifier->init(this, softwareType);

  if (m_pCSTASvc) {
    initEvents();
    startEvents();
    if (!isSipSwitch()) CSTASystemRegister();
  }
  readConfigItemsFromDB();

  deriveLoggingMode();
  m_visitorCallLogChanged = false;

  if (m_pLocalMgmt) m_pLocalMgmt->registerAgent("JournalMgmtId", this, true);
}

void JournalService::lookUpServices() {
  auto find = [this](const char* name, auto* target) {
    using I = std::remove_pointer_t<std::remove_reference_t<decltype(*target)>>;
    *target = serviceAs<I>(*this, name);
    return *target != nullptr;
  };
  if (!find("CSTAServiceIfc", &m_pCSTASvc)) JLOG(kCoreLog, 2, "Cannot find %s", "CSTAServiceIfc");
  if (!find("DataAccessServiceIfc", &m_pDataAccessSvc)) JLOG(kCoreLog, 2, "Cannot find %s", "DataAccessServiceIfc");
  if (!find("DirectoryServiceIfc", &m_pDirectorySvc)) JLOG(kCoreLog, 2, "Cannot find %s", "DirectoryServiceIfc");
  if (!find("LocalMgmtIfc", &m_pLocalMgmt)) JLOG(kCoreLog, 2, "Cannot find %s", "LocalMgmtIfc");
  if (!find("ClockServiceIfc", &m_pClockSvc)) JLOG(kCoreLog, 2, "Cannot find %s", "ClockServiceIfc");
  if (!find("DigitAnalysisServiceIfc", &m_pDigitAnalysisSvc))
    JLOG(kCoreLog, 2, "Cannot find %s", "DigitAnalysisServiceIfc");
  if (!find("MobilityServiceIfc", &m_pMobilitySvc)) JLOG(kCoreLog, 2, "Cannot find mobility service");
}

void JournalService::startAutoSaveTimer() {
  std::string mac;
  if (!getKVDBValue("mac-addr", mac)) {
    // Without a MAC address no timer is made; the restart of the still unset id is kept on purpose.
    m_pContext->restartTimer(m_autoSaveInitialTimer);
    return;
  }
  unsigned lastByte = getLastByteOfMacAddr(mac);
  int delay = kAutoSaveBaseDelayMs + kAutoSaveSpreadPerByteMs * static_cast<int>(lastByte);
  JLOG(kCoreLog, 6, "inital timeout for auto calllog save:%d", delay);
  m_autoSaveInitialTimer = m_pContext->createTimer(this, delay);
  if (m_autoSaveInitialTimer == -1) JLOG(kCoreLog, 2, "could not start autoSaveVisitorCallLogToRvm timer");
}

void JournalService::deriveLoggingMode() {
  m_localCallLog = true;
  m_serverCallLog = false;
  m_mixedCallLog = false;
  if (m_systemIdentifier == 2) {
    m_localCallLog = false;
    m_serverCallLog = true;
  } else if (m_systemIdentifier == 1) {
    m_mixedCallLog = true;
  }
}

void JournalService::timerEvent(int timerId) {
  JLOG(kCoreLog, 5, "timer expired");
  if (isStoreRetryTimer(timerId)) {
    retryStore();
    return;
  }
  bool sweep;
  {
    CriticalSection guard(m_callsLock);
    sweep = timerId != -1 && timerId == m_callSweepTimer;
  }
  if (sweep) {
    sweepIdleCalls();
    return;
  }
  int rearm;
  if (timerId == m_autoSaveInitialTimer) {
    m_pContext->deleteTimer(m_autoSaveInitialTimer);
    if (!isKpxSoftware()) return;  // the hourly save runs on KPX phones only
    m_autoSaveTimer = m_pContext->createTimer(this, kAutoSaveIntervalMs);
    if (m_autoSaveTimer == -1) {
      JLOG(kCoreLog, 2, "could not create timer");
      return;
    }
    rearm = m_autoSaveTimer;
  } else if (timerId == m_autoSaveTimer) {
    rearm = m_autoSaveTimer;
  } else {
    return;
  }
  m_pContext->restartTimer(rearm);
  uploadVisitorCallLog();
}

// Uploads the visitor's journal when it changed; a failed upload is tried again next hour.
void JournalService::uploadVisitorCallLog() {
  if (!m_pMobilitySvc || !m_visitorCallLogChanged) return;
  if (m_pMobilitySvc->saveVisitorCallLog()) {
    JLOG(kCoreLog, 5, "mobility svc returned true!");
    m_visitorCallLogChanged = false;
  } else {
    JLOG(kCoreLog, 5, "mobility svc returned false");
  }
}

Executable* JournalService::findService(const char* name) {
  if (!m_pContext || !name) return nullptr;
  return m_pContext->findService(std::string(name));
}

bool JournalService::isUsingLumaUX() const {
  // The variant is asked twice, as the hardware layer answers each question on its own.
  return HardwareVersion::getHWSubPlatformVariant() == 4 || HardwareVersion::getHWSubPlatformVariant() == 3;
}

void JournalService::run() {}
// What the store could not take yet gets one more try; the host stops the timers afterwards.
void JournalService::shutdown() { storeBacklogBeforeStop(); }

void JournalService::deliverEvent(CSTAEvent* event) {
  if (event) event->dispatch(*this);
}
