// SPDX-License-Identifier: MIT
// The simulation server's handler: the library's SteeringRunHandler runs
// the models (commands, pacing, steering, results; see
// quor/steeringrunhandler.h), and this class adds the engine:
//
// - Each run simulates the model's net with one of the engine's simulators
//   (sim::AvailableSimulators()), wrapped as the run's step function. The
//   name of a start picks it: a simulator or category name ("continuous",
//   "Stochastic", any case); any other name, such as the model's, means
//   the model's current simulator (WriteCurrentSimulatorName, the first
//   simulator by default). A model that a client uploaded runs when its
//   rates are mass-action constants (see ModelToNet).
// - The simulators on offer are the engine's (writing the list is
//   refused); their settings are shared by all models, and a write applies
//   each setting by name after checking it: a setting that is unknown or
//   out of range is refused, the others are taken, also by the runs of that
//   simulator from their next step on.
//
// Threads: like every SteeringHandler, the operations run on the
// connections' workers; each run's simulator is used by its runner's
// thread only.
#ifndef QUOR_SIMD_SIMULATIONHANDLER_H
#define QUOR_SIMD_SIMULATIONHANDLER_H

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "quor/steeringrunhandler.h"
#include "simcore/net.h"
#include "simcore/simulator.h"

namespace quor {
namespace simd {

class SimulationHandler : public SteeringRunHandler {
 public:
  SimulationHandler();
  // Stops the runs (their step functions use the settings below) and waits
  // for them.
  ~SimulationHandler() override;

  // Runs a net: its model goes into the store (named after the net, made
  // unique). Returns the model's id in the store.
  int AddNet(const sim::Net& p_rNet);

  int OnRemoveModel(unsigned int p_nConnection, const wxString& p_sName) override;
  void OnCommand(unsigned int p_nConnection, CMD_TYPE p_eCommand, double p_dValue) override;
  void OnWriteCurrentSimulatorName(unsigned int p_nConnection, const wxString& p_sFirst,
                                   const wxString& p_sSecond) override;
  void OnWriteAvailableSimulators(unsigned int p_nConnection,
                                  const std::vector<QU_SimulatorCategory>& p_aList) override;
  void OnSendSimulatorSetting(unsigned int p_nConnection, const wxString& p_sSimulator,
                              SimulatorAttribute& p_cSettings) override;

  // The settings of a simulator as name/value pairs.
  std::vector<std::pair<std::string, std::string> > SettingsOf(const std::string& p_sSimulator);
  // Called at the end of every run's preparation with the model's id and
  // the plan as made for this process; may replace the plan's functions
  // (to spread the run over many processes, say). False, with the reason,
  // refuses the start. REQUIRES: set before the handler serves requests.
  typedef std::function<bool(int, SteeringRunPlan&, wxString&)> RunHook;
  void SetRunHook(RunHook p_fHook) { m_fRunHook = std::move(p_fHook); }

  // Counts the writes of settings, so that a run knows when to take them.
  unsigned int GetSettingsVersion() const { return m_nSettingsVersion.load(); }

 protected:
  // The engine's simulator for the run, as its step function.
  bool PrepareRun(unsigned int p_nConnection, int p_nModel, const wxString& p_sName,
                  SteeringRunPlan& p_rPlan, wxString& p_rsRefusal) override;

 private:
  // The net that a run of the model simulates.
  bool NetOf(int p_nModel, sim::Net& p_rNet, std::string* p_psError);
  // Copies a simulator's settings into the store.
  void PublishSettings(const std::string& p_sSimulator);

  std::mutex m_cNetsMutex;  // the nets and the settings
  std::map<int, sim::Net> m_mNets;
  // One simulator of each kind holds the current settings of that kind.
  std::map<std::string, std::unique_ptr<sim::Simulator> > m_mSettingHolders;
  std::atomic<unsigned int> m_nSettingsVersion;
  RunHook m_fRunHook;
};

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_SIMULATIONHANDLER_H
