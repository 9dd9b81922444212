// SPDX-License-Identifier: MIT
#include "quor/steeringdispatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <type_traits>

#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"

namespace quor {

namespace {

constexpr int DEFAULT_TIMEOUT_SECONDS = 10;

// True when a descriptor has something to read (or has ended) right now.
bool Readable(int p_nFd) {
  pollfd l_cPoll = {p_nFd, POLLIN, 0};
  return ::poll(&l_cPoll, 1, 0) > 0;
}

}  // namespace

// One connection: its socket, its worker thread, and the request loop that
// runs on it. Created, started, closed and destroyed on the main thread;
// everything else runs on the worker.
class SteeringDispatcher::Session {
 public:
  Session(SteeringDispatcher& p_cDispatcher, unsigned int p_nId, wxSocketBase* p_pcSocket)
      : m_rDispatcher(p_cDispatcher),
        m_rHandler(p_cDispatcher.m_rHandler),
        m_nId(p_nId),
        m_pcSocket(p_pcSocket),
        m_nFd(static_cast<int>(p_pcSocket->GetSocket())),
        m_cWire(p_pcSocket),
        m_bEnded(false) {}

  // Waits for the worker, then frees the socket.
  ~Session() {
    if (m_cThread.joinable()) m_cThread.join();
    delete m_pcSocket;
  }

  void Start() { m_cThread = std::thread(&Session::Run, this); }
  // Ends the connection under a worker that may be waiting in a transfer.
  void Close() { ::shutdown(m_nFd, SHUT_RDWR); }
  bool Ended() const { return m_bEnded.load(); }

 private:
  typedef SteeringHandler H;
  enum Wait { WAIT_REQUEST, WAIT_CLOSED, WAIT_STOPPED };

  void Run() {
    const unsigned int l_nVersion = STEERING_PROTOCOL_VERSION;
    const unsigned int l_nResult = Send(l_nVersion);
    if (l_nResult != 1) {
      Fail(wxString::Format(wxT("the protocol version was not acknowledged (result %d)"),
                            static_cast<int>(l_nResult)));
    } else {
      m_rHandler.OnConnect(m_nId);
      while (ServeNextRequest()) {
      }
      m_rHandler.OnDisconnect(m_nId);
    }
    Close();
    m_bEnded.store(true);
    // The main thread frees the connection (after joining this thread).
    SteeringDispatcher* l_pcDispatcher = &m_rDispatcher;
    const unsigned int l_nId = m_nId;
    m_rDispatcher.m_cMainThread.CallAfter([l_pcDispatcher, l_nId] { l_pcDispatcher->Reap(l_nId); });
  }

  // Waits for the next request without a time limit, reads its code and
  // answers it. False when the connection ends.
  bool ServeNextRequest() {
    switch (WaitForRequest()) {
      case WAIT_STOPPED: return false;
      case WAIT_CLOSED: return Report(3, wxT("closed by the peer"));
      case WAIT_REQUEST: break;
    }
    int l_nCode = 0;
    unsigned int l_nResult = Receive(l_nCode);
    if (l_nResult != 1)
      return Fail(wxString::Format(wxT("broken request code frame (result %d)"),
                                   static_cast<int>(l_nResult)));
    if (l_nCode < REQUEST_SEND_CMD || l_nCode > REQUEST_WRITE_MODEL_STATISTICS)
      return Fail(wxString::Format(wxT("unknown request code %d"), l_nCode));

    m_sProblem.clear();
    try {
      l_nResult = Answer(l_nCode);
    } catch (...) {
      // A handler that throws ends its own connection only.
      m_sProblem = wxT("an exception was thrown");
      l_nResult = FAILURE;
    }
    // Some halves report success whatever their frames did; the socket
    // remembers the last transfer's error.
    if (l_nResult == 1 && !m_pcSocket->Error()) return true;
    if (!m_sProblem.empty())
      return Fail(wxString::Format(wxT("request %d: "), l_nCode) + m_sProblem);
    return Fail(wxString::Format(wxT("request %d broke off (result %d)"), l_nCode,
                                 static_cast<int>(l_nResult)));
  }

