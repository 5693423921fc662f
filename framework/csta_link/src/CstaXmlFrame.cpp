// CSTA XML framing: the 8-byte header in front of every document on the switch link.
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "csta_link/CstaXml.h"

namespace csta_xml {

std::string encodeFrame(int invokeId, const std::string& xml) {
  if (invokeId < 0 || invokeId > 9999)
    throw std::invalid_argument("CSTA invoke id out of range 0..9999: " + std::to_string(invokeId));
  if (xml.size() > std::numeric_limits<std::uint32_t>::max() - kFrameHeaderSize)
    throw std::invalid_argument("CSTA document too long for one frame");
  const auto total = static_cast<std::uint32_t>(xml.size() + kFrameHeaderSize);
  std::string frame;
  frame.reserve(total);
  // A 32-bit big-endian length: below 64 KiB its first two bytes are zero, which is the 16-bit form.
  for (int shift = 24; shift >= 0; shift -= 8) frame.push_back(static_cast<char>((total >> shift) & 0xFF));
  const char digits[] = {static_cast<char>('0' + invokeId / 1000), static_cast<char>('0' + invokeId / 100 % 10),
                         static_cast<char>('0' + invokeId / 10 % 10), static_cast<char>('0' + invokeId % 10)};
  frame.append(digits, 4);
  frame += xml;
  return frame;
}

void CstaFrameDecoder::feed(const void* data, std::size_t size) {
  if (!m_error.empty()) return;
  // Drop what was handed out before growing the buffer, so that it does not grow without end.
  if (m_start > 0 && m_start == m_buffer.size()) {
    m_buffer.clear();
    m_start = 0;
  } else if (m_start > 4096 && m_start > m_buffer.size() / 2) {
    m_buffer.erase(0, m_start);
    m_start = 0;
  }
  m_buffer.append(static_cast<const char*>(data), size);
}

void CstaFrameDecoder::fail(std::string message) {
  m_error = std::move(message);
  throw CstaFramingError(m_error);
}

bool CstaFrameDecoder::next(CstaFrame& frame) {
  if (!m_error.empty()) throw CstaFramingError(m_error);
  if (buffered() < kFrameHeaderSize) return false;
  const auto* header = reinterpret_cast<const unsigned char*>(m_buffer.data() + m_start);
  std::uint32_t total = 0;
  for (int i = 0; i < 4; ++i) total = (total << 8) | header[i];
  if (total < kFrameHeaderSize)
    fail("CSTA frame length " + std::to_string(total) + " is shorter than the 8-byte header");
  if (total > m_maxFrameSize)
    fail("CSTA frame length " + std::to_string(total) + " exceeds the limit of " + std::to_string(m_maxFrameSize) +
         " bytes");
  int invokeId = 0;
  for (int i = 4; i < 8; ++i) {
    if (header[i] < '0' || header[i] > '9')
      fail("CSTA frame invoke id is not four decimal digits: '" + m_buffer.substr(m_start + 4, 4) + "'");
    invokeId = invokeId * 10 + (header[i] - '0');
  }
  if (buffered() < total) return false;
  frame.invokeId = invokeId;
  frame.xml.assign(m_buffer, m_start + kFrameHeaderSize, total - kFrameHeaderSize);
  m_start += total;
  return true;
}

}  // namespace csta_xml
