// The module's exported, unmangled entry points.
#include "JournalService.h"
#include "JournalServiceInvoker.h"
#include "JournalServiceObserverProxy.h"
#include "framework/PluginLoader.h"

#define JOURNAL_EXPORT extern "C" __attribute__((visibility("default")))

JOURNAL_EXPORT int fwPluginAbiVersion() { return fw::kPluginAbiVersion; }

// A new journal service that makes and owns its own observer notifier.
JOURNAL_EXPORT Executable* createJournalService() { return new JournalService(nullptr); }

// The decoder of remote clients' requests.
JOURNAL_EXPORT Invoker* createJournalServiceInvoker() { return new JournalServiceInvoker(); }

// The stand-in of one remote observer.
JOURNAL_EXPORT Proxy* createJournalServiceObserverProxy() { return new JournalServiceObserverProxy(); }
