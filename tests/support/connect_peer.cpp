// SPDX-License-Identifier: MIT
#include "connect_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "quor/steeringcontrol.h"

namespace quor_test {

std::unique_ptr<RawPeer> ConnectRaw(unsigned int p_nPort) {
  const int l_nFd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (l_nFd < 0) return nullptr;
  sockaddr_in l_cAddr{};
  l_cAddr.sin_family = AF_INET;
  l_cAddr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  l_cAddr.sin_port = htons(static_cast<unsigned short>(p_nPort));
  if (::connect(l_nFd, reinterpret_cast<sockaddr*>(&l_cAddr), sizeof(l_cAddr)) != 0) {
    ::close(l_nFd);
    return nullptr;
  }
  return std::unique_ptr<RawPeer>(new RawPeer(l_nFd));
}

bool CompletesARequest(RawPeer& p_cPeer) {
  if (p_cPeer.RecvValue<uint32_t>() != quor::STEERING_PROTOCOL_VERSION || p_cPeer.Failed())
    return false;
  p_cPeer.SendValue<int32_t>(quor::REQUEST_READ_SIMULATOR_STATE);
  p_cPeer.RecvValue<int32_t>();
  return !p_cPeer.Failed();
}

bool ClosedUnserved(RawPeer& p_cPeer) {
  return p_cPeer.Read(1).empty() && p_cPeer.Received().empty();
}

}  // namespace quor_test
