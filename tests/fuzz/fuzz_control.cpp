// SPDX-License-Identifier: MIT
// Control messages: the simulation interval (24 bytes), the start command
// (a name, then the interval) and the list of available simulators (a
// count, then per category a name, an id and a list of names).
//
// Input: a mode byte (mode % 3: 0 interval, 1 start command, 2 available
// simulators; 0x80 set: the receiving list holds two categories first),
// then the script of the peer's bytes. An interval (also a start command's)
// reported as received is compared with an independent reading.
#include "fuzz_support.h"

#include "quor/steeringcmd.h"

using namespace quor;
using namespace quor_fuzz;

namespace {
void CheckInterval(FrameReader& p_cReader, const double* p_adInterval) {
  Bytes l_aExpected;
  bool l_bExact = true;
  if (!p_cReader.Value(24, &l_aExpected, &l_bExact))
    Fail("an interval was reported received whose bytes never came");
  CheckReceived("interval", reinterpret_cast<const uint8_t*>(p_adInterval), l_aExpected, l_bExact);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  const uint8_t l_nMode = l_cPeer.Header();
  SteeringCMD l_cControl(l_cPeer.Socket());
  FrameReader l_cReader(l_cPeer.Wire());
  double l_adInterval[3] = {-1.0, -1.0, -1.0};
  switch ((l_nMode & 0x7f) % 3) {
    case 0:
      if (l_cControl.ReceiveSimulationInterval(l_adInterval[0], l_adInterval[1], l_adInterval[2]) == 1)
        CheckInterval(l_cReader, l_adInterval);
      break;
    case 1: {
      wxString l_sName;
      // The name's own result is not examined (the protocol's rule): the
      // interval is compared only where both readings took the same name.
      if (l_cControl.ReceiveStartCMD(l_sName, l_adInterval[0], l_adInterval[1], l_adInterval[2]) == 1) {
        wxString l_sExpected;
        bool l_bExact = true;
        if (l_cReader.String(&l_sExpected, &l_bExact) && l_bExact && l_sName == l_sExpected)
          CheckInterval(l_cReader, l_adInterval);
      }
      break;
    }
    default: {
      std::vector<QU_SimulatorCategory> l_aList;
      if (l_nMode & 0x80) l_aList = SampleSimulators();
      l_cControl.ReceiveAvailableSimulators(l_aList);
      break;
    }
  }
  return 0;
}
