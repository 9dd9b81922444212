// SPDX-License-Identifier: MIT
// The steering end of a connection, held by an application that watches and
// steers a running simulation.
//
// Life of a client: construct it with the server's host and service,
// ConnectToServer (the server announces its protocol version, which must be
// STEERING_PROTOCOL_VERSION), register with one of the Initialize forms, and
// then send requests. Every request is one REQUEST_TYPE code followed by the
// request's frames; its result is 1 on success or the code of the failed
// frame, unless an operation says otherwise. A client works synchronously on
// the caller's thread with a blocking socket and is meant for one thread.
//
// The current model (GetModel):
// - Initialize(model) makes the caller's model the current one and points it
//   at the client's socket; the caller keeps it.
// - Initialize(index) and _ChangeCurrentModel build the current model from
//   the server's copy. Such a model is handed to the caller: the client never
//   deletes its current model when it is destroyed, so the caller deletes
//   GetModel() once it is done with the client.
// - A later Initialize replaces (and deletes) a current model that the
//   client received; a model the caller gave is left to the caller.
// - _ChangeCurrentModel deletes the current model, whoever created it, before
//   it receives the next one: a model given to Initialize(model) must then be
//   one allocated with new, and it is gone afterwards.
#ifndef QUOR_STEERINGCLIENT_H
#define QUOR_STEERINGCLIENT_H

#include <vector>

#include "quor/export.h"
#include "quor/steeringcmd.h"
#include "quor/steeringvaluecodec.h"

namespace quor {

class Model;
class ModelRuntimeState;
class ResultMatrixInfo;
class SimulatorAttribute;

class QUOR_API SteeringClient : public SteeringCMD {
 public:
  // Creates the client's socket (wait-all, blocking, 10-second timeout); not
  // connected yet.
  SteeringClient(const wxString& p_sHost, const wxString& p_sService);
  // Closes and destroys the socket. The current model is left to its owner.
  ~SteeringClient() override;

  // The timeout in seconds: of the socket, for the connection wait and
  // every transfer, and of every request as a whole (see Request in
  // steeringclient.cpp): the connection and the version together, a
  // registration, each request from its code to its last frame. A request
  // that runs out of time returns its failure and closes the connection.
  void SetTimeout(const int& p_nSeconds);

  // Connects to the stored host and service (without waiting, the
  // connection may take up to the timeout) and checks the server's version.
  // A signal that interrupts the connect does not fail it: it is made again
  // within the timeout. 1 when connected to a server of this protocol
  // version; FAILURE when no connection came up; VERSION_MISMATCH (-2) after
  // logging the mismatch and closing the socket.
  unsigned int ConnectToServer(const bool& p_bWait);
  // Stores the service and the host first.
  unsigned int ConnectToServer(const wxString& p_sHost, const wxString& p_sService,
                               const bool& p_bWait);
  // Closes the connection (the socket object is kept for a later connect).
  // Returns 1.
  unsigned int DisConnectFromServer();

  // Registration: request 24 and its reply, then request 6 with the option.
  // Option STEERING_NEW_MODEL uploads p_pcModel; any other option sends
  // p_nModelIndex and receives that running model from the server. FAILURE
  // while registration is locked, for a NULL model to upload, or when the
  // server's model cannot be received.
  unsigned int Initialize(const STEERING_OPTION& p_eOption, const int& p_nModelIndex,
                          Model* p_pcModel);
  unsigned int Initialize(Model* p_pcModel);
  unsigned int Initialize(const int& p_nModelIndex);

  // The current model (see the file comment for who owns it); NULL before
  // registration.
  Model* GetModel() { return m_pcModel; }

  // Commands (request 1 and a CMD_TYPE). Without a value: 1 when both
  // frames went through, else FAILURE.
  unsigned int Send_CMD(const CMD_TYPE& p_eCmd);
  // The value (8 bytes) is sent even when the code frame failed (the
  // CMD_TYPE is then left out). 1 when the value's frame went through, else
  // FAILURE.
  unsigned int Send_CMD(const CMD_TYPE& p_eCmd, const double& p_dValue);
  unsigned int CMD_Pause();
  unsigned int CMD_Resume();
  unsigned int CMD_Stop();
  // The start command is sent even when the code frame failed (the
  // CMD_TYPE is then left out); returns the start command's result.
  unsigned int CMD_Start(const wxString& p_sName, const double& p_dStart,
                         const double& p_dEnd, const double& p_dSampling);
  unsigned int CMD_Restart(const wxString& p_sName, const double& p_dStart,
                           const double& p_dEnd, const double& p_dSampling);

