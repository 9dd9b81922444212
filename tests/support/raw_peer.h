// SPDX-License-Identifier: MIT
// A loopback connection whose one end is a wxSocketClient handed to library
// objects and whose other end is a plain POSIX socket driven by the test.
//
// The raw end records every byte it receives and sends scripted bytes. It
// knows the frame rules on its own (raw up to 100 bytes, otherwise an 8-byte
// compressed length and a zlib stream, each acknowledged with 0x61) so that a
// test can script a peer without going through the library's code, and then
// assert the exact bytes that crossed the wire.
#ifndef QUOR_TESTS_RAW_PEER_H
#define QUOR_TESTS_RAW_PEER_H

#include <wx/socket.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace quor_test {

using Bytes = std::vector<uint8_t>;

// Bytes from a string of hexadecimal pairs; blanks are ignored
// ("05 00 00 00").
Bytes Hex(const std::string& p_sHex);
std::string ToHex(const Bytes& p_aBytes);

// Little-endian images of numbers, as the wire carries them.
template <typename T>
Bytes Le(const T& p_value) {
  Bytes l_a(sizeof(T));
  std::memcpy(l_a.data(), &p_value, sizeof(T));
  return l_a;
}
Bytes Cat(std::initializer_list<Bytes> p_aParts);
Bytes Text(const std::string& p_s);

class RawPeer {
 public:
  explicit RawPeer(int p_nFd);
  ~RawPeer();

  // Reads exactly n bytes, waiting at most the peer timeout. Returns fewer
  // only when the connection closed or the time ran out (Failed() is then
  // true). Every byte read is appended to Received().
  Bytes Read(size_t n);
  // Writes all bytes (appended to Sent()).
  bool Write(const Bytes& p_aBytes);
  bool Ack() { return Write(Bytes{0x61}); }

  // One value frame of n bytes sent by the library: reads it (raw, or the
  // length frame and the zlib stream), acknowledges each part, and returns
  // the value's bytes (inflated with zlib's uncompress when compressed).
  Bytes RecvFrame(size_t n);
  // A string frame sent by the library: the 8-byte count and the text bytes.
  std::string RecvString();
  template <typename T>
  T RecvValue() {
    Bytes l_a = RecvFrame(sizeof(T));
    T l_v{};
    if (l_a.size() == sizeof(T)) std::memcpy(&l_v, l_a.data(), sizeof(T));
    return l_v;
  }

  // One value frame sent to the library (raw or compressed by the 100-byte
  // rule), reading the acknowledgement of each part.
  bool SendFrame(const Bytes& p_aValue);
  bool SendString(const std::string& p_sText);
  template <typename T>
  bool SendValue(const T& p_value) {
    return SendFrame(Le(p_value));
  }

  // Everything received or sent so far, in order.
  const Bytes& Received() const { return m_aReceived; }
  const Bytes& Sent() const { return m_aSent; }
  void ClearRecorded() { m_aReceived.clear(); m_aSent.clear(); }
  // Bytes received since the given offset.
  Bytes ReceivedFrom(size_t p_nOffset) const;

  // True once a read came up short or a write failed.
  bool Failed() const { return m_bFailed; }
  // True when the library side has closed (a read returns end of stream
  // within the given time).
  bool WaitForClose(int p_nMillis);

  void Close();
  int Fd() const { return m_nFd; }
  void SetTimeoutMillis(int p_nMillis) { m_nTimeoutMillis = p_nMillis; }

 private:
  int m_nFd;
  int m_nTimeoutMillis = 10000;
  bool m_bFailed = false;
  Bytes m_aReceived;
  Bytes m_aSent;
};

// A connected pair on 127.0.0.1 and an ephemeral port. Socket() is a
// blocking wxSocketClient (wait-all, with the given timeout) ready for a
// library object; Peer() is the raw end.
class LoopbackPair {
 public:
  explicit LoopbackPair(int p_nTimeoutSeconds = 3);
  ~LoopbackPair();

  wxSocketClient* Socket() { return m_pcSocket; }
  RawPeer& Peer() { return *m_pcPeer; }

  // Runs a peer script on its own thread; Join() waits for it. The
  // destructor joins too. Library calls made on the test thread meanwhile
  // see the script's bytes.
  void Run(std::function<void(RawPeer&)> p_fScript);
  void Join();

 private:
  wxSocketClient* m_pcSocket = nullptr;
  std::unique_ptr<RawPeer> m_pcPeer;
  std::thread m_cThread;
};

// A raw listening socket on 127.0.0.1 with an ephemeral port, for tests in
// which a library client connects to a scripted server.
class RawListener {
 public:
  // p_nBacklog: the connections the kernel holds before they are accepted
  // (with 0 it holds one and drops the next one's SYN until there is room).
  explicit RawListener(int p_nBacklog = 16);
  ~RawListener();
  unsigned short Port() const { return m_nPort; }
  // Waits for one connection; nullptr after the timeout.
  std::unique_ptr<RawPeer> Accept(int p_nTimeoutMillis = 10000);

 private:
  int m_nFd = -1;
  unsigned short m_nPort = 0;
};

}  // namespace quor_test

#endif  // QUOR_TESTS_RAW_PEER_H
