// Log handles of the journal module and a shorthand that fills in file and line.
// Levels: 2 error, 4 notable event, 5 trace of operations, 6 detail.
#pragma once

#include "framework/Logging.h"

namespace journal {
constexpr const char* kCoreLog = "Journal Service";
constexpr const char* kEventsLog = "Journal Service Events";
constexpr const char* kInvokerLog = "Journal Service Invoker";

// The two switch flavours, told apart by the configured software type.
constexpr const char* kSipSoftware = "Velmora SIP";
constexpr const char* kKpxSoftware = "Velmora KPX";

// The one failure value of a store exchange.
constexpr const char* kStoreFailed = "failed";
}  // namespace journal

// JLOG(handle, level, format, ...): one log line when the handle's threshold allows it.
#define JLOG(handle, level, ...) logAppUni((handle), __FILE__, (level), __LINE__, __VA_ARGS__)
