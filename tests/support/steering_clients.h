// SPDX-License-Identifier: MIT
// Steering clients against a server in the test's own process: each client
// runs on a thread of its own while the main thread runs wxWidgets' event
// loop (where the dispatcher accepts connections), and the runtime state
// of the client's model is polled with generous deadlines.
#ifndef QUOR_TESTS_STEERING_CLIENTS_H
#define QUOR_TESTS_STEERING_CLIENTS_H

#include <wx/string.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "raw_peer.h"

namespace quor {
class SteeringClient;
class SteeringModelStore;
}

namespace quor_test {

// Long enough for a loaded machine; a correct server needs a fraction.
const int CLIENT_DEADLINE_MS = 60000;

// Runs each body on a thread of its own with a client connected to
// 127.0.0.1:p_sService and attached to model p_nIndex, while the calling
// (main) thread runs the event loop, until every body has returned. A
// client that cannot connect or attach is a test failure. False when the
// bodies did not all return within 4 * CLIENT_DEADLINE_MS.
bool RunClientThreads(const wxString& p_sService,
                      const std::vector<std::function<void(quor::SteeringClient&)> >& p_afBodies,
                      int p_nIndex = 0);

// The runtime state of the client's current model, through
// ReadModelStatistics.
struct RunStats {
  unsigned int result = 0;  // of the request
  int state = -1;
  double progress = 0.0;
  double runtime = 0.0;
  int error = 0;
  int speed = 0;
  std::string category, algorithm;
};
RunStats ReadRunStats(quor::SteeringClient& p_rClient);

// Polls the runtime state until the predicate holds (true) or the deadline
// passes or a request fails (false); the last state read goes to *p_pcLast.
bool WaitForRunStats(quor::SteeringClient& p_rClient,
                     const std::function<bool(const RunStats&)>& p_fDone,
                     RunStats* p_pcLast = nullptr, int p_nTimeoutMs = CLIENT_DEADLINE_MS);
bool WaitForRunState(quor::SteeringClient& p_rClient, int p_nState, RunStats* p_pcLast = nullptr);

// A plain TCP connection to 127.0.0.1:p_nPort, driven by the test; NULL
// when nobody listens there.
std::unique_ptr<RawPeer> ConnectRawPeer(unsigned int p_nPort);

// Expects the store's result-matrix info of the model to describe
// p_nRows rows, row p being place p.
void ExpectPlaceRows(quor::SteeringModelStore& p_rStore, int p_nModel, unsigned int p_nRows);

// What the client's ReceiveErrorMessage returns (UTF-8).
std::string ErrorMessageOf(quor::SteeringClient& p_rClient);

}  // namespace quor_test

#endif  // QUOR_TESTS_STEERING_CLIENTS_H