  unsigned int GetRuningModelNames(std::vector<wxString>& p_asNames);
  // The matrix requests give 0 (not FAILURE) when the code frame fails.
  unsigned int ReadResultMatrix(std::vector<std::vector<double> >& p_aadMatrix);
  unsigned int ReadRateMatrix(std::vector<std::vector<double> >& p_aadMatrix);
  unsigned int WriteResultMatrix(std::vector<std::vector<double> >& p_aadMatrix);
  // Replaces the current model by the server's model of that index (the
  // current model is deleted first). 1, or FAILURE.
  unsigned int _ChangeCurrentModel(const unsigned int& p_nModelIndex);
  unsigned int ReadSimulatorState(int& p_nState);
  // Stores a received interval in the current model (if there is one) as
  // well. Returns FAILURE in every case, success included: judge by the
  // outputs.
  unsigned int ReadSimulationInterval(double& p_dStart, double& p_dEnd, double& p_dSampling);
  unsigned int ReadAvailableSimulators(std::vector<QU_SimulatorCategory>& p_aList);
  unsigned int WriteAvailableSimulators(const std::vector<QU_SimulatorCategory>& p_aList);
  // Returns the second name's result.
  unsigned int ReadCurrentSimulatorName(wxString& p_sFirst, wxString& p_sSecond);
  // The current model's views. Without a current model: FAILURE, and
  // nothing is sent.
  unsigned int ReadModelViews();
  unsigned int WriteModelViews();
  unsigned int ReadModelStatistics(ModelRuntimeState& p_cState);
  unsigned int ChangeCurrentParameterValues(const unsigned long long& p_nPosition,
                                            const double& p_dValue);
  unsigned int ChangeCurrentPlaceValues(const unsigned long long& p_nPosition,
                                        const double& p_dValue);
  // Counted reads (SteeringBase::ReceiveArray): the caller's list is
  // emptied, then filled with the server's values, which also become the
  // current model's parameter values or current marking (when there is a
  // current model). FAILURE when the count does not arrive, or announces
  // more than one frame can carry or the value limit admits (the latter
  // logged as "Error: cannot allocate memory").
  unsigned int ReadCurrentParameterValues(std::vector<double>& p_adValues);
  unsigned int ReadCurrentPlaceValues(std::vector<double>& p_adValues);
  unsigned int RemoveModel(const wxString& p_sName, int& p_nResult);
  // REQUIRES: p_pcSettings is not NULL (both).
  unsigned int SendSimulatorSetting(const wxString& p_sName, SimulatorAttribute* p_pcSettings);
  unsigned int ReceiveSimulatorSetting(const wxString& p_sName,
                                       SimulatorAttribute* p_pcSettings);
  // REQUIRES: p_pcInfo is not NULL.
  unsigned int UpdateResultMatrixInfo(ResultMatrixInfo* p_pcInfo);
  unsigned int ReceiveErrorMessage(wxString& p_sMessage);
  unsigned int ChanageSimulatorSpeed(const unsigned int& p_nSpeed);
  unsigned int SendSteeredParamPositions(const std::vector<unsigned long long>& p_anPositions);
  unsigned int SendSteeredPlacePositions(const std::vector<unsigned long long>& p_anPositions);
  // Counted reads as above, without a model.
  unsigned int ReceiveSteeredParamPositions(std::vector<unsigned long long>& p_anPositions);
  unsigned int ReceiveSteeredPlacePositions(std::vector<unsigned long long>& p_anPositions);
  unsigned int ResetParameterValues();
  unsigned int ResetMarkingValues();
  unsigned int ReadLogMessage(wxString& p_sMessage);
  // Returns the second name's result.
  unsigned int WriteCurrentSimulatorName(const wxString& p_sFirst, const wxString& p_sSecond);
  unsigned int WriteSimulatorState(const int& p_nState);
  unsigned int WriteModelStatistics(ModelRuntimeState& p_cState);

 protected:
  // While true, Initialize refuses with FAILURE and sends nothing. Nothing in
  // the library sets it; a derived class may.
  bool m_bInitializeLocked;
  wxString m_sHost;
  wxString m_sService;
  int m_nTimeout;
  Model* m_pcModel;

 private:
  // What a request returns when its code frame fails.
  enum CodeFailure { CODE_FAILURE_PASSED_ON, CODE_FAILURE_IS_FAILURE, CODE_FAILURE_IS_ZERO };

  // Sends the request code; if that fails, returns the row's result for a
  // failed code frame, else the result of p_fFrames().
  template <typename F>
  unsigned int Request(REQUEST_TYPE p_eCode, CodeFailure p_eOnFailure, F p_fFrames);
  // The command rows with a payload: the CMD_TYPE follows only a code frame
  // that went through, the payload is sent in every case.
  template <typename F>
  unsigned int CommandWithPayload(const CMD_TYPE& p_eCmd, F p_fPayload);
  unsigned int SendRequestCode(REQUEST_TYPE p_eCode);
  unsigned int StartCommand(const CMD_TYPE& p_eCmd, const wxString& p_sName,
                            const double& p_dStart, const double& p_dEnd,
                            const double& p_dSampling);
  unsigned int ReadMatrix(REQUEST_TYPE p_eCode, std::vector<std::vector<double> >& p_aadMatrix);
  unsigned int ReadMessage(REQUEST_TYPE p_eCode, wxString& p_sMessage);
  unsigned int ChangeCurrentValue(REQUEST_TYPE p_eCode, const unsigned long long& p_nPosition,
                                  const double& p_dValue);
  unsigned int SendPositions(REQUEST_TYPE p_eCode,
                             const std::vector<unsigned long long>& p_anPositions);
  // Rows 18, 19, 29, 30: after the code, an 8-byte count and, unless it is
  // 0, that many 8-byte values in one frame.
  template <typename T>
  unsigned int ReceiveCounted(REQUEST_TYPE p_eCode, std::vector<T>& p_aValues);
  unsigned int ReceiveCurrentValues(REQUEST_TYPE p_eCode, std::vector<double>& p_adValues,
                                    void (Model::*p_pfStore)(const std::vector<double>&));
  // The current model is replaced: a received one is deleted unless it is
  // the new model itself.
  void SetModel(Model* p_pcModel);
  // Receives the server's model as the current one. 1, or FAILURE.
  unsigned int ReceiveModelAsCurrent();

  // True while the current model is one the client built from the server's
  // copy.
  bool m_bModelReceived;
  // How the plain values of the rows travel: the server's half of the
  // protocol moves them with a codec of the same kind.
  SteeringValueCodec m_cCodec{*this};
};

}  // namespace quor

#endif  // QUOR_STEERINGCLIENT_H
