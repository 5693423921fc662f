// The values CSTA events carry: event causes, local connection states, the texts of call status and
// system status, devices and connections. Used by the event classes of CstaEvents.h.
#pragma once

#include <string>

#pragma GCC visibility push(default)

// Why an event happened, numbered as ECMA-285 numbers its causes. An event keeps the number the
// switch sent, also one without a name here (some switches send 0, later editions go up to 121),
// up to kHighestEventCauseNumber.
enum CSTAEventCause {
  EC_NONE = -1,                            // the event carries no cause
  EC_ACTIVE_PARTICIPATION = 1,             // a party joined the call and takes part in it
  EC_ALTERNATE = 2,                        // the device alternated between a held and an active call
  EC_BUSY = 3,                             // the destination is busy
  EC_CALL_BACK = 4,                        // a callback was set or has become due
  EC_CALL_CANCELLED = 5,                   // the caller gave up before the call was answered
  EC_CALL_FORWARD_IMMEDIATE = 6,           // forwarded unconditionally
  EC_CALL_FORWARD_BUSY = 7,                // forwarded because the destination was busy
  EC_CALL_FORWARD_NO_ANSWER = 8,           // forwarded because nobody answered
  EC_CALL_FORWARD = 9,                     // forwarded, kind not stated
  EC_CALL_NOT_ANSWERED = 10,               // nobody answered within the switch's time
  EC_CALL_PICKUP = 11,                     // another device picked the call up
  EC_CAMP_ON = 12,                         // the call waits at a busy destination
  EC_DEST_NOT_OBTAINABLE = 13,             // the destination cannot be reached
  EC_DO_NOT_DISTURB = 14,                  // the destination has do-not-disturb set
  EC_INCOMPATIBLE_DESTINATION = 15,        // the destination cannot take this kind of call
  EC_INVALID_ACCOUNT_CODE = 16,            // the account code given is not valid
  EC_KEY_OPERATION = 17,                   // a key of a multi-line set was used
  EC_LOCKOUT = 18,                         // the device was locked out (dialled too late)
  EC_MAINTENANCE = 19,                     // the device or trunk is under maintenance
  EC_NETWORK_CONGESTION = 20,              // the network is congested
  EC_NETWORK_NOT_OBTAINABLE = 21,          // the network cannot be reached
  EC_NEW_CALL = 22,                        // a new call was made
  EC_NO_AVAILABLE_AGENTS = 23,             // no agent of the group is free
  EC_OVERRIDE = 24,                        // a party broke into the call
  EC_PARK = 25,                            // the call was parked
  EC_OVERFLOW = 26,                        // the call overflowed to another destination
  EC_RECALL = 27,                          // the call came back to the device that passed it on
  EC_REDIRECTED = 28,                      // the call was redirected
  EC_REORDER_TONE = 29,                    // the caller hears reorder tone
  EC_RESOURCES_NOT_AVAILABLE = 30,         // the switch lacks a resource for the call
  EC_SILENT_PARTICIPATION = 31,            // a party listens to the call without being heard
  EC_TRANSFER = 32,                        // the call was transferred
  EC_TRUNKS_BUSY = 33,                     // all trunks are busy
  EC_VOICE_UNIT_INITIATOR = 34,            // a voice unit started the call (number of the earlier CSTA
                                           // phases, unused in ECMA-285, still sent by some switches)
  EC_BLOCKED = 35,                         // the call was blocked
  EC_CHARACTER_COUNT_REACHED = 36,         // digit collection got the number of characters asked for
  EC_CONSULTATION = 37,                    // a consultation call
  EC_DISTRIBUTED = 38,                     // a distribution device handed the call on
  EC_DTMF_DIGIT_DETECTED = 39,             // a DTMF digit was detected
  EC_DURATION_EXCEEDED = 40,               // a time limit was reached; also the cause with which SIP switches
                                           // clear a call that another device of the line answered
  EC_END_OF_MESSAGE_DETECTED = 41,         // the end of a recorded message was reached
  EC_ENTERING_DISTRIBUTION = 42,           // the call entered a distribution device
  EC_FORCED_PAUSE = 43,                    // a message was paused by the switch
  EC_MAKE_CALL = 44,                       // the call was made by a make-call request
  EC_MESSAGE_SIZE_EXCEEDED = 45,           // a message grew too large
  EC_NETWORK_SIGNAL = 46,                  // the network sent a signal
  EC_NEXT_MESSAGE = 47,                    // the next message is played
  EC_NORMAL_CLEARING = 48,                 // the call was cleared normally
  EC_NO_SPEECH_DETECTED = 49,              // no speech was detected
  EC_NUMBER_CHANGED = 50,                  // the destination's number has changed
  EC_SINGLE_STEP_CONFERENCE = 51,          // a device was added to the call in one step
  EC_SINGLE_STEP_TRANSFER = 52,            // the call was transferred in one step
  EC_SPEECH_DETECTED = 53,                 // speech was detected
  EC_SWITCHING_FUNCTION_TERMINATED = 54,   // the switch ended the call
  EC_TERMINATION_CHARACTER_RECEIVED = 55,  // digit collection got its termination character
  EC_TIMEOUT = 56,                         // a timer ran out
  EC_ACD_BUSY = 57,                        // the call distribution is busy
  EC_ACD_FORWARD = 58,                     // the call distribution forwarded the call
  EC_ACD_SATURATED = 59,                   // the call distribution is full
  EC_ALERT_TIME_EXPIRED = 60,              // the call rang too long
  EC_AUTO_WORK = 61,                       // the agent went to after-call work by itself
  EC_CAMP_ON_TRUNKS = 62,                  // the call waits for a free trunk
  EC_CONFERENCE = 63,                      // a conference was made
  EC_DEST_DETECTED = 64,                   // the destination was detected (e.g. a person, a fax)
  EC_DEST_OUT_OF_ORDER = 65,               // the destination is out of order
  EC_DISTRIBUTION_DELAY = 66,              // the call waits in a distribution device
  EC_FORCED_TRANSITION = 67,               // the switch changed the agent's state
  EC_INTRUDE = 68,                         // a party intruded into the call
  EC_INVALID_NUMBER_FORMAT = 69,           // the number dialled has an invalid format
  EC_JOIN_CALL = 70,                       // a device joined the call
  EC_KEY_OPERATION_IN_USE = 71,            // the key's line is in use elsewhere
  EC_MAKE_PREDICTIVE_CALL = 72,            // the call was made by a predictive-call request
  EC_MESSAGE_DURATION_EXCEEDED = 73,       // a message ran too long
  EC_MULTIPLE_ALERTING = 74,               // the call rings at several devices
  EC_MULTIPLE_QUEUING = 75,                // the call waits in several queues
  EC_NETWORK_DIALLING = 76,                // the network is dialling
  EC_NETWORK_OUT_OF_ORDER = 77,            // the network is out of order
  EC_NORMAL = 78,                          // nothing out of the ordinary
  EC_NOT_AVAILABLE_BEARER_SERVICE = 79,    // the bearer service is not available now
  EC_NOT_SUPPORTED_BEARER_SERVICE = 80,    // the bearer service is not supported
  EC_NUMBER_UNALLOCATED = 81,              // the number dialled is not assigned
  EC_QUEUE_CLEARED = 82,                   // the queue was emptied
  EC_REMAINS_IN_QUEUE = 83,                // the call stays queued
  EC_RESERVED = 84,                        // the device is reserved
  EC_SELECTED_TRUNK_BUSY = 85,             // the trunk chosen is busy
  EC_SUSPEND = 86,                         // the call was suspended
  EC_UNAUTHORISED_BEARER_SERVICE = 87      // the bearer service is not allowed for this party
};

