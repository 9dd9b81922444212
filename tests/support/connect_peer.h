// SPDX-License-Identifier: MIT
// Plain TCP connections to a server under test, driven by the test.
#ifndef QUOR_TESTS_CONNECT_PEER_H
#define QUOR_TESTS_CONNECT_PEER_H

#include <memory>

#include "raw_peer.h"

namespace quor_test {

// A connection to 127.0.0.1:port as a raw peer; nullptr when it cannot be
// made.
std::unique_ptr<RawPeer> ConnectRaw(unsigned int p_nPort);

// A peer that has read the protocol version (acknowledging it) and then
// completed one request (8, the simulator state) is served: true. Reads
// and writes wait at most the peer's timeout.
bool CompletesARequest(RawPeer& p_cPeer);

// True when the server closed the connection without sending a byte.
bool ClosedUnserved(RawPeer& p_cPeer);

}  // namespace quor_test

#endif  // QUOR_TESTS_CONNECT_PEER_H
