// SPDX-License-Identifier: MIT
// A SteeringHandler that runs every model with a SteeringRunner: the
// application gives a step function, and clients start, pause, resume,
// stop, restart, pace and steer its runs over the protocol.
//
//   bool Decay(quor::SteeringStep& p_rStep);       // see steeringrunner.h
//   quor::SteeringRunHandler l_cHandler(Decay);
//   l_cHandler.AddModel(l_pcModel);                 // the store owns it
//   quor::SteeringDispatcher l_cDispatcher(l_cServer, l_cHandler);
//
// What the client requests do with a run:
// - CMD_Start(name, start, end, sampling) runs the connection's current
//   model over that interval (the interval becomes the model's), from its
//   initial marking with its current parameter values. Refused while a run
//   goes on (running or paused). CMD_Restart stops such a run first (its
//   step in progress is asked to give up, and waited for) and starts anew.
// - CMD_Pause, CMD_Resume and CMD_Stop act at the run's next output point;
//   a stopped run keeps its results. WriteSimulatorState(1) resumes, (2)
//   pauses, (3) stops; other codes are refused.
// - ChanageSimulatorSpeed(n): n output points per second, 0 as fast as
//   the step function goes; per model, at once, also for later runs.
//   WriteModelStatistics changes the speed only (a negative one is
//   refused).
// - ChangeCurrentParameterValues / ChangeCurrentPlaceValues change the
//   model at once and a run at its next output point (at once while it is
//   paused or waits for its pace); a position out of range or a value that
//   is negative or not finite is refused. ResetParameterValues and
//   ResetMarkingValues return to the initial values the same way.
// - RemoveModel stops the model's run and waits for it.
// Every other request is served from the store as SteeringHandler does.
//
// Refusals go to the connection that asked (SteeringHandler::Refuse: it
// reads them with ReceiveErrorMessage, and "ERROR_STATE" becomes
// SIMULATOR_ERROR_REFUSED), with a warning in the log. Why a run failed is
// the model's error message, for every client.
//
// Threads: the requests return at once, on the connection's worker; the
// step function runs on the runner's thread of its model (see
// steeringrunner.h). The handler's destructor stops every run and waits for
// it; a subclass whose step functions use its own members calls
// StopAllRuns in its own destructor.
#ifndef QUOR_STEERINGRUNHANDLER_H
#define QUOR_STEERINGRUNHANDLER_H

#include <map>
#include <memory>
#include <mutex>

#include "quor/export.h"
#include "quor/steeringhandler.h"
#include "quor/steeringrunner.h"

namespace quor {

class QUOR_API SteeringRunHandler : public SteeringHandler {
 public:
  typedef std::function<bool(SteeringStep&)> StepFunction;

  // Runs every model with p_fStep (which may be empty when PrepareRun
  // supplies the step function of each run).
  explicit SteeringRunHandler(StepFunction p_fStep = StepFunction());
  // StopAllRuns.
  ~SteeringRunHandler() override;

  // The category and simulator that runs show ("SIMULATOR_CATEGORY",
  // "CURRENT_SIMULATOR_ALGORITHM"), and the current simulator name of the
  // models added from now on. Offered to clients as the one available
  // simulator when both are set. Empty by default. REQUIRES: called before
  // the handler serves requests.
  void SetSimulatorName(const wxString& p_sCategory, const wxString& p_sAlgorithm);

  // Runs a model (allocated with new; the store owns it from now on): idle,
  // with its result rows described. Returns its id in the store (NO_MODEL
  // for NULL).
  int AddModel(Model* p_pcModel);

  // The runner of a model (made on first use); NULL when the store holds no
  // such model.
  std::shared_ptr<SteeringRunner> GetRunner(int p_nModel);
  // Stops every run and waits for it. Later starts work again.
  void StopAllRuns();

  void OnUploadModel(unsigned int p_nConnection, Model* p_pcModel) override;
  int OnRemoveModel(unsigned int p_nConnection, const wxString& p_sName) override;

  void OnStart(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
               double p_dEnd, double p_dSampling) override;
  void OnRestart(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
                 double p_dEnd, double p_dSampling) override;
  void OnPause(unsigned int p_nConnection) override;
  void OnResume(unsigned int p_nConnection) override;
  void OnStop(unsigned int p_nConnection) override;
  void OnChangeSimulatorSpeed(unsigned int p_nConnection, unsigned int p_nSpeed) override;

  void OnChangeCurrentParameterValues(unsigned int p_nConnection, unsigned long long p_nPosition,
                                      double p_dValue) override;
  void OnChangeCurrentPlaceValues(unsigned int p_nConnection, unsigned long long p_nPosition,
                                  double p_dValue) override;
  void OnResetParameterValues(unsigned int p_nConnection) override;
  void OnResetMarkingValues(unsigned int p_nConnection) override;

  void OnWriteSimulatorState(unsigned int p_nConnection, int p_nState) override;
  void OnWriteModelStatistics(unsigned int p_nConnection, ModelRuntimeState& p_cState) override;

 protected:
  // Makes the plan of a run that a client starts: p_rPlan comes with the
  // interval, the handler's step function and the model's current
  // simulator names (the store's, SetCurrentSimulatorName). An application
  // that picks a step function per run (by p_sName, the name the client
  // sent) sets it here, with the hooks it needs. False, with the reason in
  // p_rsRefusal, refuses the start. Runs on the connection's worker.
  virtual bool PrepareRun(unsigned int p_nConnection, int p_nModel, const wxString& p_sName,
                          SteeringRunPlan& p_rPlan, wxString& p_rsRefusal);
  // A model has come into the store (AddModel, an upload): its runtime
  // state becomes idle, its rows are described (row p: place p), and its
  // current simulator name is the handler's.
  virtual void PrepareModel(int p_nModel);

  // Refuses the request (SteeringHandler::Refuse) and logs a warning.
  void RefuseRequest(unsigned int p_nConnection, const wxString& p_sReason);
  // The connection's current model and its runner; NULL after refusing
  // p_sRequest ("pause", ...) when the connection has none.
  std::shared_ptr<SteeringRunner> RunnerOf(unsigned int p_nConnection, const wxChar* p_sRequest,
                                           int* p_pnModel = NULL);

 private:
  void StartRun(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
                double p_dEnd, double p_dSampling, bool p_bRestart);
  // A steered value of the marking (p_bPlace) or of the parameters.
  void ChangeValue(unsigned int p_nConnection, unsigned long long p_nPosition, double p_dValue,
                   bool p_bPlace);

  StepFunction m_fStep;
  wxString m_sCategory;
  wxString m_sAlgorithm;
  std::mutex m_cMutex;  // the runners
  std::map<int, std::shared_ptr<SteeringRunner> > m_mRunners;
};

}  // namespace quor

#endif  // QUOR_STEERINGRUNHANDLER_H
