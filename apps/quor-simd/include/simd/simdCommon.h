// SPDX-License-Identifier: MIT
// Vocabulary shared by the parts of the simulation server: the simulators
// on offer, text conversion and logging.
#ifndef QUOR_SIMD_SIMDCOMMON_H
#define QUOR_SIMD_SIMDCOMMON_H

#include <wx/log.h>
#include <wx/string.h>

#include <string>
#include <vector>

#include "quor/simulatorState.h"
#include "quor/steeringcontrol.h"
#include "quorapp/text.h"

namespace quor {
namespace simd {

// The simulators of the engine, each in a category of its own:
// {"Continuous", 0, {"continuous"}}, {"Stochastic", 1, {"stochastic"}}.
std::vector<QU_SimulatorCategory> SimulatorCategories();

// Finds a simulator by its name ("continuous") or by its category's name
// ("Continuous"), ignoring case and blanks around it. On success sets the
// category and simulator names and returns true.
bool ResolveSimulator(const wxString& p_sText, wxString& p_sCategory, wxString& p_sSimulator);

// The simulator a model runs with until a client chooses another one.
extern const char* const DEFAULT_SIMULATOR;

// UTF-8 text of the engine and wxString of the library.
using app::FromStd;
using app::ToStd;

// One log line through wxWidgets' log target: level 1 "Error: ",
// 2 "Warning: ", 3 "Notice: ". Unlike the library's LOG, the text is never
// taken as a format (file names may hold '%').
void Log(int p_nLevel, const wxString& p_sText);

// Formats log lines as "time: text": the lines of this program and of the
// library carry their own "Error: " / "Warning: " / "Notice: " prefix, so
// the level's prefix is added only to lines that lack one.
class PrefixedLogFormatter : public wxLogFormatter {
 public:
  wxString Format(wxLogLevel p_nLevel, const wxString& p_sText,
                  const wxLogRecordInfo& p_rInfo) const override;
};

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_SIMDCOMMON_H
