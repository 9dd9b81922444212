// SPDX-License-Identifier: MIT
// The simulation server's answers to the steering requests: the store of
// SteeringHandler serves the models, and this class runs them.
//
// - Commands. Start and restart run the connection's current model with
//   the named simulator (a simulator or category name, e.g. "continuous" or
//   "Stochastic"; any other name, such as the model's, means the model's
//   current simulator) over the interval given, from the model's initial
//   marking with its current parameter values. Start is refused while a run
//   goes on (running or paused); restart stops that run first. Pause,
//   resume and stop act on the run at its next output point. Speed is in
//   output points per second (0: as fast as possible), per model.
// - Changes of parameters and places, and the resets to the initial values,
//   go into the model at once and into a run at its next output point (at
//   once while it is paused or waits for its pace).
// - The simulators on offer are fixed (writing the list is refused); their
//   settings are shared by all models, and a write applies each setting by
//   name after checking it: a setting that is unknown or out of range is
//   refused, the others are taken (also by a run of that simulator).
// - Writing the simulator state commands the run: STATE_RUNNING resumes,
//   STATE_PAUSED pauses, STATE_STOPPED stops. Writing the statistics
//   changes the speed ("SIMULATOR_SPEED") only.
// - A refused request leaves the reason as the model's error message
//   (ReceiveErrorMessage) with "ERROR_STATE" ERROR_REFUSED, and a warning in
//   the log.
//
// Threads: like every SteeringHandler, the operations run on the
// connections' workers; the runs have threads of their own (ModelRun).
#ifndef QUOR_SIMD_SIMULATIONHANDLER_H
#define QUOR_SIMD_SIMULATIONHANDLER_H

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "quor/steeringhandler.h"
#include "simcore/net.h"
#include "simcore/simulator.h"
#include "simd/modelRun.h"

namespace quor {
namespace simd {

class SimulationHandler : public SteeringHandler {
 public:
  SimulationHandler();
  // Stops the runs and waits for them.
  ~SimulationHandler() override;

  // Runs a net: its model goes into the store (named after the net, made
  // unique) with its result-matrix description and an idle runtime state.
  // Returns the model's id in the store.
  int AddNet(const sim::Net& p_rNet);

  // Stops every run and waits for their threads. Later starts work again.
  void StopAllRuns();

  // The run of a model (created on first use); NULL when the store holds no
  // such model.
  std::shared_ptr<ModelRun> GetRun(int p_nModel);

  void OnUploadModel(unsigned int p_nConnection, Model* p_pcModel) override;

  void OnStart(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
               double p_dEnd, double p_dSampling) override;
  void OnRestart(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
                 double p_dEnd, double p_dSampling) override;
  void OnPause(unsigned int p_nConnection) override;
  void OnResume(unsigned int p_nConnection) override;
  void OnStop(unsigned int p_nConnection) override;
  void OnCommand(unsigned int p_nConnection, CMD_TYPE p_eCommand, double p_dValue) override;
  void OnChangeSimulatorSpeed(unsigned int p_nConnection, unsigned int p_nSpeed) override;

  int OnRemoveModel(unsigned int p_nConnection, const wxString& p_sName) override;

  void OnChangeCurrentParameterValues(unsigned int p_nConnection, unsigned long long p_nPosition,
                                      double p_dValue) override;
  void OnChangeCurrentPlaceValues(unsigned int p_nConnection, unsigned long long p_nPosition,
                                  double p_dValue) override;
  void OnResetParameterValues(unsigned int p_nConnection) override;
  void OnResetMarkingValues(unsigned int p_nConnection) override;

  void OnWriteSimulatorState(unsigned int p_nConnection, int p_nState) override;
  void OnWriteModelStatistics(unsigned int p_nConnection, ModelRuntimeState& p_cState) override;
  void OnWriteCurrentSimulatorName(unsigned int p_nConnection, const wxString& p_sFirst,
                                   const wxString& p_sSecond) override;
  void OnWriteAvailableSimulators(unsigned int p_nConnection,
                                  const std::vector<QU_SimulatorCategory>& p_aList) override;
  void OnSendSimulatorSetting(unsigned int p_nConnection, const wxString& p_sSimulator,
                              SimulatorAttribute& p_cSettings) override;

 private:
  // Prepares the model's runtime state, result-matrix description and
  // current simulator.
  void PrepareModel(int p_nModel, std::size_t p_nPlaces);
  void StartRun(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
                double p_dEnd, double p_dSampling, bool p_bRestart);
  // The connection's current model, or NO_MODEL with a warning naming the
  // request.
  int ModelOf(unsigned int p_nConnection, const char* p_sRequest);
  // Leaves the reason with the model and in the log.
  void Refuse(int p_nModel, const wxString& p_sReason);
  // A steered change of one marking (p_bMarking) or parameter value:
  // checked, handed to the run, and logged.
  void ChangeValue(unsigned int p_nConnection, unsigned long long p_nPosition, double p_dValue,
                   bool p_bMarking);
  // The net that a run of the model simulates.
  bool NetOf(int p_nModel, sim::Net& p_rNet, std::string* p_psError);
  // The settings of a simulator as name/value pairs.
  std::vector<std::pair<std::string, std::string> > SettingsOf(const std::string& p_sSimulator);
  // Copies a simulator's settings into the store.
  void PublishSettings(const std::string& p_sSimulator);

  std::mutex m_cMutex;  // the maps below
  std::map<int, sim::Net> m_mNets;
  std::map<int, std::shared_ptr<ModelRun> > m_mRuns;
  // One simulator of each kind holds the current settings of that kind.
  std::map<std::string, std::unique_ptr<sim::Simulator> > m_mSettingHolders;
};

}  // namespace simd
}  // namespace quor

#endif  // QUOR_SIMD_SIMULATIONHANDLER_H
