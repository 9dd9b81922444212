// SPDX-License-Identifier: MIT
// quor-steer: read and steer a running QUOR simulation from the shell.
//
//   quor-steer [global options] COMMAND [args]
//
// Exit status: 0 success; 1 the server refused, a request failed or the
// run failed (the server's message on stderr); 2 a usage error (an unknown
// name included); 3 no server could be reached; 4 the server speaks
// another protocol version.
#include <CLI/CLI.hpp>

#include <cstring>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "quorapp/console.h"
#include "quorapp/program.h"
#include "quorapp/text.h"
#include "steerCommands.h"
#include "steerSession.h"

namespace {

using namespace quor::steer;

const quor::app::ProgramInfo PROGRAM = {
    "quor-steer", "Reads and steers a running QUOR simulation from the shell."};

const char* const USAGE = "Usage: quor-steer [global options] COMMAND [args]";

// What a command needs from the server before it runs.
enum class Needs { CONNECTION, MODEL };

struct Command {
  CLI::App* app;
  Needs needs;
  std::function<void(Session&, const Globals&)> run;
};

void UsageError(const std::string& p_sText) {
  std::cerr << PROGRAM.name << ": " << p_sText << "\n"
            << USAGE << "\nTry '" << PROGRAM.name << " --help' for more information." << std::endl;
}

// The first word of the command line that is neither a global option nor
// its value: the command the user meant.
std::string CommandWord(int p_nArgc, char** p_apArgv) {
  static const std::set<std::string> VALUED = {"--host", "--port", "--timeout", "--model"};
  for (int i = 1; i < p_nArgc; ++i) {
    const std::string l_sArg = p_apArgv[i];
    if (VALUED.count(l_sArg) > 0) {
      ++i;
      continue;
    }
    if (!l_sArg.empty() && l_sArg[0] == '-') continue;
    return l_sArg;
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  quor::app::Console l_cConsole(argc, argv);
  if (!l_cConsole.IsOk()) return STATUS_FAILED;

  Globals l_cGlobals;
  bool l_bVersion = false;
  CLI::App l_cApp(PROGRAM.purpose, PROGRAM.name);
  l_cApp.require_subcommand(0, 1);
  l_cApp.footer(
      "Exit status: 0 success; 1 the server refused, a request failed or the run failed;\n"
      "2 a usage error (an unknown name included); 3 no server could be reached;\n"
      "4 the server speaks another protocol version.\n"
      "'quor-steer COMMAND --help' shows the arguments of a command.");
  l_cApp.add_flag("--version", l_bVersion, "Show the version and exit");
  l_cApp.add_option("--host", l_cGlobals.connection.host, "The server's host (127.0.0.1)")
      ->envname("QUOR_STEER_HOST");
  l_cApp.add_option("--port", l_cGlobals.connection.port, "The server's port (3000)")
      ->check(CLI::Range(1, 65535))
      ->envname("QUOR_STEER_PORT");
  l_cApp.add_option("--timeout", l_cGlobals.connection.timeout,
                    "Seconds to wait for the connection and for each request (10)")
      ->check(CLI::Range(1, 3600));
  l_cApp.add_option("--model", l_cGlobals.model,
                    "The running model to attach: its index or its name (0)")
      ->envname("QUOR_STEER_MODEL");
  l_cApp.add_flag("--json", l_cGlobals.json, "Reading commands print JSON instead of a table");
  l_cApp.add_flag("-q,--quiet", l_cGlobals.quiet,
                  "Steering commands print nothing on success; watch draws nothing");

  std::vector<Command> l_aCommands;
  auto l_fAdd = [&](const char* p_sName, const char* p_sHelp, Needs p_eNeeds,
                    std::function<void(Session&, const Globals&)> p_fRun) {
    CLI::App* l_pcApp = l_cApp.add_subcommand(p_sName, p_sHelp);
    l_aCommands.push_back({l_pcApp, p_eNeeds, p_fRun});
    return l_pcApp;
  };

  // Reading.
  l_fAdd("models", "List the running models (index and name)", Needs::CONNECTION, RunModels)
      ->group("Reading");
  l_fAdd("info", "Show the model: places, transitions, arcs, marking, parameters, views",
         Needs::MODEL, RunInfo)->group("Reading");
  l_fAdd("simulators", "List the simulators on offer and the current one", Needs::MODEL,
         RunSimulators)->group("Reading");
  std::string l_sSettingsOf;
  l_fAdd("settings", "Show the settings of a simulator (of every simulator without one)",
         Needs::MODEL,
         [&](Session& p_rSession, const Globals& p_rGlobals) {
           RunSettings(p_rSession, p_rGlobals, l_sSettingsOf);
         })
      ->group("Reading")
      ->add_option("SIMULATOR", l_sSettingsOf, "The simulator's name");
  l_fAdd("params", "Show the current parameter values", Needs::MODEL, RunParams)->group("Reading");
  l_fAdd("marking", "Show the current marking", Needs::MODEL, RunMarking)->group("Reading");
  l_fAdd("state", "Show the run's state, progress, speed and simulator", Needs::MODEL, RunState)
      ->group("Reading");
  l_fAdd("interval", "Show the output interval", Needs::MODEL, RunInterval)->group("Reading");
  SeriesOptions l_cResults, l_cRates, l_cPlot;
  for (int l_nRates = 0; l_nRates < 2; ++l_nRates) {
    SeriesOptions& l_rOptions = l_nRates ? l_cRates : l_cResults;
    CLI::App* l_pcApp = l_fAdd(
        l_nRates ? "rates" : "results",
        l_nRates ? "Print the rates of the transitions at each output point"
                 : "Print the marking at each output point (the result matrix)",
        Needs::MODEL, [&l_rOptions, l_nRates](Session& p_rSession, const Globals& p_rGlobals) {
          RunSeries(p_rSession, p_rGlobals, l_nRates != 0, l_rOptions);
        });
    l_pcApp->group("Reading");
    l_pcApp->add_option("--format", l_rOptions.format,
                        "table, csv, tsv or json (table; json with --json)");
    l_pcApp->add_option("-o,--output", l_rOptions.output, "Write to FILE instead of stdout");
  }
  l_fAdd("log", "Show the server's last log message and its error messages", Needs::MODEL, RunLog)
      ->group("Reading");

  // Steering.
  std::vector<std::string> l_asSet, l_asMark, l_asSetting;
  l_fAdd("set", "Change parameters: set NAME=VALUE ...", Needs::MODEL,
         [&](Session& p_rSession, const Globals& p_rGlobals) {
           RunSet(p_rSession, p_rGlobals, l_asSet);
         })
      ->group("Steering")
      ->add_option("NAME=VALUE", l_asSet, "A parameter and its new value")
      ->required();
  l_fAdd("mark", "Change the marking: mark PLACE=TOKENS ...", Needs::MODEL,
         [&](Session& p_rSession, const Globals& p_rGlobals) {
           RunMark(p_rSession, p_rGlobals, l_asMark);
         })
      ->group("Steering")
      ->add_option("PLACE=TOKENS", l_asMark, "A place and its new marking")
      ->required();
  std::string l_sSettingFor;
  CLI::App* l_pcSetting =
      l_fAdd("setting", "Change a simulator's settings: setting SIMULATOR NAME=VALUE ...",
             Needs::MODEL, [&](Session& p_rSession, const Globals& p_rGlobals) {
               RunSetting(p_rSession, p_rGlobals, l_sSettingFor, l_asSetting);
             });
  l_pcSetting->group("Steering");
  l_pcSetting->add_option("SIMULATOR", l_sSettingFor, "The simulator's name")->required();
  l_pcSetting->add_option("NAME=VALUE", l_asSetting, "A setting and its new value")->required();
  StartOptions l_cStart, l_cRestart;
  for (int l_nRestart = 0; l_nRestart < 2; ++l_nRestart) {
    StartOptions& l_rOptions = l_nRestart ? l_cRestart : l_cStart;
    CLI::App* l_pcApp = l_fAdd(
        l_nRestart ? "restart" : "start",
        l_nRestart ? "Stop the run that is going on and start anew"
                   : "Start a run (over the model's output interval unless told otherwise)",
        Needs::MODEL, [&l_rOptions, l_nRestart](Session& p_rSession, const Globals& p_rGlobals) {
          RunStart(p_rSession, p_rGlobals, l_rOptions, l_nRestart != 0);
        });
    l_pcApp->group("Steering");
    l_pcApp->add_option("--simulator", l_rOptions.simulator,
                        "A simulator or category name (the model's current simulator)");
    l_pcApp->add_option("--from", l_rOptions.from, "The first output point");
    l_pcApp->add_option("--to", l_rOptions.to, "The last output point");
    l_pcApp->add_option("--step", l_rOptions.step, "The distance between output points");
    l_pcApp->add_option("--speed", l_rOptions.speed, "Output points per second (0: unpaced)")
        ->check(CLI::Range(0LL, 4294967295LL));
  }
  for (const char* l_sCommand : {"pause", "resume", "stop"}) {
    const std::string l_sName = l_sCommand;
    l_fAdd(l_sCommand,
           l_sName == "pause"    ? "Pause the run at its next output point"
           : l_sName == "resume" ? "Resume a paused run"
                                 : "Stop the run at its next output point",
           Needs::MODEL,
           [l_sName](Session& p_rSession, const Globals& p_rGlobals) {
             RunCommand(p_rSession, p_rGlobals, l_sName);
           })
        ->group("Steering");
  }
  unsigned int l_nSpeed = 0;
  l_fAdd("speed", "Set the speed in output points per second (0: as fast as possible)",
         Needs::MODEL,
         [&](Session& p_rSession, const Globals& p_rGlobals) {
           RunSpeed(p_rSession, p_rGlobals, l_nSpeed);
         })
      ->group("Steering")
      ->add_option("N", l_nSpeed, "Output points per second")
      ->required();
  std::string l_sUpload;
  l_fAdd("upload", "Upload a net (PNML or SBML file) as a new running model", Needs::CONNECTION,
         [&](Session& p_rSession, const Globals& p_rGlobals) {
           RunUpload(p_rSession, p_rGlobals, l_sUpload);
         })
      ->group("Steering")
      ->add_option("NET", l_sUpload, "The file")
      ->required();

  // Watching and export.
  l_fAdd("watch", "Follow the run until it ends (a live view on a terminal, else a line per point)",
         Needs::MODEL, RunWatch)->group("Watching");
  CLI::App* l_pcPlot = l_fAdd("plot", "Draw the results with gnuplot into a PNG or SVG file",
                              Needs::MODEL, [&](Session& p_rSession, const Globals& p_rGlobals) {
                                RunPlot(p_rSession, p_rGlobals, l_cPlot);
                              });
  l_pcPlot->group("Watching");
  l_pcPlot->add_option("-o,--output", l_cPlot.output, "FILE.png or FILE.svg (results.png)");
  l_pcPlot->add_option("PLACE", l_cPlot.names, "The places to draw (all without)");

  try {
    l_cApp.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const std::string l_sHelp = l_cApp.help();
    std::cout << l_sHelp << (l_sHelp.empty() || l_sHelp.back() != '\n' ? "\n" : "") << std::flush;
    return STATUS_SUCCESS;
  } catch (const CLI::ParseError& p_rError) {
    const std::string l_sWord = CommandWord(argc, argv);
    bool l_bKnown = l_sWord.empty();
    std::vector<std::string> l_asNames;
    for (const Command& l_rCommand : l_aCommands) {
      l_asNames.push_back(l_rCommand.app->get_name());
      if (l_rCommand.app->get_name() == l_sWord) l_bKnown = true;
    }
    if (!l_bKnown)
      UsageError("unknown command '" + l_sWord + "' (the commands are: " + JoinNames(l_asNames) + ")");
    else
      UsageError(p_rError.what());
    return STATUS_USAGE;
  }
  if (l_bVersion) {
    std::cout << quor::app::ToStd(quor::app::VersionText(PROGRAM)) << std::flush;
    return STATUS_SUCCESS;
  }
  const Command* l_pcCommand = nullptr;
  for (const Command& l_rCommand : l_aCommands)
    if (l_rCommand.app->parsed()) l_pcCommand = &l_rCommand;
  if (l_pcCommand == nullptr) {
    UsageError("a command is needed");
    return STATUS_USAGE;
  }

  try {
    Session l_cSession(l_cGlobals.connection);
    l_cSession.Connect();
    if (l_pcCommand->needs == Needs::MODEL) l_cSession.Attach(l_cGlobals.model);
    l_pcCommand->run(l_cSession, l_cGlobals);
  } catch (const Failure& p_rFailure) {
    std::cout.flush();
    if (p_rFailure.GetStatus() == STATUS_USAGE)
      UsageError(p_rFailure.what());
    else
      quor::app::PrintError(PROGRAM, quor::app::FromStd(p_rFailure.what()));
    return p_rFailure.GetStatus();
  } catch (const std::exception& p_rError) {
    quor::app::PrintError(PROGRAM, quor::app::FromStd(p_rError.what()));
    return STATUS_FAILED;
  }
  return STATUS_SUCCESS;
}
