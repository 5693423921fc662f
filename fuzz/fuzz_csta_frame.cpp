// Fuzz target: the byte stream of the switch link. The first byte chooses the size of the chunks
// the stream arrives in; the rest goes through csta_xml::CstaFrameDecoder, and each frame's
// document through parseCstaEvent, as the link does. Promises checked: frames come out whole and
// within the limit, a framing error leaves the decoder failed, each event is as the event target
// checks.
#include <algorithm>
#include <cstdint>
#include <string>

#include "CstaEventChecks.h"
#include "FuzzSupport.h"
#include "csta_link/CstaXml.h"

namespace {
constexpr size_t kLimit = 64 * 1024;  // small, so that the limit is reached
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::silenceLogs();
  if (size == 0) return 0;
  const size_t chunk = 1 + data[0] % 64;
  ++data;
  --size;
  csta_xml::CstaFrameDecoder decoder(kLimit);
  try {
    for (size_t at = 0; at < size; at += chunk) {
      decoder.feed(data + at, std::min(chunk, size - at));
      for (csta_xml::CstaFrame frame; decoder.next(frame);) {
        FUZZ_CHECK(frame.invokeId >= 0 && frame.invokeId <= 9999, "invoke id");
        FUZZ_CHECK(frame.xml.size() + csta_xml::kFrameHeaderSize <= kLimit, "frame size");
        fuzz::checkParsed(csta_xml::parseCstaEvent(frame.xml));
      }
    }
  } catch (const csta_xml::CstaFramingError&) {
    csta_xml::CstaFrame frame;
    bool stillFailed = false;
    try {
      decoder.next(frame);
    } catch (const csta_xml::CstaFramingError&) {
      stillFailed = true;
    }
    FUZZ_CHECK(stillFailed, "the decoder recovered after a framing error");
  }
  return 0;
}
