// SPDX-License-Identifier: MIT
#include "simcore/textNumbers.h"

#include <charconv>
#include <cmath>

namespace quor {
namespace sim {

std::string Trim(const std::string& p_sText) {
  const char* l_sBlanks = " \t\r\n";
  std::size_t l_nBegin = p_sText.find_first_not_of(l_sBlanks);
  if (l_nBegin == std::string::npos) return std::string();
  std::size_t l_nEnd = p_sText.find_last_not_of(l_sBlanks);
  return p_sText.substr(l_nBegin, l_nEnd - l_nBegin + 1);
}

bool ParseDouble(const std::string& p_sText, double& p_rdValue) {
  std::string l_sText = Trim(p_sText);
  if (l_sText.empty()) return false;
  const char* l_pBegin = l_sText.data();
  const char* l_pEnd = l_pBegin + l_sText.size();
  // from_chars takes no leading '+'; accept it as people write it.
  if (*l_pBegin == '+') {
    ++l_pBegin;
    if (l_pBegin == l_pEnd || *l_pBegin == '-') return false;
  }
  double l_dValue = 0.0;
  std::from_chars_result l_cResult =
      std::from_chars(l_pBegin, l_pEnd, l_dValue, std::chars_format::general);
  if (l_cResult.ec != std::errc() || l_cResult.ptr != l_pEnd) return false;
  if (!std::isfinite(l_dValue)) return false;
  p_rdValue = l_dValue;
  return true;
}

bool ParseUInt64(const std::string& p_sText, std::uint64_t& p_rnValue) {
  std::string l_sText = Trim(p_sText);
  if (l_sText.empty()) return false;
  const char* l_pBegin = l_sText.data();
  const char* l_pEnd = l_pBegin + l_sText.size();
  if (*l_pBegin == '+') ++l_pBegin;
  if (l_pBegin == l_pEnd || *l_pBegin < '0' || *l_pBegin > '9') return false;
  std::uint64_t l_nValue = 0;
  std::from_chars_result l_cResult = std::from_chars(l_pBegin, l_pEnd, l_nValue, 10);
  if (l_cResult.ec != std::errc() || l_cResult.ptr != l_pEnd) return false;
  p_rnValue = l_nValue;
  return true;
}

std::string FormatDouble(double p_dValue) {
  if (std::isnan(p_dValue)) return std::string("nan");  // never "-nan"
  char l_acBuffer[64];
  std::to_chars_result l_cResult =
      std::to_chars(l_acBuffer, l_acBuffer + sizeof(l_acBuffer), p_dValue);
  if (l_cResult.ec != std::errc()) return std::string("nan");
  return std::string(l_acBuffer, l_cResult.ptr);
}

}  // namespace sim
}  // namespace quor
