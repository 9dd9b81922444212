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

}  // namespace app
}  // namespace quor