// The highest cause number an event keeps. The enumeration's values (-1 to 87) make it hold -128
// to 127; a higher number cannot be held and is taken as no known cause (EC_NONE).
inline constexpr int kHighestEventCauseNumber = 127;

// State of the monitored device's connection after the event (ECMA-269 localConnectionInfo).
enum CSTALocalConnectionState {
  CSTA_LCS_None = -1,  // the event carries no local connection information
  CSTA_LCS_Null = 0,
  CSTA_LCS_Initiated = 1,
  CSTA_LCS_Alerting = 2,
  CSTA_LCS_Connected = 3,
  CSTA_LCS_Hold = 4,
  CSTA_LCS_Queued = 5,
  CSTA_LCS_Fail = 6
};

// Texts that events carry and handlers compare against.
namespace communicationsServiceTexts {
// Call status a switch puts in an event's private data: a ringing call that is only a reminder
// rung by the switch itself, not a call from a party, and a call that the switch marks as missed.
inline constexpr char content_callstatus_ReminderCall[] = "ReminderCall";
inline constexpr char content_callstatus_MissedCall[] = "MissedCall";

// The number the CSTA service gives a device that the switch reports as not known (a caller
// without a number), so that such a party is not confused with one whose number was withheld.
inline constexpr char noNumberProvided[] = "No number provided";

// System status of the switch: the ECMA-323 SystemStatus values, then the switch's own words for
// a clean-up of its calls, a reset and a stop.
inline constexpr char systemState_initializing[] = "initializing";
inline constexpr char systemState_enabled[] = "enabled";
inline constexpr char systemState_normal[] = "normal";
inline constexpr char systemState_messagesLost[] = "messagesLost";
inline constexpr char systemState_disabled[] = "disabled";
inline constexpr char systemState_partiallyDisabled[] = "partiallyDisabled";
inline constexpr char systemState_overloadImminent[] = "overloadImminent";
inline constexpr char systemState_overloadReached[] = "overloadReached";
inline constexpr char systemState_overloadRelieved[] = "overloadRelieved";
inline constexpr char systemState_cleanup[] = "cleanup";
inline constexpr char systemState_reset[] = "reset";
inline constexpr char systemState_stopped[] = "stopped";
}  // namespace communicationsServiceTexts

// A device as an event names it: the number taken from the switch's identifier and the name that
// came with it. Both are empty for a device the switch did not know or kept back.
struct CSTADeviceID {
  std::string number;
  std::string name;

  void get(std::string& outNumber, std::string& outName) const {
    outNumber = number;
    outName = name;
  }
  bool operator==(const CSTADeviceID& o) const { return number == o.number && name == o.name; }
};

// A connection: a call (its identifier is opaque text) at a device.
struct CSTAConnectionID {
  std::string callId;
  CSTADeviceID device;

  bool operator==(const CSTAConnectionID& o) const { return callId == o.callId && device == o.device; }
};

#pragma GCC visibility pop
