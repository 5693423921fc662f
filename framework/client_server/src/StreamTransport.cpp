// The framed stream transport of the Unix socket and TCP clients: each message is a 4-byte
// big-endian length of the payload, then the payload.
#include <algorithm>
#include <array>

#include "Transport.h"
#include "framework/Logging.h"

namespace fw {
namespace clientserver {

namespace {

class StreamTransport : public Transport {
 public:
  StreamTransport(Socket socket, std::size_t maxFrameSize)
      : m_socket(std::move(socket)), m_maxFrameSize(maxFrameSize) {}

  void readMessage() override { readHeader(); }
  void writeMessage(const std::string& payload, Written written) override;
  std::size_t wireSize(std::size_t payloadSize) const override { return sizeof m_outHeader + payloadSize; }
  void close() override;

 private:
  void readHeader();
  // Reads the `length` bytes of a frame's body in pieces, appending them to m_body.
  void readBody(std::size_t length);

  Socket m_socket;
  const std::size_t m_maxFrameSize;
  bool m_closed = false;
  unsigned char m_header[4] = {0, 0, 0, 0};
  std::string m_body;                                   // the frame being read; grows as its bytes arrive
  static constexpr std::size_t kReadPiece = 16 * 1024;  // the most one read adds to m_body
  char m_outHeader[4] = {0, 0, 0, 0};                   // the length of the message being written
};

void StreamTransport::readHeader() {
  auto keep = owner();
  asio::async_read(
      m_socket, asio::buffer(m_header, sizeof m_header), [this, keep](const asio::error_code& ec, std::size_t) {
        if (m_closed) return;
        if (ec) {
          events().transportEnded(ec == asio::error::eof ? "closed by the client" : ec.message(), kLogTrace);
          return;
        }
        const std::size_t length = (std::size_t{m_header[0]} << 24) | (std::size_t{m_header[1]} << 16) |
                                   (std::size_t{m_header[2]} << 8) | std::size_t{m_header[3]};
        if (length > m_maxFrameSize) {
          events().transportEnded(
              "frame of " + std::to_string(length) + " bytes is over the limit of " + std::to_string(m_maxFrameSize),
              kLogError);
          return;
        }
        m_body.clear();
        readBody(length);
      });
}

void StreamTransport::readBody(std::size_t length) {
  const std::size_t have = m_body.size();
  if (have == length) {
    events().messageArrived(std::move(m_body));
    return;
  }
  // The buffer grows by what may come now, not by what the header announced.
  const std::size_t wanted = std::min(kReadPiece, length - have);
  m_body.resize(have + wanted);
  auto keep = owner();
  m_socket.async_read_some(
      asio::buffer(&m_body[have], wanted), [this, keep, length, have](const asio::error_code& ec, std::size_t n) {
        if (m_closed) return;
        if (ec) {
          events().transportEnded(ec == asio::error::eof ? "closed by the client inside a frame" : ec.message(),
                                  kLogNotable);
          return;
        }
        m_body.resize(have + n);
        readBody(length);
      });
}

// The length and the payload are written as two buffers, so that a megabyte reply is never moved
// to make room for its length.
void StreamTransport::writeMessage(const std::string& payload, Written written) {
  const auto length = static_cast<uint32_t>(payload.size());
  m_outHeader[0] = static_cast<char>((length >> 24) & 0xff);
  m_outHeader[1] = static_cast<char>((length >> 16) & 0xff);
  m_outHeader[2] = static_cast<char>((length >> 8) & 0xff);
  m_outHeader[3] = static_cast<char>(length & 0xff);
  const std::array<asio::const_buffer, 2> buffers = {asio::buffer(m_outHeader), asio::buffer(payload)};
  auto keep = owner();
  asio::async_write(m_socket, buffers,
                    [this, keep, written = std::move(written)](const asio::error_code& ec, std::size_t) {
                      if (m_closed) return;
                      written(ec);
                    });
}

void StreamTransport::close() {
  if (m_closed) return;
  m_closed = true;
  asio::error_code ignored;
  m_socket.shutdown(asio::socket_base::shutdown_both, ignored);
  m_socket.close(ignored);
}

}  // namespace

std::unique_ptr<Transport> makeStreamTransport(Transport::Socket socket, std::size_t maxFrameSize) {
  return std::make_unique<StreamTransport>(std::move(socket), maxFrameSize);
}

}  // namespace clientserver
}  // namespace fw
