// SPDX-License-Identifier: MIT
// Text between the library (wxString) and standard C++ (UTF-8 in a
// std::string).
#ifndef QUORAPP_TEXT_H
#define QUORAPP_TEXT_H

#include <wx/string.h>

#include <string>

namespace quor {
namespace app {

// UTF-8 text as a wxString (text that is not UTF-8 gives "").
wxString FromStd(const std::string& p_sText);
// A wxString as UTF-8 text.
std::string ToStd(const wxString& p_sText);
// A CSV field: quoted when it holds a separator, a quote or a line break.
std::string CsvField(const std::string& p_sText);

}  // namespace app
}  // namespace quor

#endif  // QUORAPP_TEXT_H
