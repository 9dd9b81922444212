// SPDX-License-Identifier: MIT
// The commands of quor-steer. Each runs on a connected session, writes
// what it read on stdout (a table, or JSON with --json) and throws a
// Failure (steerSession.h) when it cannot do what it was asked.
#ifndef QUOR_STEER_COMMANDS_H
#define QUOR_STEER_COMMANDS_H

#include <string>
#include <vector>

#include "steerSession.h"

namespace quor {
namespace steer {

// What every command may use from the global options.
struct Globals {
  Connection connection;
  std::string model = "0";  // index or name of the running model to attach
  bool json = false;        // reading commands print JSON
  bool quiet = false;       // steering commands print nothing on success
};

// The options of start and restart. NaN: the model's own value.
struct StartOptions {
  std::string simulator;  // "" for the model's current simulator
  double from, to, step;
  long long speed = -1;  // points per second; -1 leaves the speed as it is
  StartOptions();
};

// The options of results, rates and plot.
struct SeriesOptions {
  std::string format;  // "" for the default (a table, or JSON with --json)
  std::string output;  // "" for stdout (plot: "results.png")
  std::vector<std::string> names;  // plot: the places to draw; all when empty
};

// NAME=VALUE as its two halves; a usage Failure otherwise (p_sWhat names
// the value in the message: "a number").
void SplitAssignment(const std::string& p_sText, std::string& p_rsName, std::string& p_rsValue);
// A decimal number, all of the text; a usage Failure otherwise.
double ParseNumber(const std::string& p_sText, const std::string& p_sWhat);

void RunModels(Session& p_rSession, const Globals& p_rGlobals);
void RunInfo(Session& p_rSession, const Globals& p_rGlobals);
void RunSimulators(Session& p_rSession, const Globals& p_rGlobals);
void RunSettings(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sSimulator);
void RunParams(Session& p_rSession, const Globals& p_rGlobals);
void RunMarking(Session& p_rSession, const Globals& p_rGlobals);
void RunState(Session& p_rSession, const Globals& p_rGlobals);
void RunInterval(Session& p_rSession, const Globals& p_rGlobals);
void RunSeries(Session& p_rSession, const Globals& p_rGlobals, bool p_bRates,
               const SeriesOptions& p_rOptions);
void RunLog(Session& p_rSession, const Globals& p_rGlobals);

void RunSet(Session& p_rSession, const Globals& p_rGlobals, const std::vector<std::string>& p_asAssignments);
void RunMark(Session& p_rSession, const Globals& p_rGlobals, const std::vector<std::string>& p_asAssignments);
void RunSetting(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sSimulator,
                const std::vector<std::string>& p_asAssignments);
void RunStart(Session& p_rSession, const Globals& p_rGlobals, const StartOptions& p_rOptions,
              bool p_bRestart);
// "pause", "resume" or "stop".
void RunCommand(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sCommand);
void RunSpeed(Session& p_rSession, const Globals& p_rGlobals, unsigned int p_nSpeed);
void RunUpload(Session& p_rSession, const Globals& p_rGlobals, const std::string& p_sFile);

// Follows the run until it ends: a live view on a terminal, a line per
// output point otherwise. A failed run is a Failure with the server's
// message.
void RunWatch(Session& p_rSession, const Globals& p_rGlobals);
// Draws the results through gnuplot into p_rOptions.output.
void RunPlot(Session& p_rSession, const Globals& p_rGlobals, const SeriesOptions& p_rOptions);

}  // namespace steer
}  // namespace quor

#endif  // QUOR_STEER_COMMANDS_H
