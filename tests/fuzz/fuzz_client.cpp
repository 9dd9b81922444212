// SPDX-License-Identifier: MIT
// The client's reading of every reply: a SteeringClient connects to a
// scripted server, which announces protocol version 7 and then sends the
// input's bytes whatever the client asks, and runs one to four request
// operations.
//
// Input: an operation count byte (1 + b % 4), that many operation bytes
// (b % CLIENT_OP_COUNT, see ClientOp; an operation that needs a current
// model is skipped without one, so a sequence starts with a registration),
// then the script of what the server sends after the version. A model the
// client receives must pack again and stand up to an application's use.
#include "fuzz_support.h"

#include <wx/app.h>

#include "quor/steeringclient.h"

using namespace quor;
using namespace quor_fuzz;

namespace {
constexpr unsigned int MAX_OPERATIONS = 4;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Initialize();
  Input l_cInput(p_pData, p_nSize);
  const unsigned int l_nOperations = 1 + l_cInput.Byte() % MAX_OPERATIONS;
  ClientOp l_aeOperations[MAX_OPERATIONS];
  for (unsigned int i = 0; i < l_nOperations; ++i)
    l_aeOperations[i] = static_cast<ClientOp>(l_cInput.Byte() % CLIENT_OP_COUNT);

  {
    AllocationBound l_cBound(p_nSize);
    ScriptedServer l_cServer(l_cInput.Wire());
    SteeringClient l_cClient(wxT("127.0.0.1"), l_cServer.Service());
    l_cClient.SetTimeout(SOCKET_TIMEOUT_SECONDS);
    if (l_cClient.ConnectToServer(true) != 1) Fail("the client cannot connect to the scripted server");
    {
      ClientRun l_cRun(l_cClient);
      for (unsigned int i = 0; i < l_nOperations; ++i) l_cRun.Run(l_aeOperations[i]);
    }
    l_cClient.DisConnectFromServer();
    l_cServer.Finish();
  }
  // The client's socket is destroyed when the application is idle.
  wxAppConsole::GetInstance()->ProcessIdle();
  return 0;
}
