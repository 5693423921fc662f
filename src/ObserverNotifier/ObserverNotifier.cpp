#include "ObserverNotifier.h"

#include "JournalLog.h"

ObserverNotifier::ObserverNotifier() : lock(1, 1, false, "ObserverNotifier::lock") {}

ObserverNotifier::~ObserverNotifier() = default;

void ObserverNotifier::init(JournalServiceIfc* journal, const std::string& softwareType) {
  CriticalSection guard(lock);
  service = journal;
  isSipPhone = softwareType == journal::kSipSoftware;
  JLOG(journal::kEventsLog, 5, "%s():software type '%s'", __func__, softwareType.c_str());
}
