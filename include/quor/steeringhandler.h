// SPDX-License-Identifier: MIT
// The application's side of a steering connection: one operation per client
// request, called by SteeringDispatcher with the values the client sent, or
// asked for the values the client reads.
//
// Threads: every operation runs on the worker thread of the connection that
// made the request, so the operations of different connections run at the
// same time, and one connection's operations run one after the other. An
// operation must therefore lock whatever it shares with the simulation or
// with other connections. The defaults below keep everything in the
// handler's SteeringModelStore, which locks itself; an application that
// overrides an operation locks its own data. A slow operation delays only
// the client that asked.
//
// Each operation names its connection (a number that the dispatcher gives
// every accepted connection, from 1 on) and is named after the client
// operation that it answers. The defaults work on the connection's current
// model in the store (the one it uploaded or attached to); a connection
// without one reads empty values, and its writes are dropped.
//
// An application that only runs simulations overrides the commands
// (OnStart, OnRestart, OnPause, OnResume, OnStop, OnChangeSimulatorSpeed)
// and feeds its results into GetStore().
#ifndef QUOR_STEERINGHANDLER_H
#define QUOR_STEERINGHANDLER_H

#include <vector>

#include "quor/export.h"
#include "quor/steeringmodelstore.h"

namespace quor {

class QUOR_API SteeringHandler {
 public:
  SteeringHandler();
  virtual ~SteeringHandler();

  SteeringModelStore& GetStore() { return m_cStore; }
  // The current model of a connection in the store (SteeringModelStore::
  // NO_MODEL when it has none).
  int CurrentModel(unsigned int p_nConnection);

  // Refuses what a connection asked for. The protocol has no refusal (the
  // request's frames still succeed), so the reason is queued for the
  // connection, which reads it with ReceiveErrorMessage, and the current
  // model's "ERROR_STATE" becomes SIMULATOR_ERROR_REFUSED.
  void Refuse(unsigned int p_nConnection, const wxString& p_sReason);

  // The connection's life: it was accepted and announced; it ended (the
  // default forgets its current model).
  virtual void OnConnect(unsigned int p_nConnection);
  virtual void OnDisconnect(unsigned int p_nConnection);

  // Registration. Initialize: the value of the 4-byte reply (1). Upload:
  // the client's model, owned by the handler from now on (the default runs
  // it in the store, current for this connection; an upload that the store
  // refuses (SteeringModelStore::AddUploadedModel) is dropped and refused,
  // and the connection is left without a current model). Attach
  // (registration with a model index, and _ChangeCurrentModel): the running
  // model at that index as a snapshot (SteeringModelStore::ShareModel),
  // which becomes current; NULL when there is none, and the dispatcher then
  // drops the connection, since the protocol has no way to refuse.
  virtual unsigned int OnInitialize(unsigned int p_nConnection);
  virtual void OnUploadModel(unsigned int p_nConnection, Model* p_pcModel);
  virtual ModelSnapshot OnAttachModel(unsigned int p_nConnection, int p_nIndex);

  // Commands. OnStart and OnRestart store the interval in the current model;
  // the others do nothing. OnCommand receives a CMD_TYPE outside the five
  // commands, with the double that such a command carries (Send_CMD with a
  // value).
  virtual void OnStart(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
                       double p_dEnd, double p_dSampling);
  virtual void OnRestart(unsigned int p_nConnection, const wxString& p_sName, double p_dStart,
                         double p_dEnd, double p_dSampling);
  virtual void OnPause(unsigned int p_nConnection);
  virtual void OnResume(unsigned int p_nConnection);
  virtual void OnStop(unsigned int p_nConnection);
  virtual void OnCommand(unsigned int p_nConnection, CMD_TYPE p_eCommand, double p_dValue);
  // The default stores the speed as the runtime state's "SIMULATOR_SPEED".
  virtual void OnChangeSimulatorSpeed(unsigned int p_nConnection, unsigned int p_nSpeed);

