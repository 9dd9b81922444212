// SPDX-License-Identifier: MIT
#include "steerOutput.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "quorapp/text.h"

namespace quor {
namespace steer {

std::string Number(double p_dValue) {
  if (std::isnan(p_dValue)) return "nan";
  if (std::isinf(p_dValue)) return p_dValue > 0 ? "inf" : "-inf";
  // The fewest significant digits that read back as the same double, in
  // the form %g chooses (0.0003 rather than 3e-04).
  // Whole numbers below 1e17 keep all their digits (50, not 5e+01).
  const double l_dMagnitude = std::fabs(p_dValue);
  const int l_nIntegerDigits =
      l_dMagnitude >= 1.0 && l_dMagnitude < 1e17
          ? static_cast<int>(std::floor(std::log10(l_dMagnitude))) + 1
          : 1;
  char l_acBuffer[64];
  for (int l_nDigits = 1; l_nDigits <= 17; ++l_nDigits) {
    std::snprintf(l_acBuffer, sizeof(l_acBuffer), "%.*g", std::max(l_nDigits, l_nIntegerDigits),
                  p_dValue);
    double l_dBack = 0.0;
    const char* l_pEnd = l_acBuffer + std::strlen(l_acBuffer);
    if (std::from_chars(l_acBuffer, l_pEnd, l_dBack).ptr == l_pEnd && l_dBack == p_dValue) break;
  }
  return l_acBuffer;
}

std::string ShortNumber(double p_dValue) {
  char l_acBuffer[64];
  std::snprintf(l_acBuffer, sizeof(l_acBuffer), "%.6g", p_dValue);
  return l_acBuffer;
}

void PrintTable(std::ostream& p_rOut, const std::vector<std::vector<std::string> >& p_aasRows,
                bool p_bLeftAligned) {
  std::vector<std::size_t> l_anWidths;
  for (const std::vector<std::string>& l_asRow : p_aasRows) {
    if (l_anWidths.size() < l_asRow.size()) l_anWidths.resize(l_asRow.size(), 0);
    for (std::size_t i = 0; i < l_asRow.size(); ++i)
      l_anWidths[i] = std::max(l_anWidths[i], l_asRow[i].size());
  }
  for (const std::vector<std::string>& l_asRow : p_aasRows) {
    std::string l_sLine;
    for (std::size_t i = 0; i < l_asRow.size(); ++i) {
      const std::string l_sPad(l_anWidths[i] - l_asRow[i].size(), ' ');
      if (i > 0) l_sLine += "  ";
      const bool l_bLast = i + 1 == l_asRow.size();
      if (i == 0 || p_bLeftAligned)
        l_sLine += l_asRow[i] + (l_bLast ? std::string() : l_sPad);
      else
        l_sLine += l_sPad + l_asRow[i];
    }
    l_sLine.erase(l_sLine.find_last_not_of(' ') + 1);
    p_rOut << l_sLine << '\n';
  }
}

bool ParseSeriesFormat(const std::string& p_sName, SeriesFormat& p_reFormat) {
  if (p_sName == "table") p_reFormat = SeriesFormat::TABLE;
  else if (p_sName == "csv") p_reFormat = SeriesFormat::CSV;
  else if (p_sName == "tsv") p_reFormat = SeriesFormat::TSV;
  else if (p_sName == "json") p_reFormat = SeriesFormat::JSON;
  else return false;
  return true;
}

std::size_t Series::Points() const {
  std::size_t l_nPoints = times.size();
  for (const std::vector<double>& l_adRow : rows) l_nPoints = std::min(l_nPoints, l_adRow.size());
  return l_nPoints;
}

namespace {

// A TSV field cannot hold a tab or a line break: they become blanks.
std::string TsvField(std::string p_sText) {
  std::replace_if(p_sText.begin(), p_sText.end(),
                  [](char p_c) { return p_c == '\t' || p_c == '\n' || p_c == '\r'; }, ' ');
  return p_sText;
}

}  // namespace

Json SeriesJson(const Series& p_rSeries) {
  const std::size_t l_nPoints = p_rSeries.Points();
  Json l_cJson = Json::object();
  l_cJson["time"] = std::vector<double>(p_rSeries.times.begin(),
                                        p_rSeries.times.begin() + static_cast<long>(l_nPoints));
  for (std::size_t r = 0; r < p_rSeries.rows.size() && r < p_rSeries.names.size(); ++r)
    l_cJson[p_rSeries.names[r]] = std::vector<double>(
        p_rSeries.rows[r].begin(), p_rSeries.rows[r].begin() + static_cast<long>(l_nPoints));
  return l_cJson;
}

void WriteSeries(std::ostream& p_rOut, const Series& p_rSeries, SeriesFormat p_eFormat) {
  const std::size_t l_nPoints = p_rSeries.Points();
  if (p_eFormat == SeriesFormat::JSON) {
    p_rOut << SeriesJson(p_rSeries).dump() << '\n';
    return;
  }
  std::vector<std::vector<std::string> > l_aasRows;
  l_aasRows.reserve(l_nPoints + 1);
  l_aasRows.push_back({"time"});
  for (const std::string& l_sName : p_rSeries.names) l_aasRows[0].push_back(l_sName);
  for (std::size_t c = 0; c < l_nPoints; ++c) {
    std::vector<std::string> l_asRow{Number(p_rSeries.times[c])};
    for (const std::vector<double>& l_adRow : p_rSeries.rows) l_asRow.push_back(Number(l_adRow[c]));
    l_aasRows.push_back(l_asRow);
  }
  if (p_eFormat == SeriesFormat::TABLE) {
    PrintTable(p_rOut, l_aasRows);
    return;
  }
  const bool l_bCsv = p_eFormat == SeriesFormat::CSV;
  for (const std::vector<std::string>& l_asRow : l_aasRows) {
    for (std::size_t i = 0; i < l_asRow.size(); ++i) {
      if (i > 0) p_rOut << (l_bCsv ? ',' : '\t');
      p_rOut << (l_bCsv ? app::CsvField(l_asRow[i]) : TsvField(l_asRow[i]));
    }
    p_rOut << '\n';
  }
}

}  // namespace steer
}  // namespace quor