  // Readability of the socket or of the wake-up pipe. A readable socket
  // whose peer has closed (nothing to peek) is a normal end.
  Wait WaitForRequest() {
    pollfd l_acPoll[2] = {{m_nFd, POLLIN, 0}, {m_rDispatcher.m_anWakeUp[0], POLLIN, 0}};
    for (;;) {
      if (::poll(l_acPoll, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return WAIT_CLOSED;
      }
      if (l_acPoll[1].revents != 0) return WAIT_STOPPED;
      char l_cByte = 0;
      const ssize_t l_nPeeked = ::recv(m_nFd, &l_cByte, 1, MSG_PEEK | MSG_DONTWAIT);
      if (l_nPeeked > 0) return WAIT_REQUEST;
      if (l_nPeeked < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) continue;
      return WAIT_CLOSED;
    }
  }

  // Logs a line about this connection (unless the dispatcher is shutting
  // down) and returns false, the end of the request loop.
  bool Report(unsigned long p_nLevel, const wxString& p_sText) {
    if (m_rDispatcher.m_bStopping.load()) return false;
    wxString l_sLine = wxString::Format(wxT("Steering session %u: "), m_nId) + p_sText;
    l_sLine.Replace(wxT("%"), wxT("%%"));  // LOG takes a format
    LOG(p_nLevel, l_sLine);
    return false;
  }
  bool Fail(const wxString& p_sText) {
    return Report(1, p_sText + wxT("; closing the connection"));
  }

  // The answer to one request: the mirror of the client's operation, frame
  // by frame. Returns the last frame's result.
  unsigned int Answer(int p_nCode) {
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
        const unsigned int l_nResult = Receive(l_nIndex);
        return l_nResult == 1 ? SendModel(static_cast<int>(l_nIndex)) : l_nResult;
      }
      case REQUEST_READ_SIMULATOR_STATE: return Reply(&H::OnReadSimulatorState);
      case REQUEST_READ_SIMULATION_INTERVAL: {
        double l_adInterval[3] = {0.0, 0.0, 0.0};
        m_rHandler.OnReadSimulationInterval(m_nId, l_adInterval[0], l_adInterval[1],
                                            l_adInterval[2]);
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
        Model l_cViews(m_pcSocket, wxT(""), 0, 0);
        return Fill(&H::OnReadModelViews, l_cViews);
      }
      case REQUEST_WRITE_MODEL_VIEWS: {
        Model l_cViews(m_pcSocket, wxT(""), 0, 0);
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
        const unsigned int l_nResult = Receive(l_sName);
        return l_nResult == 1 ? Send(m_rHandler.OnRemoveModel(m_nId, l_sName)) : l_nResult;
      }
      case REQUEST_SEND_SIMULATOR_SETTING: {
        wxString l_sName;
        SimulatorAttribute l_cSettings;
        return Deliver(&H::OnSendSimulatorSetting, l_sName, l_cSettings);
      }
      case REQUEST_RECEIVE_SIMULATOR_SETTING: {
        wxString l_sName;
        SimulatorAttribute l_cSettings;
        const unsigned int l_nResult = Receive(l_sName);
        if (l_nResult != 1) return l_nResult;
        m_rHandler.OnReceiveSimulatorSetting(m_nId, l_sName, l_cSettings);
        return Send(l_cSettings);
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
      case REQUEST_RECEIVE_STEERED_PARAM_POSITIONS:
        return Reply(&H::OnReceiveSteeredParamPositions);
      case REQUEST_RECEIVE_STEERED_PLACE_POSITIONS:
        return Reply(&H::OnReceiveSteeredPlacePositions);
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
  unsigned int AnswerCommand() {
    CMD_TYPE l_eCommand = CMD_PAUSE;
    unsigned int l_nResult = Receive(l_eCommand);
    if (l_nResult != 1) return l_nResult;
    switch (l_eCommand) {
      case CMD_PAUSE: return Deliver(&H::OnPause);
      case CMD_RESUME: return Deliver(&H::OnResume);
      case CMD_STOP: return Deliver(&H::OnStop);
      case CMD_START:
      case CMD_RESTART: {
        wxString l_sName;
        double l_dStart = 0.0, l_dEnd = 0.0, l_dSampling = 0.0;
        l_nResult = m_cWire.ReceiveStartCMD(l_sName, l_dStart, l_dEnd, l_dSampling);
        if (l_nResult == 1)
          (m_rHandler.*(l_eCommand == CMD_START ? &H::OnStart : &H::OnRestart))(
              m_nId, l_sName, l_dStart, l_dEnd, l_dSampling);
        return l_nResult;
      }
    }
    double l_dValue = 0.0;
    l_nResult = Receive(l_dValue);
    if (l_nResult == 1) m_rHandler.OnCommand(m_nId, l_eCommand, l_dValue);
    return l_nResult;
  }

  // Request 6: the option; then the client's model (option 1), or a model
  // index and the server's model.
  unsigned int AnswerRegistration() {
    int l_nOption = 0;
    unsigned int l_nResult = Receive(l_nOption);
    if (l_nResult != 1) return l_nResult;
    if (l_nOption == STEERING_NEW_MODEL) {
      Model* l_pcModel = m_cWire._ReceiveExistingModel(m_pcSocket);
      if (l_pcModel == NULL) return FAILURE;
      SteeringModelStore::Detach(*l_pcModel);
      m_rHandler.OnUploadModel(m_nId, l_pcModel);
      return 1;
    }
    int l_nIndex = 0;
    l_nResult = Receive(l_nIndex);
    return l_nResult == 1 ? SendModel(l_nIndex) : l_nResult;
  }

  // The running model of that index, as the handler hands it out.
  unsigned int SendModel(int p_nIndex) {
    std::unique_ptr<Model> l_pcModel(m_rHandler.OnAttachModel(m_nId, p_nIndex));
    if (!l_pcModel) {
      m_sProblem = wxString::Format(wxT("no running model at index %d"), p_nIndex);
      return FAILURE;
    }
    l_pcModel->SetClientSocket(m_pcSocket);
    return m_cWire._SendExistingModel(l_pcModel.get());
  }

  // The rows' three shapes. Deliver: → the values, then the handler's
  // operation with them. Reply: ← what the operation returns. Fill: ← the
  // values that the operation fills in.
  template <typename... A, typename... T>
  unsigned int Deliver(void (H::*p_pOperation)(unsigned int, A...), T&... p_values) {
    const unsigned int l_nResult = Receive(p_values...);
    if (l_nResult == 1) (m_rHandler.*p_pOperation)(m_nId, p_values...);
    return l_nResult;
  }
  template <typename R>
  unsigned int Reply(R (H::*p_pOperation)(unsigned int)) {
    return Send((m_rHandler.*p_pOperation)(m_nId));
  }
  template <typename... A, typename... T>
  unsigned int Fill(void (H::*p_pOperation)(unsigned int, A...), T&... p_values) {
    (m_rHandler.*p_pOperation)(m_nId, p_values...);
    return Send(p_values...);
  }

  // Values in order, each in its own frame(s), up to the first that fails.
  template <typename... T>
  unsigned int Receive(T&... p_values) {
    unsigned int l_nResult = 1;
    ((l_nResult = l_nResult == 1 ? ReceiveOne(p_values) : l_nResult), ...);
    return l_nResult;
  }
  template <typename... T>
  unsigned int Send(T&&... p_values) {
    unsigned int l_nResult = 1;
    ((l_nResult = l_nResult == 1 ? SendOne(p_values) : l_nResult), ...);
    return l_nResult;
  }

  // The frames of each kind of value: a number as one value frame of its
  // width, a text as a string frame, a list of 8-byte values as a count and
  // one frame, the library's messages as their own exchanges. A Model stands
  // for its views.
  template <typename T>
  using IfNumber = std::enable_if_t<std::is_arithmetic<T>::value || std::is_enum<T>::value, int>;
  template <typename T, IfNumber<T> = 0>
  unsigned int ReceiveOne(T& p_value) {
    return m_cWire.ReceiveValue(&p_value, sizeof(T));
  }
  template <typename T, IfNumber<T> = 0>
  unsigned int SendOne(const T& p_value) {
    return m_cWire.SendValue(&p_value, sizeof(T));
  }
  unsigned int ReceiveOne(wxString& p_sValue) { return m_cWire.ReceiveString(p_sValue); }
  unsigned int SendOne(const wxString& p_sValue) { return m_cWire.SendString(p_sValue); }
  unsigned int SendOne(const std::vector<wxString>& p_asValue) {
    return m_cWire.SendVectorString(p_asValue);
  }
  unsigned int ReceiveOne(SteeringMatrix& p_aadValue) {
    return m_cWire.ReceiveVector2D(p_aadValue);
  }
  unsigned int SendOne(const SteeringMatrix& p_aadValue) {
    return m_cWire.SendVector2D(p_aadValue);
  }
  unsigned int ReceiveOne(std::vector<QU_SimulatorCategory>& p_aList) {
    return m_cWire.ReceiveAvailableSimulators(p_aList);
  }
  unsigned int SendOne(const std::vector<QU_SimulatorCategory>& p_aList) {
    return m_cWire.SendAvailableSimulators(p_aList);
  }
  unsigned int ReceiveOne(std::vector<unsigned long long>& p_anValue) {
    unsigned long long l_nCount = 0;
    const unsigned int l_nResult = Receive(l_nCount);
    p_anValue.clear();
    if (l_nResult != 1 || l_nCount == 0) return l_nResult;
    if (l_nCount > MAX_RECEIVED_ROWS) {
      m_sProblem = wxString::Format(wxT("%llu positions announced"), l_nCount);
      return FAILURE;
    }
    TRY_ALLOC(p_anValue.resize(l_nCount), return FAILURE);
    return m_cWire.ReceiveValue(p_anValue.data(),
                                static_cast<unsigned int>(l_nCount * sizeof(unsigned long long)));
  }
  unsigned int SendOne(const std::vector<unsigned long long>& p_anValue) {
    return SendList(p_anValue);
  }
  unsigned int SendOne(const std::vector<double>& p_adValue) { return SendList(p_adValue); }
  template <typename T>
  unsigned int SendList(const std::vector<T>& p_aValue) {
    return m_cWire.SendArray(p_aValue.empty() ? NULL : p_aValue.data(), p_aValue.size(), sizeof(T));
  }
  unsigned int ReceiveOne(SimulatorAttribute& p_cValue) {
    return p_cValue.ReceiveAttributes(&m_cWire);
  }
  unsigned int SendOne(SimulatorAttribute& p_cValue) { return p_cValue.SendAttributes(&m_cWire); }
  unsigned int ReceiveOne(ResultMatrixInfo& p_cValue) { return p_cValue.ReceiveValue(&m_cWire); }
  unsigned int ReceiveOne(ModelRuntimeState& p_cValue) {
    return m_cWire.ReceiveModelStatistics(p_cValue);
  }
  unsigned int SendOne(ModelRuntimeState& p_cValue) {
    return m_cWire.SendModelStatistics(p_cValue);
  }
  unsigned int ReceiveOne(Model& p_cViews) { return p_cViews.ReceiveModelViews(); }
  unsigned int SendOne(Model& p_cViews) { return p_cViews.SendModelViews(); }

  SteeringDispatcher& m_rDispatcher;
  SteeringHandler& m_rHandler;
  const unsigned int m_nId;
  wxSocketBase* const m_pcSocket;
  const int m_nFd;
  // The frames of this connection.
  SteeringCMD m_cWire;
  // Why the request being answered failed, when more than a frame result
  // tells it.
  wxString m_sProblem;
  std::atomic<bool> m_bEnded;
  std::thread m_cThread;
};

SteeringDispatcher::SteeringDispatcher(SteeringServer& p_cServer, SteeringHandler& p_cHandler)
    : m_rServer(p_cServer),
      m_rHandler(p_cHandler),
      m_nTimeout(DEFAULT_TIMEOUT_SECONDS),
      m_bStarted(false),
      m_bStopped(false),
      m_bStopping(false),
      m_anWakeUp{-1, -1},
      m_nLastConnection(0) {
  if (::pipe2(m_anWakeUp, O_CLOEXEC) != 0) m_anWakeUp[0] = m_anWakeUp[1] = -1;
}

SteeringDispatcher::~SteeringDispatcher() {
  Shutdown();
  for (int l_nFd : m_anWakeUp)
    if (l_nFd >= 0) ::close(l_nFd);
}

void SteeringDispatcher::SetTimeout(int p_nSeconds) { m_nTimeout = p_nSeconds; }

bool SteeringDispatcher::Start() {
  wxSocketServer* l_pcListener = m_rServer.GetServerSocket();
  if (m_bStarted || m_bStopped || m_anWakeUp[0] < 0 || l_pcListener == NULL ||
      !l_pcListener->IsOk())
    return false;
  m_rServer.Bind(wxEVT_SOCKET, &SteeringDispatcher::OnSocketEvent, this);
  m_bStarted = true;
  // Clients that connected before the start wait in the listening queue.
  Accept();
  return true;
}

void SteeringDispatcher::Shutdown() {
  if (m_bStarted) m_rServer.Unbind(wxEVT_SOCKET, &SteeringDispatcher::OnSocketEvent, this);
  m_bStarted = false;
  m_bStopped = true;
  if (m_bStopping.exchange(true)) return;
  // Idle workers wake up on the pipe, the others when their socket ends.
  if (m_anWakeUp[1] >= 0) {
    const ssize_t l_nWritten = ::write(m_anWakeUp[1], "x", 1);
    (void)l_nWritten;  // a full pipe is awake already
  }
  for (auto& l_cSession : m_mSessions) l_cSession.second->Close();
  m_mSessions.clear();
}

unsigned int SteeringDispatcher::GetConnectionCount() {
  unsigned int l_nCount = 0;
  for (auto& l_cSession : m_mSessions)
    if (!l_cSession.second->Ended()) ++l_nCount;
  return l_nCount;
}

void SteeringDispatcher::OnSocketEvent(wxSocketEvent& p_cEvent) {
  if (p_cEvent.GetSocketEvent() == wxSOCKET_CONNECTION)
    Accept();
  else
    p_cEvent.Skip();
}

void SteeringDispatcher::Accept() {
  wxSocketServer* l_pcListener = m_rServer.GetServerSocket();
  while (Readable(static_cast<int>(l_pcListener->GetSocket()))) {
    // Blocking from the start, the socket never joins the event loop: its
    // worker may use it without one.
    std::unique_ptr<wxSocketBase> l_pcSocket(
        new wxSocketBase(wxSOCKET_WAITALL | wxSOCKET_BLOCK, wxSOCKET_BASE));
    if (!l_pcListener->AcceptWith(*l_pcSocket, false)) return;
    l_pcSocket->Notify(false);
    l_pcSocket->SetTimeout(m_nTimeout);

    const unsigned int l_nId = ++m_nLastConnection;
    wxIPV4address l_cPeer;
    l_pcSocket->GetPeer(l_cPeer);
    LOG(3, wxString::Format(wxT("Steering session %u: connected from %s"), l_nId,
                            l_cPeer.IPAddress()));
    Session* l_pcSession = new Session(*this, l_nId, l_pcSocket.release());
    m_mSessions[l_nId].reset(l_pcSession);
    l_pcSession->Start();
  }
}

void SteeringDispatcher::Reap(unsigned int p_nConnection) { m_mSessions.erase(p_nConnection); }

}  // namespace quor
