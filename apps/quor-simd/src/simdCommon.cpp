// SPDX-License-Identifier: MIT
#include "simd/simdCommon.h"

#include <wx/log.h>

#include <cctype>

#include "simcore/simulator.h"

namespace quor {
namespace simd {

const char* const DEFAULT_SIMULATOR = "continuous";

std::vector<QU_SimulatorCategory> SimulatorCategories() {
  std::vector<QU_SimulatorCategory> l_aCategories;
  for (const sim::SimulatorKind& l_cKind : sim::AvailableSimulators()) {
    QU_SimulatorCategory l_cCategory;
    // The category is the kind with a capital: "Continuous", "Stochastic".
    std::string l_sCategory = l_cKind.name;
    if (!l_sCategory.empty())
      l_sCategory[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(l_sCategory[0])));
    l_cCategory.m_sCategoryName = FromStd(l_sCategory);
    l_cCategory.m_nCategoryId = static_cast<int>(l_aCategories.size());
    l_cCategory.m_asSimulatorNames.push_back(FromStd(l_cKind.name));
    l_aCategories.push_back(l_cCategory);
  }
  return l_aCategories;
}

bool ResolveSimulator(const wxString& p_sText, wxString& p_sCategory, wxString& p_sSimulator) {
  wxString l_sText = p_sText;
  l_sText.Trim(true).Trim(false);
  if (l_sText.empty()) return false;
  for (const QU_SimulatorCategory& l_cCategory : SimulatorCategories()) {
    for (const wxString& l_sName : l_cCategory.m_asSimulatorNames) {
      if (l_sText.IsSameAs(l_sName, false) || l_sText.IsSameAs(l_cCategory.m_sCategoryName, false)) {
        p_sCategory = l_cCategory.m_sCategoryName;
        p_sSimulator = l_sName;
        return true;
      }
    }
  }
  return false;
}

void Log(int p_nLevel, const wxString& p_sText) {
  wxString l_sPrefix;
  switch (p_nLevel) {
    case 1: l_sPrefix = wxT("Error: "); break;
    case 2: l_sPrefix = wxT("Warning: "); break;
    case 3: l_sPrefix = wxT("Notice: "); break;
    default: break;
  }
  wxLogGeneric(static_cast<wxLogLevel>(p_nLevel), wxT("%s"), l_sPrefix + p_sText);
}

wxString PrefixedLogFormatter::Format(wxLogLevel p_nLevel, const wxString& p_sText,
                                      const wxLogRecordInfo& p_rInfo) const {
  wxString l_sPrefix;
  if (p_nLevel == wxLOG_FatalError || p_nLevel == wxLOG_Error) {
    if (!p_sText.StartsWith(wxT("Error: "))) l_sPrefix = wxT("Error: ");
  } else if (p_nLevel == wxLOG_Warning) {
    if (!p_sText.StartsWith(wxT("Warning: "))) l_sPrefix = wxT("Warning: ");
  }
  // The time stamp comes with its ": " (nothing when time stamps are off).
  return FormatTimeMS(p_rInfo.timestampMS) + l_sPrefix + p_sText;
}

}  // namespace simd
}  // namespace quor
