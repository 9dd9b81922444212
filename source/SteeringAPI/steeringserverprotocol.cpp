// SPDX-License-Identifier: MIT
#include "steeringserverprotocol.h"

#include <memory>

#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"

namespace quor {

SteeringServerProtocol::SteeringServerProtocol(SteeringHandler& p_cHandler,
                                               unsigned int p_nConnection,
                                               wxSocketBase* p_pcSocket)
    : m_rHandler(p_cHandler), m_nConnection(p_nConnection), m_cWire(p_pcSocket),
      m_cCodec(m_cWire) {}

// The one place where a connection takes its value-size limit: the codec
// checks the lists whose size it derives from a count before it sizes them;
// every other value's size is the transport's to check, and its limit, once
// the transport keeps one per connection, is set here beside the codec's.
void SteeringServerProtocol::SetMaxValueSize(unsigned long long p_nBytes) {
  m_cCodec.SetMaxValueSize(p_nBytes);
}

unsigned int SteeringServerProtocol::SendVersion() {
  return m_cCodec.Send(STEERING_PROTOCOL_VERSION);
}

unsigned int SteeringServerProtocol::ReceiveRequestCode(int& p_nCode) {
  return m_cCodec.Receive(p_nCode);
}

unsigned int SteeringServerProtocol::Answer(int p_nCode, SteeringDeadline* p_pcDeadline) {
  m_pcDeadline = p_pcDeadline;
  m_sProblem.clear();
  m_cCodec.ClearProblem();
  m_nUncleanBefore = m_cWire.UncleanFrames();
  unsigned int l_nResult = FAILURE;
  try {
    l_nResult = Row(p_nCode);
  } catch (const UncleanRequest&) {
    l_nResult = FAILURE;
  } catch (...) {
    // A handler that throws ends its own connection only.
    m_sProblem = wxT("an exception was thrown");
    l_nResult = FAILURE;
  }
  m_pcDeadline = nullptr;
  if (!FramesClean()) {
    // The frames reported success with zeros where the stream fell short;
    // a peer that sends such blocks is not served on.
    m_sProblem = wxT("a compressed value was not a clean zlib stream");
    l_nResult = FAILURE;
  }
  if (m_sProblem.empty()) m_sProblem = m_cCodec.Problem();
  return l_nResult;
}

// The answer to one request: the mirror of the client's operation, frame by
// frame. Returns the last frame's result.
unsigned int SteeringServerProtocol::Row(int p_nCode) {
  switch (p_nCode) {
    case REQUEST_SEND_CMD: return AnswerCommand();
    case REQUEST_GET_RUNNING_MODEL_NAMES: return Reply(&H::OnGetRunningModelNames);
    case REQUEST_READ_RESULT_MATRIX: return Reply(&H::OnReadResultMatrix);
    case REQUEST_READ_RATE_MATRIX: return Reply(&H::OnReadRateMatrix);
    case REQUEST_WRITE_RESULT_MATRIX: {
      SteeringMatrix l_aadMatrix;
      return Deliver(&H::OnWriteResultMatrix, l_aadMatrix);
    }
    case REQUEST_STEERING_OPTION: return AnswerRegistration();
    case REQUEST_CHANGE_CURRENT_MODEL: {
      unsigned int l_nIndex = 0;
      const unsigned int l_nResult = m_cCodec.Receive(l_nIndex);
      return l_nResult == SUCCESS ? SendModel(static_cast<int>(l_nIndex)) : l_nResult;
    }
    case REQUEST_READ_SIMULATOR_STATE: return Reply(&H::OnReadSimulatorState);
    case REQUEST_READ_SIMULATION_INTERVAL: {
      double l_adInterval[3] = {0.0, 0.0, 0.0};
      Call([&] {
        m_rHandler.OnReadSimulationInterval(m_nConnection, l_adInterval[0], l_adInterval[1],
                                            l_adInterval[2]);
      });
      return m_cWire.SendSimulationInterval(l_adInterval[0], l_adInterval[1], l_adInterval[2]);
    }
    case REQUEST_READ_AVAILABLE_SIMULATORS: return Reply(&H::OnReadAvailableSimulators);
    case REQUEST_WRITE_AVAILABLE_SIMULATORS: {
      std::vector<QU_SimulatorCategory> l_aList;
      return Deliver(&H::OnWriteAvailableSimulators, l_aList);
    }
    case REQUEST_READ_CURRENT_SIMULATOR_NAME: {
      wxString l_sFirst, l_sSecond;
      return Fill(&H::OnReadCurrentSimulatorName, l_sFirst, l_sSecond);
    }
    case REQUEST_READ_MODEL_VIEWS: {
      Model l_cViews(m_cWire.GetClientSocket(), wxT(""), 0, 0);
      return Fill(&H::OnReadModelViews, l_cViews);
    }
    case REQUEST_WRITE_MODEL_VIEWS: {
      Model l_cViews(m_cWire.GetClientSocket(), wxT(""), 0, 0);
      return Deliver(&H::OnWriteModelViews, l_cViews);
    }
    case REQUEST_READ_MODEL_STATISTICS: {
      ModelRuntimeState l_cState;
      return Fill(&H::OnReadModelStatistics, l_cState);
    }
    case REQUEST_CHANGE_CURRENT_PARAMETER_VALUES: {
      unsigned long long l_nPosition = 0;
      double l_dValue = 0.0;
      return Deliver(&H::OnChangeCurrentParameterValues, l_nPosition, l_dValue);
    }
    case REQUEST_CHANGE_CURRENT_PLACE_VALUES: {
      unsigned long long l_nPosition = 0;
      double l_dValue = 0.0;
      return Deliver(&H::OnChangeCurrentPlaceValues, l_nPosition, l_dValue);
    }
    case REQUEST_READ_CURRENT_PARAMETER_VALUES: return Reply(&H::OnReadCurrentParameterValues);
    case REQUEST_READ_CURRENT_PLACE_VALUES: return Reply(&H::OnReadCurrentPlaceValues);
    case REQUEST_REMOVE_MODEL: {
      wxString l_sName;
      unsigned int l_nResult = m_cCodec.Receive(l_sName);
      if (l_nResult != SUCCESS) return l_nResult;
      int l_nRemoved = 0;
      Call([&] { l_nRemoved = m_rHandler.OnRemoveModel(m_nConnection, l_sName); });
      return m_cCodec.Send(l_nRemoved);
    }
    case REQUEST_SEND_SIMULATOR_SETTING: {
      wxString l_sName;
      SimulatorAttribute l_cSettings;
      return Deliver(&H::OnSendSimulatorSetting, l_sName, l_cSettings);
    }
    case REQUEST_RECEIVE_SIMULATOR_SETTING: {
      wxString l_sName;
      SimulatorAttribute l_cSettings;
      const unsigned int l_nResult = m_cCodec.Receive(l_sName);
      if (l_nResult != SUCCESS) return l_nResult;
      Call([&] { m_rHandler.OnReceiveSimulatorSetting(m_nConnection, l_sName, l_cSettings); });
      return m_cCodec.Send(l_cSettings);
    }
    case REQUEST_UPDATE_RESULT_MATRIX_INFO: {
      ResultMatrixInfo l_cInfo(0);
      return Deliver(&H::OnUpdateResultMatrixInfo, l_cInfo);
    }
    case REQUEST_INITIALIZE: return Reply(&H::OnInitialize);
    case REQUEST_RECEIVE_ERROR_MESSAGE: return Reply(&H::OnReceiveErrorMessage);
    case REQUEST_CHANGE_SIMULATOR_SPEED: {
      unsigned int l_nSpeed = 0;
      return Deliver(&H::OnChangeSimulatorSpeed, l_nSpeed);
    }
    case REQUEST_SEND_STEERED_PARAM_POSITIONS: {
      std::vector<unsigned long long> l_anPositions;
      return Deliver(&H::OnSendSteeredParamPositions, l_anPositions);
    }
    case REQUEST_SEND_STEERED_PLACE_POSITIONS: {
      std::vector<unsigned long long> l_anPositions;
      return Deliver(&H::OnSendSteeredPlacePositions, l_anPositions);
    }
    case REQUEST_RECEIVE_STEERED_PARAM_POSITIONS: return Reply(&H::OnReceiveSteeredParamPositions);
    case REQUEST_RECEIVE_STEERED_PLACE_POSITIONS: return Reply(&H::OnReceiveSteeredPlacePositions);
    case REQUEST_RESET_PARAMETER_VALUES: return Deliver(&H::OnResetParameterValues);
    case REQUEST_RESET_MARKING_VALUES: return Deliver(&H::OnResetMarkingValues);
    case REQUEST_READ_LOG_MESSAGE: return Reply(&H::OnReadLogMessage);
    case REQUEST_WRITE_CURRENT_SIMULATOR_NAME: {
      wxString l_sFirst, l_sSecond;
      return Deliver(&H::OnWriteCurrentSimulatorName, l_sFirst, l_sSecond);
    }
    case REQUEST_WRITE_SIMULATOR_STATE: {
      int l_nState = 0;
      return Deliver(&H::OnWriteSimulatorState, l_nState);
    }
    case REQUEST_WRITE_MODEL_STATISTICS: {
      ModelRuntimeState l_cState;
      return Deliver(&H::OnWriteModelStatistics, l_cState);
    }
  }
  return FAILURE;
}

// Request 1: the CMD_TYPE, then what that command carries: nothing for
// pause, resume and stop, the start command for start and restart, and a
// double for any other CMD_TYPE.
unsigned int SteeringServerProtocol::AnswerCommand() {
  CMD_TYPE l_eCommand = CMD_PAUSE;
  unsigned int l_nResult = m_cCodec.Receive(l_eCommand);
  if (l_nResult != SUCCESS) return l_nResult;
  switch (l_eCommand) {
    case CMD_PAUSE: return Deliver(&H::OnPause);
    case CMD_RESUME: return Deliver(&H::OnResume);
    case CMD_STOP: return Deliver(&H::OnStop);
    case CMD_START:
    case CMD_RESTART: {
      wxString l_sName;
      double l_dStart = 0.0, l_dEnd = 0.0, l_dSampling = 0.0;
      l_nResult = m_cWire.ReceiveStartCMD(l_sName, l_dStart, l_dEnd, l_dSampling);
      if (l_nResult == SUCCESS)
        Call([&] {
          (m_rHandler.*(l_eCommand == CMD_START ? &H::OnStart : &H::OnRestart))(
              m_nConnection, l_sName, l_dStart, l_dEnd, l_dSampling);
        });
      return l_nResult;
    }
  }
  double l_dValue = 0.0;
  l_nResult = m_cCodec.Receive(l_dValue);
  if (l_nResult == SUCCESS)
    Call([&] { m_rHandler.OnCommand(m_nConnection, l_eCommand, l_dValue); });
  return l_nResult;
}

// Request 6: the option; then the client's model (option 1), or a model
// index and the server's model.
unsigned int SteeringServerProtocol::AnswerRegistration() {
  int l_nOption = 0;
  unsigned int l_nResult = m_cCodec.Receive(l_nOption);
  if (l_nResult != SUCCESS) return l_nResult;
  if (l_nOption == STEERING_NEW_MODEL) {
    // Freed here unless the handler takes it.
    std::unique_ptr<Model> l_pcModel(m_cWire._ReceiveExistingModel(m_cWire.GetClientSocket()));
    if (!l_pcModel) return FAILURE;
    SteeringModelStore::Detach(*l_pcModel);
    Call([&] { m_rHandler.OnUploadModel(m_nConnection, l_pcModel.release()); });
    return SUCCESS;
  }
  int l_nIndex = 0;
  l_nResult = m_cCodec.Receive(l_nIndex);
  return l_nResult == SUCCESS ? SendModel(l_nIndex) : l_nResult;
}

// The running model of that index, as the handler hands it out.
unsigned int SteeringServerProtocol::SendModel(int p_nIndex) {
  ModelSnapshot l_pcModel;
  Call([&] { l_pcModel = m_rHandler.OnAttachModel(m_nConnection, p_nIndex); });
  if (!l_pcModel) {
    m_sProblem = wxString::Format(wxT("no running model at index %d"), p_nIndex);
    return FAILURE;
  }
  return m_cCodec.Send(l_pcModel);
}

}  // namespace quor
