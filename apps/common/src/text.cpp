// SPDX-License-Identifier: MIT
#include "quorapp/text.h"

namespace quor {
namespace app {

wxString FromStd(const std::string& p_sText) {
  return wxString::FromUTF8(p_sText.data(), p_sText.size());
}

std::string ToStd(const wxString& p_sText) {
  const wxScopedCharBuffer l_cUtf8 = p_sText.utf8_str();
  return std::string(l_cUtf8.data(), l_cUtf8.length());
}

std::string CsvField(const std::string& p_sText) {
  if (p_sText.find_first_of(",\"\r\n") == std::string::npos) return p_sText;
  std::string l_sQuoted = "\"";
  for (char l_c : p_sText) {
    if (l_c == '"') l_sQuoted += '"';
    l_sQuoted += l_c;
  }
  return l_sQuoted + "\"";
}

}  // namespace app
}  // namespace quor
