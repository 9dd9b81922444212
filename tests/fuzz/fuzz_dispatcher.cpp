// SPDX-License-Identifier: MIT
// The dispatcher's request decoding, as a black box: a SteeringDispatcher
// with the default SteeringHandler, whose store holds the sample model, the
// coloured one and their results (FillStore), serves one connection per
// input while this target runs the wxWidgets event loop.
//
// Input: the script of everything the client sends, from the
// acknowledgement of the protocol version on. The client's side then ends
// its sending; the dispatcher must close the connection (a client that ends
// between requests or in the middle of one is done) without a crash, a leak
// or a wait for its socket timeout.
#include "fuzz_support.h"

#include <poll.h>
#include <unistd.h>

#include <wx/log.h>

#include "quor/steeringdispatcher.h"
#include "quor/steeringhandler.h"
#include "quor/steeringserver.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Initialize();
  SteeringServer& l_cServer = LoopbackServer();
  const Bytes l_aWire = Input(p_pData, p_nSize).Wire();

  SteeringHandler l_cHandler;
  FillStore(l_cHandler.GetStore());
  {
    AllocationBound l_cBound(p_nSize);
    SteeringDispatcher l_cDispatcher(l_cServer, l_cHandler);
    l_cDispatcher.SetTimeout(SOCKET_TIMEOUT_SECONDS);
    if (!l_cDispatcher.Start()) Fail("the dispatcher does not start");
    const int l_nFd = ConnectLoopback(static_cast<unsigned short>(l_cServer.GetPort()));
    // The event loop accepts the connection (and its worker announces the
    // version).
    for (int l_nRound = 0; l_nRound < 10000; ++l_nRound) {
      PumpEvents(1);
      pollfd l_cPoll = {l_nFd, POLLIN, 0};
      if (l_cDispatcher.GetConnectionCount() > 0 || ::poll(&l_cPoll, 1, 0) > 0) break;
    }
    // The client's side of the conversation, on this thread: the worker
    // serves it on its own.
    Converse(l_nFd, l_aWire, 60000, true);
    ::close(l_nFd);
    l_cDispatcher.Shutdown();
  }
  // Log lines of the workers, and what they left for the main thread.
  wxLog::FlushActive();
  PumpEvents(0);
  return 0;
}
