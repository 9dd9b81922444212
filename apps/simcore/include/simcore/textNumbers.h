// SPDX-License-Identifier: MIT
// Numbers as text, independent of the C library's locale: the decimal
// separator is always '.', so a file or a setting reads the same whatever
// locale the server runs in.
#ifndef QUOR_SIMCORE_TEXTNUMBERS_H
#define QUOR_SIMCORE_TEXTNUMBERS_H

#include <cstdint>
#include <string>

namespace quor {
namespace sim {

// Reads a whole finite number ("1", "-2.5", "1e-3", " 0.5 "); leading and
// trailing blanks are allowed, anything else is not. False on failure
// (p_rdValue unchanged).
bool ParseDouble(const std::string& p_sText, double& p_rdValue);

// Reads a whole unsigned decimal integer (blanks around it allowed).
bool ParseUInt64(const std::string& p_sText, std::uint64_t& p_rnValue);

// The shortest text that reads back as exactly p_dValue ("0.1", "1e-09").
std::string FormatDouble(double p_dValue);

// Blanks (space, tab, CR, LF) removed at both ends.
std::string Trim(const std::string& p_sText);

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_TEXTNUMBERS_H
