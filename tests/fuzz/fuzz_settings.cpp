// SPDX-License-Identifier: MIT
// Simulator settings: a SimulatorAttribute receives a peer's list of
// settings (a 4-byte count, then each record's fields in key order).
//
// Input: a byte (0x80 set: the receiving list holds two settings), then the
// script of the peer's bytes. Every received setting must be readable and
// writable by its index, and the list must go through a store as a server
// keeps it.
#include "fuzz_support.h"

#include "quor/simulatorattribute.h"
#include "quor/steeringBase.h"
#include "quor/steeringmodelstore.h"

using namespace quor;
using namespace quor_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* p_pData, size_t p_nSize) {
  Reception l_cPeer(p_pData, p_nSize);
  SteeringBase l_cBase(l_cPeer.Socket());
  SimulatorAttribute l_cSettings;
  if (l_cPeer.Header() & 0x80) FillSettings(l_cSettings);
  const unsigned int l_nResult = l_cSettings.ReceiveAttributes(&l_cBase);
  l_cPeer.GetFeed().Finish();
  for (unsigned int i = 0; i < l_cSettings.size(); ++i) {
    wxString l_sName, l_sCaption, l_sValue;
    unsigned int l_nGui = 0;
    double l_dMin = 0.0, l_dMax = 0.0;
    if (!l_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax))
      Fail("setting %u of %llu cannot be read", i, l_cSettings.size());
    l_cSettings.GetPossibleValues(i);
    l_cSettings.UpdateAttribute(i, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax);
  }
  if (l_nResult == 1) {
    SteeringModelStore l_cStore;
    l_cStore.SetSimulatorSettings(wxT("fuzzed"), l_cSettings);
    SimulatorAttribute l_cCopy;
    if (!l_cStore.GetSimulatorSettings(wxT("fuzzed"), l_cCopy) || l_cCopy.size() != l_cSettings.size())
      Fail("received settings do not come out of the store as they went in");
  }
  return 0;
}
