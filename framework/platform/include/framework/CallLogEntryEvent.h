// One entry of the switch's call log as a private CSTA event carries it (add or delete an entry of a
// given list), and the enumerations that the journal's entries and requests share with it.
#pragma once

#include <string>

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
    LT_DIALLED = 4,           // dialled, and the party's missed entry is cleaned up
    LT_DIALLED_DIVERTED = 5,  // outgoing call that was diverted
    LT_DIALLED_OTHER = 6
  };

  enum _PresentationValue { PV_NONE = 0, PV_SHOWN = 1, PV_RESTRICTED = 2 };

  enum _TFormat { TF_LOCAL = 0, TF_UTC = 1 };

  // A text of the entry and whether it may be shown.
  struct Field {
    _PresentationValue presentation = PV_NONE;
    std::string text;
    bool operator==(const Field& o) const { return presentation == o.presentation && text == o.text; }
  };

  // What each field holds, in the order the switch sends them. The time text has no presentation
  // of its own: its field carries the presentation of the subscriber number. The call-log entry
  // request to the switch uses the first five fields in the same order.
  enum _FieldIndex {
    FIELD_DATE_TIME = 0,
    FIELD_NAME = 1,
    FIELD_DEFLECT_NUMBER = 2,  // the party that diverted the call
    FIELD_DEFLECT_NAME = 3,
    FIELD_CONNECTED_NUMBER = 4,  // the party that finally answered
    FIELD_CONNECTED_NAME = 5
  };
  static constexpr int kFieldCount = 6;

  _Action action = ACTION_ADD;
  _LogTarget logTarget = LT_RECEIVED;
  _TFormat timeFormat = TF_LOCAL;
  std::string subscriberNumber;  // the remote party
  Field fields[kFieldCount];

  const Field& field(_FieldIndex index) const { return fields[index]; }
  Field& field(_FieldIndex index) { return fields[index]; }
  bool operator==(const CallLogEntryEvent& o) const;
};

#pragma GCC visibility pop
