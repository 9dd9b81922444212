// SPDX-License-Identifier: MIT
// How quor-steer writes what it read: numbers that read back as the same
// double, aligned tables for people, CSV and TSV for spreadsheets, and the
// time series of a run (time column first, a column per place or
// transition) in every format.
#ifndef QUOR_STEER_OUTPUT_H
#define QUOR_STEER_OUTPUT_H

#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace quor {
namespace steer {

typedef nlohmann::ordered_json Json;

// The shortest text that reads back as the same double ("0.1", "1e-09";
// "nan", "inf" and "-inf" for the values that are not finite).
std::string Number(double p_dValue);
// A short form for tables that people read ("%.6g").
std::string ShortNumber(double p_dValue);

// Rows of text, printed with each column as wide as its widest cell; the
// first column is left-aligned, the others right-aligned unless
// p_bLeftAligned. Two spaces between columns, no trailing blanks.
void PrintTable(std::ostream& p_rOut, const std::vector<std::vector<std::string> >& p_aasRows,
                bool p_bLeftAligned = false);

// The formats of a time series.
enum class SeriesFormat { TABLE, CSV, TSV, JSON };
// "table", "csv", "tsv", "json"; false for another name.
bool ParseSeriesFormat(const std::string& p_sName, SeriesFormat& p_reFormat);

// A run's time series: p_aadRows[r][c] is row r (a place or a transition,
// named p_asNames[r]) at output point c, whose time is p_adTimes[c].
// Columns that some rows lack (a matrix read while it grows) are left out.
struct Series {
  std::vector<std::string> names;
  std::vector<double> times;
  std::vector<std::vector<double> > rows;

  // The output points every row has (and that have a time).
  std::size_t Points() const;
};

// TABLE: a header line ("time" and the names), one aligned line per point;
// CSV and TSV: the same with ',' or a tab between the fields (CSV fields
// quoted where needed); JSON: one object with an array per column,
// "time" first.
void WriteSeries(std::ostream& p_rOut, const Series& p_rSeries, SeriesFormat p_eFormat);
Json SeriesJson(const Series& p_rSeries);

}  // namespace steer
}  // namespace quor

#endif  // QUOR_STEER_OUTPUT_H
