// The CSTA XML codec: the frames the switch link carries and the reading of the switch's event
// documents into the event objects of CstaEvents.h. No sockets here: the link feeds the bytes it
// receives into a CstaFrameDecoder and hands each frame's XML to parseCstaEvent.
//
// Frame: 8 header bytes, then the XML document (UTF-8). Bytes 0-3 hold the length of the whole
// frame including the header as a big-endian 32-bit number (for frames below 64 KiB that is two
// zero bytes and a big-endian 16-bit length), bytes 4-7 the invoke id as four ASCII digits.
// docs/csta.md lists the mappings from XML to event values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "framework/Csta.h"
#include "framework/CstaEventValues.h"

#pragma GCC visibility push(default)

namespace csta_xml {

constexpr std::size_t kFrameHeaderSize = 8;
// The invoke id of unsolicited events.
constexpr int kEventInvokeId = 9999;
// Largest frame (header included) a decoder accepts unless told otherwise.
constexpr std::size_t kDefaultMaxFrameSize = 1024 * 1024;
// Most bytes a number, name or other party text from the switch keeps: longer ones are cut at a
// character boundary (logged at level 4), so that entries and the replies that carry a full list
// stay bounded whatever the switch sends.
constexpr std::size_t kMaxPartyTextBytes = 256;

struct CstaFrame {
  int invokeId = 0;
  std::string xml;
};

// A frame that cannot be read: the stream is out of step and the link must be dropped.
class CstaFramingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The frame for `xml` with invoke id `invokeId` (0..9999). Throws std::invalid_argument for an id
// out of range or a document too long for the length field.
std::string encodeFrame(int invokeId, const std::string& xml);

// Cuts a byte stream into frames. Bytes come in chunks of any size (a header may be split too);
// next() gives each complete frame in order. A frame whose length is below the header size or
// above the limit, or whose invoke id is not four digits, makes next() throw CstaFramingError; the
// decoder then stays failed and throws again on every call, since nothing after it can be trusted.
class CstaFrameDecoder {
 public:
  explicit CstaFrameDecoder(std::size_t maxFrameSize = kDefaultMaxFrameSize) : m_maxFrameSize(maxFrameSize) {}

  void feed(const void* data, std::size_t size);
  // True and `frame` filled when a complete frame was buffered; false when more bytes are needed.
  bool next(CstaFrame& frame);
  // Bytes received and not yet given out as frames.
  std::size_t buffered() const { return m_buffer.size() - m_start; }

 private:
  [[noreturn]] void fail(std::string message);

  std::size_t m_maxFrameSize;
  std::string m_buffer;
  std::size_t m_start = 0;
  std::string m_error;
};

// What a document turned out to be.
struct CstaParseResult {
  enum Kind {
    Event,     // `event` holds the event
    Unknown,   // well-formed, but not an event this codec reads (or not in an ECMA-323 namespace)
    Malformed  // not well-formed XML; `error` says why
  };
  Kind kind = Unknown;
  std::unique_ptr<CSTAEvent> event;
  std::string elementName;        // local name of the document element, when there is one
  std::string monitorCrossRefId;  // text of the document element's monitorCrossRefID child, if any
  std::string error;
};

// Reads one event document. A SystemStatus request from the switch also comes out as a
// CSTASystemStatusEvent: the link answers it with systemStatusResponseXml() under the request's
// invoke id.
CstaParseResult parseCstaEvent(const std::string& xml);

// The answer to the switch's SystemStatus request.
std::string systemStatusResponseXml();

// The pieces parseCstaEvent is made of, for the link and for tests.

// A device identifier as the switch writes it (plain digits, tel:/sip: URI, N<digits>...;k=v,
// "Name" <sip:...>) -> number and name.
CSTADeviceID parseDeviceIdentifier(const std::string& text);
// An ECMA-323 cause name, or a decimal number, -> the cause; EC_NONE for anything else.
CSTAEventCause parseEventCause(const std::string& text);
// A localConnectionInfo value -> the state; CSTA_LCS_None for anything else.
CSTALocalConnectionState parseLocalConnectionState(const std::string& text);

}  // namespace csta_xml

#pragma GCC visibility pop
