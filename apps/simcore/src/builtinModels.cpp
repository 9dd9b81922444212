// SPDX-License-Identifier: MIT
#include "simcore/builtinModels.h"

namespace quor {
namespace sim {

Net SirNet() {
  Net l_cNet;
  l_cNet.id = "sir";
  l_cNet.name = "SIR epidemic";
  l_cNet.source = "built-in:sir";
  l_cNet.AddParameter("beta", 0.0003);
  l_cNet.AddParameter("gamma", 0.1);
  l_cNet.AddPlace("S", 990.0);
  l_cNet.AddPlace("I", 10.0);
  l_cNet.AddPlace("R", 0.0);
  l_cNet.AddParameterTransition("infection", "beta");
  l_cNet.AddParameterTransition("recovery", "gamma");
  l_cNet.AddInputArc("S", "infection");
  l_cNet.AddInputArc("I", "infection");
  l_cNet.AddOutputArc("infection", "I", 2.0);
  l_cNet.AddInputArc("I", "recovery");
  l_cNet.AddOutputArc("recovery", "R");
  l_cNet.grid.start = 0.0;
  l_cNet.grid.end = 50.0;
  l_cNet.grid.step = 0.25;
  l_cNet.Validate();
  return l_cNet;
}

}  // namespace sim
}  // namespace quor
