// CSTA XML values: device identifiers, event causes and local connection states as switches write
// them.
#include <cctype>
#include <cstdlib>
#include <string>
#include <string_view>

#include "csta_link/CstaXml.h"

namespace csta_xml {
namespace {

struct CauseName {
  const char* name;
  CSTAEventCause cause;
};

// ECMA-323 cause names with their ECMA-285 numbers.
constexpr CauseName kCauses[] = {
    {"activeParticipation", EC_ACTIVE_PARTICIPATION},
    {"alternate", EC_ALTERNATE},
    {"busy", EC_BUSY},
    {"callBack", EC_CALL_BACK},
    {"callCancelled", EC_CALL_CANCELLED},
    {"callForwardImmediate", EC_CALL_FORWARD_IMMEDIATE},
    {"callForwardBusy", EC_CALL_FORWARD_BUSY},
    {"callForwardNoAnswer", EC_CALL_FORWARD_NO_ANSWER},
    {"callForward", EC_CALL_FORWARD},
    {"callNotAnswered", EC_CALL_NOT_ANSWERED},
    {"callPickup", EC_CALL_PICKUP},
    {"campOn", EC_CAMP_ON},
    {"destNotObtainable", EC_DEST_NOT_OBTAINABLE},
    {"doNotDisturb", EC_DO_NOT_DISTURB},
    {"incompatibleDestination", EC_INCOMPATIBLE_DESTINATION},
    {"invalidAccountCode", EC_INVALID_ACCOUNT_CODE},
    {"keyOperation", EC_KEY_OPERATION},
    {"lockout", EC_LOCKOUT},
    {"maintenance", EC_MAINTENANCE},
    {"networkCongestion", EC_NETWORK_CONGESTION},
    {"networkNotObtainable", EC_NETWORK_NOT_OBTAINABLE},
    {"newCall", EC_NEW_CALL},
    {"noAvailableAgents", EC_NO_AVAILABLE_AGENTS},
    {"override", EC_OVERRIDE},
    {"park", EC_PARK},
    {"overflow", EC_OVERFLOW},
    {"recall", EC_RECALL},
    {"redirected", EC_REDIRECTED},
    {"reorderTone", EC_REORDER_TONE},
    {"resourcesNotAvailable", EC_RESOURCES_NOT_AVAILABLE},
    {"silentParticipation", EC_SILENT_PARTICIPATION},
    {"transfer", EC_TRANSFER},
    {"trunksBusy", EC_TRUNKS_BUSY},
    {"voiceUnitInitiator", EC_VOICE_UNIT_INITIATOR},
    {"blocked", EC_BLOCKED},
    {"characterCountReached", EC_CHARACTER_COUNT_REACHED},
    {"consultation", EC_CONSULTATION},
    {"distributed", EC_DISTRIBUTED},
    {"dTMFDigitDetected", EC_DTMF_DIGIT_DETECTED},
    {"durationExceeded", EC_DURATION_EXCEEDED},
    {"endOfMessageDetected", EC_END_OF_MESSAGE_DETECTED},
    {"enteringDistribution", EC_ENTERING_DISTRIBUTION},
    {"forcedPause", EC_FORCED_PAUSE},
    {"makeCall", EC_MAKE_CALL},
    {"messageSizeExceeded", EC_MESSAGE_SIZE_EXCEEDED},
    {"networkSignal", EC_NETWORK_SIGNAL},
    {"nextMessage", EC_NEXT_MESSAGE},
    {"normalClearing", EC_NORMAL_CLEARING},
    {"noSpeechDetected", EC_NO_SPEECH_DETECTED},
    {"numberChanged", EC_NUMBER_CHANGED},
    {"singleStepConference", EC_SINGLE_STEP_CONFERENCE},
    {"singleStepTransfer", EC_SINGLE_STEP_TRANSFER},
    {"speechDetected", EC_SPEECH_DETECTED},
    {"switchingFunctionTerminated", EC_SWITCHING_FUNCTION_TERMINATED},
    {"terminationCharacterReceived", EC_TERMINATION_CHARACTER_RECEIVED},
    {"timeout", EC_TIMEOUT},
    {"aCDBusy", EC_ACD_BUSY},
    {"aCDForward", EC_ACD_FORWARD},
    {"aCDSaturated", EC_ACD_SATURATED},
    {"alertTimeExpired", EC_ALERT_TIME_EXPIRED},
    {"autoWork", EC_AUTO_WORK},
    {"campOnTrunks", EC_CAMP_ON_TRUNKS},
    {"conference", EC_CONFERENCE},
    {"destDetected", EC_DEST_DETECTED},
    {"destOutOfOrder", EC_DEST_OUT_OF_ORDER},
    {"distributionDelay", EC_DISTRIBUTION_DELAY},
    {"forcedTransition", EC_FORCED_TRANSITION},
    {"intrude", EC_INTRUDE},
    {"invalidNumberFormat", EC_INVALID_NUMBER_FORMAT},
    {"joinCall", EC_JOIN_CALL},
    {"keyOperationInUse", EC_KEY_OPERATION_IN_USE},
    {"makePredictiveCall", EC_MAKE_PREDICTIVE_CALL},
    {"messageDurationExceeded", EC_MESSAGE_DURATION_EXCEEDED},
    {"multipleAlerting", EC_MULTIPLE_ALERTING},
    {"multipleQueuing", EC_MULTIPLE_QUEUING},
    {"networkDialling", EC_NETWORK_DIALLING},
    {"networkOutOfOrder", EC_NETWORK_OUT_OF_ORDER},
    {"normal", EC_NORMAL},
    {"notAvailableBearerService", EC_NOT_AVAILABLE_BEARER_SERVICE},
    {"notSupportedBearerService", EC_NOT_SUPPORTED_BEARER_SERVICE},
    {"numberUnallocated", EC_NUMBER_UNALLOCATED},
    {"queueCleared", EC_QUEUE_CLEARED},
    {"remainsInQueue", EC_REMAINS_IN_QUEUE},
    {"reserved", EC_RESERVED},
    {"selectedTrunkBusy", EC_SELECTED_TRUNK_BUSY},
    {"suspend", EC_SUSPEND},
    {"unauthorisedBearerService", EC_UNAUTHORISED_BEARER_SERVICE},
};

constexpr const char* kLocalStates[] = {"null", "initiated", "alerting", "connected", "hold", "queued", "fail"};

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

bool equalsNoCase(const std::string& a, const char* b) {
  std::size_t i = 0;
  for (; i < a.size() && b[i] != '\0'; ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return i == a.size() && b[i] == '\0';
}

bool startsWithNoCase(const std::string& text, const char* prefix) {
  const std::string head = text.substr(0, std::char_traits<char>::length(prefix));
  return equalsNoCase(head, prefix);
}

// A non-negative decimal number that fits an int, else -1.
int decimal(const std::string& text) {
  if (text.empty() || text.size() > 9) return -1;
  for (char c : text)
    if (c < '0' || c > '9') return -1;
  return std::atoi(text.c_str());
}

// Undoes %XX escapes (names with blanks or non-ASCII letters come escaped in URI parameters).
std::string percentDecode(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      out.push_back(static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

std::string unquote(std::string text) {
  text = trim(text);
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
  return text;
}

// The displayName of a ";key=value;key=value" parameter list, empty when there is none.
std::string displayNameParameter(const std::string& parameters) {
  std::size_t pos = 0;
  while (pos < parameters.size()) {
    std::size_t end = parameters.find(';', pos);
    if (end == std::string::npos) end = parameters.size();
    const std::string item = parameters.substr(pos, end - pos);
    const auto eq = item.find('=');
    if (eq != std::string::npos && equalsNoCase(trim(item.substr(0, eq)), "displayName"))
      return percentDecode(unquote(item.substr(eq + 1)));
    pos = end + 1;
  }
  return std::string();
}

}  // namespace

namespace {

// `text` without the blanks and line ends around it.
std::string_view trimView(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return std::string_view();
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// N<number>optional text;key=value...
CSTADeviceID numberInAngleBrackets(std::string_view text, std::size_t close) {
  CSTADeviceID device;
  device.number = std::string(trimView(text.substr(2, close - 2)));
  const auto semicolon = text.find(';', close);
  if (semicolon != std::string_view::npos) device.name = displayNameParameter(std::string(text.substr(semicolon + 1)));
  return device;
}

// A plain number, a tel: URI or a sip:/sips: URI, each with optional ";key=value" parameters.
CSTADeviceID numberOrUri(std::string_view text) {
  CSTADeviceID device;
  std::string rest(text);
  if (startsWithNoCase(rest, "tel:")) {
    rest = rest.substr(4);
  } else if (startsWithNoCase(rest, "sips:") || startsWithNoCase(rest, "sip:")) {
    rest = rest.substr(rest.find(':') + 1);
    // The user part is the number; parameters may follow the host.
    const auto at = rest.find('@');
    const auto semicolon = rest.find(';');
    if (at != std::string::npos && (semicolon == std::string::npos || semicolon > at)) {
      device.number = rest.substr(0, at);
      if (semicolon != std::string::npos) device.name = displayNameParameter(rest.substr(semicolon + 1));
      return device;
    }
  }
  const auto semicolon = rest.find(';');
  device.number = trim(rest.substr(0, semicolon));
  if (semicolon != std::string::npos) device.name = displayNameParameter(rest.substr(semicolon + 1));
  return device;
}

}  // namespace

CSTADeviceID parseDeviceIdentifier(const std::string& raw) {
  std::string_view text = trimView(raw);
  // "Display Name" <uri>: the name before the angle brackets, the number from the URI. Switches
  // write one level; deeper nestings are taken apart in a loop, the outermost name winning.
  std::string outerName;
  for (;;) {
    if (text.size() > 1 && text[0] == 'N' && text[1] == '<') {
      const auto close = text.find('>');
      if (close != std::string_view::npos) {
        CSTADeviceID device = numberInAngleBrackets(text, close);
        if (!outerName.empty()) device.name = outerName;
        return device;
      }
    }
    const auto open = text.find('<');
    if (open == std::string_view::npos || text.empty() || text.back() != '>') break;
    const std::string name = unquote(std::string(text.substr(0, open)));
    if (outerName.empty()) outerName = name;
    text = trimView(text.substr(open + 1, text.size() - open - 2));
  }
  CSTADeviceID device = text.empty() ? CSTADeviceID() : numberOrUri(text);
  if (!outerName.empty()) device.name = outerName;
  return device;
}

CSTAEventCause parseEventCause(const std::string& raw) {
  const std::string text = trim(raw);
  const int number = decimal(text);
  // A number the enumeration cannot hold is no cause this framework knows.
  if (number > kHighestEventCauseNumber) return EC_NONE;
  if (number >= 0) return static_cast<CSTAEventCause>(number);
  for (const auto& entry : kCauses)
    if (equalsNoCase(text, entry.name)) return entry.cause;
  return EC_NONE;
}

CSTALocalConnectionState parseLocalConnectionState(const std::string& raw) {
  const std::string text = trim(raw);
  const int number = decimal(text);
  if (number >= 0 && number <= CSTA_LCS_Fail) return static_cast<CSTALocalConnectionState>(number);
  for (int i = 0; i <= CSTA_LCS_Fail; ++i)
    if (equalsNoCase(text, kLocalStates[i])) return static_cast<CSTALocalConnectionState>(i);
  return CSTA_LCS_None;
}

}  // namespace csta_xml