  // Models and results.
  virtual std::vector<wxString> OnGetRunningModelNames(unsigned int p_nConnection);
  // 1 when a model of that name was removed, else 0.
  virtual int OnRemoveModel(unsigned int p_nConnection, const wxString& p_sName);
  // The matrices to send, as snapshots (NULL sends an empty matrix).
  virtual SteeringMatrixSnapshot OnReadResultMatrix(unsigned int p_nConnection);
  virtual SteeringMatrixSnapshot OnReadRateMatrix(unsigned int p_nConnection);
  virtual void OnWriteResultMatrix(unsigned int p_nConnection, const SteeringMatrix& p_aadMatrix);
  virtual void OnUpdateResultMatrixInfo(unsigned int p_nConnection, ResultMatrixInfo& p_cInfo);

  // The current model's values. Views travel in a model of their own: the
  // read fills p_cViews (empty) with the views to send and the active view;
  // the write hands over the received ones.
  virtual void OnReadSimulationInterval(unsigned int p_nConnection, double& p_dStart,
                                        double& p_dEnd, double& p_dSampling);
  virtual void OnReadModelViews(unsigned int p_nConnection, Model& p_cViews);
  virtual void OnWriteModelViews(unsigned int p_nConnection, Model& p_cViews);
  virtual void OnChangeCurrentParameterValues(unsigned int p_nConnection,
                                              unsigned long long p_nPosition, double p_dValue);
  virtual void OnChangeCurrentPlaceValues(unsigned int p_nConnection,
                                          unsigned long long p_nPosition, double p_dValue);
  virtual std::vector<double> OnReadCurrentParameterValues(unsigned int p_nConnection);
  virtual std::vector<double> OnReadCurrentPlaceValues(unsigned int p_nConnection);
  virtual void OnResetParameterValues(unsigned int p_nConnection);
  virtual void OnResetMarkingValues(unsigned int p_nConnection);
  virtual void OnSendSteeredParamPositions(unsigned int p_nConnection,
                                           const std::vector<unsigned long long>& p_anPositions);
  virtual void OnSendSteeredPlacePositions(unsigned int p_nConnection,
                                           const std::vector<unsigned long long>& p_anPositions);
  virtual std::vector<unsigned long long> OnReceiveSteeredParamPositions(
      unsigned int p_nConnection);
  virtual std::vector<unsigned long long> OnReceiveSteeredPlacePositions(
      unsigned int p_nConnection);

  // The simulator: state, runtime state, names, messages.
  virtual int OnReadSimulatorState(unsigned int p_nConnection);
  virtual void OnWriteSimulatorState(unsigned int p_nConnection, int p_nState);
  virtual void OnReadModelStatistics(unsigned int p_nConnection, ModelRuntimeState& p_cState);
  virtual void OnWriteModelStatistics(unsigned int p_nConnection, ModelRuntimeState& p_cState);
  virtual void OnReadCurrentSimulatorName(unsigned int p_nConnection, wxString& p_sFirst,
                                          wxString& p_sSecond);
  virtual void OnWriteCurrentSimulatorName(unsigned int p_nConnection, const wxString& p_sFirst,
                                           const wxString& p_sSecond);
  // The refusals of this connection since it last read them (see Refuse),
  // oldest first, one per line; without any, the current model's error
  // message (why its last run failed, SteeringModelStore::SetErrorMessage).
  virtual wxString OnReceiveErrorMessage(unsigned int p_nConnection);
  virtual wxString OnReadLogMessage(unsigned int p_nConnection);

  // The simulators on offer and their settings by simulator name. The read
  // fills p_cSettings (empty) and leaves it empty for an unknown name.
  virtual std::vector<QU_SimulatorCategory> OnReadAvailableSimulators(unsigned int p_nConnection);
  virtual void OnWriteAvailableSimulators(unsigned int p_nConnection,
                                          const std::vector<QU_SimulatorCategory>& p_aList);
  // The default keeps the settings in the store and refuses them when the
  // store has no room for another simulator name.
  virtual void OnSendSimulatorSetting(unsigned int p_nConnection, const wxString& p_sSimulator,
                                      SimulatorAttribute& p_cSettings);
  virtual void OnReceiveSimulatorSetting(unsigned int p_nConnection, const wxString& p_sSimulator,
                                         SimulatorAttribute& p_cSettings);

 private:
  // Runs the action on the connection's current model in the store.
  void WithCurrentModel(unsigned int p_nConnection, const std::function<void(Model&)>& p_fAction);

  SteeringModelStore m_cStore;
};

}  // namespace quor

#endif  // QUOR_STEERINGHANDLER_H
