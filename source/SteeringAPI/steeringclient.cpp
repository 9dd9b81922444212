// SPDX-License-Identifier: MIT
#include "quor/steeringclient.h"

#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringdeadline.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cerrno>
#include <chrono>

namespace quor {

namespace {
const int DEFAULT_TIMEOUT_SECONDS = 10;

// The frames of a request follow one another only while they succeed: the
// next frame runs after a result of 1, any other result is the request's.
template <typename F>
unsigned int Then(unsigned int p_nResult, F p_fNext) {
  return p_nResult == 1 ? p_fNext() : p_nResult;
}

}  // namespace

SteeringClient::SteeringClient(const wxString& p_sHost, const wxString& p_sService)
    : SteeringCMD(NULL),
      m_bInitializeLocked(false),
      m_sHost(p_sHost),
      m_sService(p_sService),
      m_nTimeout(DEFAULT_TIMEOUT_SECONDS),
      m_pcModel(NULL),
      m_bModelReceived(false) {
  // Wait for all bytes in both directions and block without yielding to the
  // event loop: the client is driven synchronously, from any thread. The
  // socket is blocking from its creation on, since wxWidgets makes
  // non-blocking sockets on the main thread only.
  wxSocketClient* l_pcSocket = NULL;
  TRY_ALLOC(l_pcSocket = new wxSocketClient(wxSOCKET_WAITALL | wxSOCKET_BLOCK), return);
  m_pcClientSocket = l_pcSocket;
  m_pcClientSocket->SetTimeout(m_nTimeout);
}

SteeringClient::~SteeringClient() {
  if (m_pcClientSocket != NULL) m_pcClientSocket->Destroy();
  m_pcClientSocket = NULL;
}

void SteeringClient::SetTimeout(const int& p_nSeconds) {
  m_nTimeout = p_nSeconds;
  CHECK_POINTER(m_pcClientSocket, return);
  m_pcClientSocket->SetTimeout(p_nSeconds);
}

unsigned int SteeringClient::ConnectToServer(const bool& p_bWait) {
  wxSocketClient* l_pcSocket = wxDynamicCast(m_pcClientSocket, wxSocketClient);
  CHECK_POINTER(l_pcSocket, return FAILURE);

  // The connection and the version have one timeout together.
  const SteeringDeadline::Clock::time_point l_cEnd =
      m_nTimeout > 0 ? SteeringDeadline::Clock::now() + std::chrono::seconds(m_nTimeout)
                     : SteeringDeadline::NEVER;
  wxIPV4address l_cAddress;
  l_cAddress.Hostname(m_sHost);
  l_cAddress.Service(m_sService);
  // A signal that interrupts the wait for the connection (a program's
  // timer, a child process that ends) fails the connect with EINTR, and
  // wxWidgets gives up that connection, although the kernel would go on
  // making it: such a connect is made again, within the timeout.
  bool l_bConnected = false;
  for (;;) {
    errno = 0;
    l_bConnected = l_pcSocket->Connect(l_cAddress, p_bWait);
    if (l_bConnected || errno != EINTR || SteeringDeadline::Clock::now() >= l_cEnd) break;
  }
  // Without waiting, a connection still under way is waited for (up to the
  // timeout); one that was refused at once has nothing to wait for.
  if (!l_bConnected && !p_bWait && l_pcSocket->LastError() == wxSOCKET_WOULDBLOCK) {
    l_pcSocket->WaitOnConnect(m_nTimeout, 0);
  }
  if (!l_pcSocket->IsConnected()) return FAILURE;
  // A new descriptor, perhaps with an old number: every communicator that
  // holds this socket (the client, its models) sets its timeouts anew.
  SocketsRenewed();
  // Every frame waits for its one-byte acknowledgement, so small writes must
  // leave at once: with Nagle's algorithm the write that follows the
  // acknowledgement of a received frame would wait for the peer's delayed
  // TCP acknowledgement.
  int l_nNoDelay = 1;
  l_pcSocket->SetOption(IPPROTO_TCP, TCP_NODELAY, &l_nNoDelay, sizeof(l_nNoDelay));

  // A server that sends no version at all (or not all of it in time) is
  // refused as version 0.
  unsigned int l_nServerVersion = 0;
  {
    SteeringDeadline l_cDeadline(l_pcSocket, l_cEnd);
    const unsigned int l_nReceived = ReceiveValue(&l_nServerVersion, sizeof(l_nServerVersion));
    if (l_cDeadline.Expired() || (l_nReceived != 1 && l_cDeadline.Late())) l_nServerVersion = 0;
  }
  if (l_nServerVersion == STEERING_PROTOCOL_VERSION) return 1;

  LOG(1, wxString::Format(wxT("SteeringClient: The server and client communication versions "
                              "are not the same.The server version is %u. While the client "
                              "Version is %u"),
                          l_nServerVersion, STEERING_PROTOCOL_VERSION));
  l_pcSocket->Close();
  return VERSION_MISMATCH;
}

unsigned int SteeringClient::ConnectToServer(const wxString& p_sHost,
                                             const wxString& p_sService,
                                             const bool& p_bWait) {
  CHECK_POINTER(GetClientSocket(), return CONNECTION_NOT_CONNECTED);
  m_sService = p_sService;
  m_sHost = p_sHost;
  return ConnectToServer(p_bWait);
}

unsigned int SteeringClient::DisConnectFromServer() {
  CHECK_POINTER(m_pcClientSocket, return FAILURE);
  m_pcClientSocket->Close();
  return 1;
}

unsigned int SteeringClient::Initialize(const STEERING_OPTION& p_eOption,
                                        const int& p_nModelIndex, Model* p_pcModel) {
  if (m_bInitializeLocked) return FAILURE;
  // The registration is one exchange under one deadline (see Request).
  return WithDeadline(m_pcClientSocket, m_nTimeout, [&]() -> unsigned int {
    unsigned int l_nResult = SendRequestCode(REQUEST_INITIALIZE);
    if (l_nResult != 1) return l_nResult;
    // The reply's value carries no meaning: its arrival is the answer.
    unsigned int l_nReply = 0;
    l_nResult = ReceiveValue(&l_nReply, sizeof(l_nReply));
    if (l_nResult != 1) return l_nResult;

    SendRequestCode(REQUEST_STEERING_OPTION);
    SendValue(&p_eOption, sizeof(p_eOption));

    if (p_eOption == STEERING_NEW_MODEL) {
      SetModel(p_pcModel);
      if (p_pcModel != NULL) p_pcModel->SetClientSocket(m_pcClientSocket);
      return _SendExistingModel(p_pcModel);
    }

    l_nResult = SendValue(&p_nModelIndex, sizeof(p_nModelIndex));
    if (l_nResult != 1) return l_nResult;
    SetModel(NULL);
    return ReceiveModelAsCurrent();
  });
}

unsigned int SteeringClient::Initialize(Model* p_pcModel) {
  return Initialize(STEERING_NEW_MODEL, -1, p_pcModel);
}

unsigned int SteeringClient::Initialize(const int& p_nModelIndex) {
  return Initialize(STEERING_EXISTING_MODEL, p_nModelIndex, NULL);
}

void SteeringClient::SetModel(Model* p_pcModel) {
  if (m_bModelReceived && m_pcModel != p_pcModel) delete m_pcModel;
  m_pcModel = p_pcModel;
  m_bModelReceived = false;
}

unsigned int SteeringClient::ReceiveModelAsCurrent() {
  m_pcModel = _ReceiveExistingModel(m_pcClientSocket);
  CHECK_POINTER(m_pcModel, return FAILURE);
  m_bModelReceived = true;
  return 1;
}

// The request pattern.

unsigned int SteeringClient::SendRequestCode(REQUEST_TYPE p_eCode) {
  return SendValue(&p_eCode, sizeof(p_eCode));
}

// A request runs under one deadline of the timeout, from its code to its
// last frame: a server that stalls or trickles costs at most about the
// timeout. When the time runs out, the frame waiting fails
// (TRANSFER_SOCKET_ERROR; a frame the row still tries afterwards gives
// TRANSFER_NOT_CONNECTED), the operation returns what its row makes of that
// failure, and the connection is closed: later requests fail at once until
// the next ConnectToServer.
template <typename F>
unsigned int SteeringClient::Request(REQUEST_TYPE p_eCode, CodeFailure p_eOnFailure,
                                     F p_fFrames) {
  return WithDeadline(m_pcClientSocket, m_nTimeout, [&]() -> unsigned int {
    const unsigned int l_nResult = SendRequestCode(p_eCode);
    if (l_nResult != 1) {
      switch (p_eOnFailure) {
        case CODE_FAILURE_IS_FAILURE: return FAILURE;
        case CODE_FAILURE_IS_ZERO: return 0;
        case CODE_FAILURE_PASSED_ON: break;
      }
      return l_nResult;
    }
    return p_fFrames();
  });
}

template <typename F>
unsigned int SteeringClient::CommandWithPayload(const CMD_TYPE& p_eCmd, F p_fPayload) {
  return WithDeadline(m_pcClientSocket, m_nTimeout, [&] {
    // The CMD_TYPE's own result is not examined.
    if (SendRequestCode(REQUEST_SEND_CMD) == 1) SendValue(&p_eCmd, sizeof(p_eCmd));
    return p_fPayload();
  });
}

// Commands.

unsigned int SteeringClient::Send_CMD(const CMD_TYPE& p_eCmd) {
  return Request(REQUEST_SEND_CMD, CODE_FAILURE_IS_FAILURE, [&] {
    return SendValue(&p_eCmd, sizeof(p_eCmd)) == 1 ? 1u : FAILURE;
  });
}

unsigned int SteeringClient::Send_CMD(const CMD_TYPE& p_eCmd, const double& p_dValue) {
  return CommandWithPayload(p_eCmd, [&] {
    return SendValue(&p_dValue, sizeof(p_dValue)) == 1 ? 1u : FAILURE;
  });
}

unsigned int SteeringClient::CMD_Pause() { return Send_CMD(CMD_PAUSE); }

unsigned int SteeringClient::CMD_Resume() { return Send_CMD(CMD_RESUME); }

unsigned int SteeringClient::CMD_Stop() { return Send_CMD(CMD_STOP); }

unsigned int SteeringClient::StartCommand(const CMD_TYPE& p_eCmd, const wxString& p_sName,
                                          const double& p_dStart, const double& p_dEnd,
                                          const double& p_dSampling) {
  return CommandWithPayload(p_eCmd,
                            [&] { return SendStartCMD(p_sName, p_dStart, p_dEnd, p_dSampling); });
}

unsigned int SteeringClient::CMD_Start(const wxString& p_sName, const double& p_dStart,
                                       const double& p_dEnd, const double& p_dSampling) {
  return StartCommand(CMD_START, p_sName, p_dStart, p_dEnd, p_dSampling);
}

unsigned int SteeringClient::CMD_Restart(const wxString& p_sName, const double& p_dStart,
                                         const double& p_dEnd, const double& p_dSampling) {
  return StartCommand(CMD_RESTART, p_sName, p_dStart, p_dEnd, p_dSampling);
}

// Models and matrices.

unsigned int SteeringClient::GetRuningModelNames(std::vector<wxString>& p_asNames) {
  return Request(REQUEST_GET_RUNNING_MODEL_NAMES, CODE_FAILURE_IS_FAILURE,
                 [&] { return ReceiveVectorString(p_asNames); });
}

unsigned int SteeringClient::ReadMatrix(REQUEST_TYPE p_eCode,
                                        std::vector<std::vector<double> >& p_aadMatrix) {
  return Request(p_eCode, CODE_FAILURE_IS_ZERO, [&] { return ReceiveVector2D(p_aadMatrix); });
}

unsigned int SteeringClient::ReadResultMatrix(std::vector<std::vector<double> >& p_aadMatrix) {
  return ReadMatrix(REQUEST_READ_RESULT_MATRIX, p_aadMatrix);
}

unsigned int SteeringClient::ReadRateMatrix(std::vector<std::vector<double> >& p_aadMatrix) {
  return ReadMatrix(REQUEST_READ_RATE_MATRIX, p_aadMatrix);
}

unsigned int SteeringClient::WriteResultMatrix(std::vector<std::vector<double> >& p_aadMatrix) {
  return Request(REQUEST_WRITE_RESULT_MATRIX, CODE_FAILURE_IS_ZERO,
                 [&] { return SendVector2D(p_aadMatrix); });
}

unsigned int SteeringClient::_ChangeCurrentModel(const unsigned int& p_nModelIndex) {
  return Request(REQUEST_CHANGE_CURRENT_MODEL, CODE_FAILURE_IS_FAILURE, [&] {
    if (SendValue(&p_nModelIndex, sizeof(p_nModelIndex)) != 1) return FAILURE;
    // The current model goes, whoever created it.
    delete m_pcModel;
    m_pcModel = NULL;
    m_bModelReceived = false;
    return ReceiveModelAsCurrent();
  });
}

// Without a current model there is nothing to hold the views: nothing is
// sent.
unsigned int SteeringClient::ReadModelViews() {
  CHECK_POINTER(m_pcModel, return FAILURE);
  return Request(REQUEST_READ_MODEL_VIEWS, CODE_FAILURE_IS_FAILURE, [&] {
    ReceivingFor l_cFor(*m_pcModel, *this);
    return m_pcModel->ReceiveModelViews();
  });
}

unsigned int SteeringClient::WriteModelViews() {
  CHECK_POINTER(m_pcModel, return FAILURE);
  return Request(REQUEST_WRITE_MODEL_VIEWS, CODE_FAILURE_IS_FAILURE,
                 [&] { return m_pcModel->SendModelViews(); });
}

// Simulator state, interval, settings and statistics.

unsigned int SteeringClient::ReadSimulatorState(int& p_nState) {
  return Request(REQUEST_READ_SIMULATOR_STATE, CODE_FAILURE_IS_FAILURE,
                 [&] { return m_cCodec.Receive(p_nState); });
}

unsigned int SteeringClient::WriteSimulatorState(const int& p_nState) {
  return Request(REQUEST_WRITE_SIMULATOR_STATE, CODE_FAILURE_IS_FAILURE,
                 [&] { return m_cCodec.Send(p_nState); });
}

unsigned int SteeringClient::ReadSimulationInterval(double& p_dStart, double& p_dEnd,
                                                    double& p_dSampling) {
  return Request(REQUEST_READ_SIMULATION_INTERVAL, CODE_FAILURE_IS_FAILURE, [&] {
    if (ReceiveSimulationInterval(p_dStart, p_dEnd, p_dSampling) == 1 && m_pcModel != NULL) {
      m_pcModel->SetOutputStartPoint(p_dStart);
      m_pcModel->SetOutputEndPoint(p_dEnd);
      m_pcModel->SetOutputSamplingSize(p_dSampling);
    }
    // FAILURE after a success too: callers judge by the outputs.
    return FAILURE;
  });
}

unsigned int SteeringClient::ReadAvailableSimulators(std::vector<QU_SimulatorCategory>& p_aList) {
  return Request(REQUEST_READ_AVAILABLE_SIMULATORS, CODE_FAILURE_IS_FAILURE,
                 [&] { return ReceiveAvailableSimulators(p_aList); });
}

unsigned int SteeringClient::WriteAvailableSimulators(
    const std::vector<QU_SimulatorCategory>& p_aList) {
  return Request(REQUEST_WRITE_AVAILABLE_SIMULATORS, CODE_FAILURE_IS_FAILURE,
                 [&] { return SendAvailableSimulators(p_aList); });
}

unsigned int SteeringClient::ReadCurrentSimulatorName(wxString& p_sFirst, wxString& p_sSecond) {
  return Request(REQUEST_READ_CURRENT_SIMULATOR_NAME, CODE_FAILURE_IS_FAILURE, [&] {
    ReceiveString(p_sFirst);
    return ReceiveString(p_sSecond);
  });
}

unsigned int SteeringClient::WriteCurrentSimulatorName(const wxString& p_sFirst,
                                                       const wxString& p_sSecond) {
  return Request(REQUEST_WRITE_CURRENT_SIMULATOR_NAME, CODE_FAILURE_IS_FAILURE, [&] {
    SendString(p_sFirst);
    return SendString(p_sSecond);
  });
}

unsigned int SteeringClient::ReadModelStatistics(ModelRuntimeState& p_cState) {
  return Request(REQUEST_READ_MODEL_STATISTICS, CODE_FAILURE_IS_FAILURE,
                 [&] { return ReceiveModelStatistics(p_cState); });
}

unsigned int SteeringClient::WriteModelStatistics(ModelRuntimeState& p_cState) {
  return Request(REQUEST_WRITE_MODEL_STATISTICS, CODE_FAILURE_IS_FAILURE,
                 [&] { return SendModelStatistics(p_cState); });
}

unsigned int SteeringClient::SendSimulatorSetting(const wxString& p_sName,
                                                  SimulatorAttribute* p_pcSettings) {
  return Request(REQUEST_SEND_SIMULATOR_SETTING, CODE_FAILURE_PASSED_ON, [&] {
    return Then(SendString(p_sName), [&] { return p_pcSettings->SendAttributes(this); });
  });
}

unsigned int SteeringClient::ReceiveSimulatorSetting(const wxString& p_sName,
                                                     SimulatorAttribute* p_pcSettings) {
  return Request(REQUEST_RECEIVE_SIMULATOR_SETTING, CODE_FAILURE_PASSED_ON, [&] {
    return Then(SendString(p_sName), [&] { return p_pcSettings->ReceiveAttributes(this); });
  });
}

unsigned int SteeringClient::UpdateResultMatrixInfo(ResultMatrixInfo* p_pcInfo) {
  return Request(REQUEST_UPDATE_RESULT_MATRIX_INFO, CODE_FAILURE_PASSED_ON,
                 [&] { return p_pcInfo->SendValue(this); });
}

unsigned int SteeringClient::ChanageSimulatorSpeed(const unsigned int& p_nSpeed) {
  return Request(REQUEST_CHANGE_SIMULATOR_SPEED, CODE_FAILURE_PASSED_ON,
                 [&] { return m_cCodec.Send(p_nSpeed); });
}

// Values and positions.

unsigned int SteeringClient::ChangeCurrentValue(REQUEST_TYPE p_eCode,
                                                const unsigned long long& p_nPosition,
                                                const double& p_dValue) {
  return Request(p_eCode, CODE_FAILURE_IS_FAILURE,
                 [&] { return m_cCodec.Send(p_nPosition, p_dValue); });
}

unsigned int SteeringClient::ChangeCurrentParameterValues(const unsigned long long& p_nPosition,
                                                          const double& p_dValue) {
  return ChangeCurrentValue(REQUEST_CHANGE_CURRENT_PARAMETER_VALUES, p_nPosition, p_dValue);
}

unsigned int SteeringClient::ChangeCurrentPlaceValues(const unsigned long long& p_nPosition,
                                                      const double& p_dValue) {
  return ChangeCurrentValue(REQUEST_CHANGE_CURRENT_PLACE_VALUES, p_nPosition, p_dValue);
}

template <typename T>
unsigned int SteeringClient::ReceiveCounted(REQUEST_TYPE p_eCode, std::vector<T>& p_aValues) {
  static_assert(sizeof(T) == 8, "counted values are 8 bytes wide");
  return Request(p_eCode, CODE_FAILURE_PASSED_ON, [&] { return ReceiveArray(p_aValues); });
}

unsigned int SteeringClient::ReceiveCurrentValues(
    REQUEST_TYPE p_eCode, std::vector<double>& p_adValues,
    void (Model::*p_pfStore)(const std::vector<double>&)) {
  const unsigned int l_nResult = ReceiveCounted(p_eCode, p_adValues);
  // A failed code frame (the count not yet asked for) passes its result on;
  // so does a failed count or value frame.
  if (l_nResult != 1) return l_nResult;
  if (m_pcModel != NULL) TRY_ALLOC((m_pcModel->*p_pfStore)(p_adValues), return FAILURE);
  return 1;
}

unsigned int SteeringClient::ReadCurrentParameterValues(std::vector<double>& p_adValues) {
  return ReceiveCurrentValues(REQUEST_READ_CURRENT_PARAMETER_VALUES, p_adValues,
                              &Model::SetCurrentParameterValues);
}

unsigned int SteeringClient::ReadCurrentPlaceValues(std::vector<double>& p_adValues) {
  return ReceiveCurrentValues(REQUEST_READ_CURRENT_PLACE_VALUES, p_adValues,
                              &Model::SetCurrentMarking);
}

unsigned int SteeringClient::ReceiveSteeredParamPositions(
    std::vector<unsigned long long>& p_anPositions) {
  return ReceiveCounted(REQUEST_RECEIVE_STEERED_PARAM_POSITIONS, p_anPositions);
}

unsigned int SteeringClient::ReceiveSteeredPlacePositions(
    std::vector<unsigned long long>& p_anPositions) {
  return ReceiveCounted(REQUEST_RECEIVE_STEERED_PLACE_POSITIONS, p_anPositions);
}

unsigned int SteeringClient::SendPositions(REQUEST_TYPE p_eCode,
                                           const std::vector<unsigned long long>& p_anPositions) {
  return Request(p_eCode, CODE_FAILURE_PASSED_ON, [&] { return m_cCodec.Send(p_anPositions); });
}

unsigned int SteeringClient::SendSteeredParamPositions(
    const std::vector<unsigned long long>& p_anPositions) {
  return SendPositions(REQUEST_SEND_STEERED_PARAM_POSITIONS, p_anPositions);
}

unsigned int SteeringClient::SendSteeredPlacePositions(
    const std::vector<unsigned long long>& p_anPositions) {
  return SendPositions(REQUEST_SEND_STEERED_PLACE_POSITIONS, p_anPositions);
}

unsigned int SteeringClient::ResetParameterValues() {
  return Request(REQUEST_RESET_PARAMETER_VALUES, CODE_FAILURE_PASSED_ON, [] { return 1u; });
}

unsigned int SteeringClient::ResetMarkingValues() {
  return Request(REQUEST_RESET_MARKING_VALUES, CODE_FAILURE_PASSED_ON, [] { return 1u; });
}

// Messages and names.

unsigned int SteeringClient::RemoveModel(const wxString& p_sName, int& p_nResult) {
  return Request(REQUEST_REMOVE_MODEL, CODE_FAILURE_PASSED_ON, [&] {
    return Then(m_cCodec.Send(p_sName), [&] { return m_cCodec.Receive(p_nResult); });
  });
}

unsigned int SteeringClient::ReadMessage(REQUEST_TYPE p_eCode, wxString& p_sMessage) {
  return Request(p_eCode, CODE_FAILURE_PASSED_ON, [&] { return m_cCodec.Receive(p_sMessage); });
}

unsigned int SteeringClient::ReceiveErrorMessage(wxString& p_sMessage) {
  return ReadMessage(REQUEST_RECEIVE_ERROR_MESSAGE, p_sMessage);
}

unsigned int SteeringClient::ReadLogMessage(wxString& p_sMessage) {
  return ReadMessage(REQUEST_READ_LOG_MESSAGE, p_sMessage);
}

}  // namespace quor
