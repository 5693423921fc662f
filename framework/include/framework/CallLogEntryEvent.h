// The enumerations of a call-log entry as the switch's call log and the journal use them.
// The event record itself (a private CSTA event's payload) is added with the server call log.
#pragma once

#pragma GCC visibility push(default)

class CallLogEntryEvent {
 public:
  enum _Action { ACTION_ADD = 0, ACTION_DELETE = 1 };

  // Which list an entry belongs to.
  enum _LogTarget {
    LT_RECEIVED = 0,
    LT_MISSED = 1,
    LT_MISSED_OTHER = 2,
    LT_UNUSED = 3,
    LT_DIALLED = 4,            // dialled, and the party's missed entry is cleaned up
    LT_DIALLED_DIVERTED = 5,   // outgoing call that was diverted
    LT_DIALLED_OTHER = 6
  };

  enum _PresentationValue { PV_NONE = 0, PV_SHOWN = 1, PV_RESTRICTED = 2 };

  enum _TFormat { TF_LOCAL = 0, TF_UTC = 1 };
};

#pragma GCC visibility pop
