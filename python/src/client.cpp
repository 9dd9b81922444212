// SPDX-License-Identifier: MIT
// quor._quor.ClientHandle: one SteeringClient, driven from Python.
//
// Every request runs without the GIL and under the handle's own lock, so
// that Python threads sharing a handle take turns and the others run
// meanwhile. A request whose frames fail leaves the connection out of step
// with the server: the handle closes it and raises quor.ConnectError.
// Steering requests (commands, changes, speed, settings) read the
// connection's refusals right after, under the same lock, and return the
// server's refusal text ("" when the request was taken).
#include <pybind11/numpy.h>
#include <pybind11/stl.h>
#include <wx/log.h>
#include <wx/socket.h>

#include <cmath>
#include <limits>
#include <memory>
#include <mutex>

#include "netdata.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringclient.h"
#include "quor/steeringmodelstore.h"
#include "quorpy.h"

namespace quor {
namespace python {

namespace {

// Collects the log lines of the calling thread while it lives (the
// library's version check says in the log what the server announced).
class ThreadLogCapture : public wxLog {
 public:
  ThreadLogCapture() : m_pcPrevious(wxLog::SetThreadActiveTarget(this)) {}
  ~ThreadLogCapture() override { wxLog::SetThreadActiveTarget(m_pcPrevious); }
  const wxString& Text() const { return m_sText; }

 protected:
  void DoLogRecord(wxLogLevel, const wxString& p_sText, const wxLogRecordInfo&) override {
    m_sText += p_sText + wxT("\n");
  }

 private:
  wxLog* m_pcPrevious;
  wxString m_sText;
};

// The version a server announced, from the library's mismatch line
// ("... The server version is 6. ..."); -1 when the line is not there.
long long AnnouncedVersion(const wxString& p_sLog) {
  static const wxString s_sMarker = wxT("The server version is ");
  const int l_nAt = p_sLog.Find(s_sMarker);
  if (l_nAt == wxNOT_FOUND) return -1;
  unsigned long long l_nVersion = 0;
  wxString l_sDigits;
  for (wxString::const_iterator l_it = p_sLog.begin() + l_nAt + s_sMarker.length();
       l_it != p_sLog.end() && *l_it >= '0' && *l_it <= '9'; ++l_it)
    l_sDigits += *l_it;
  if (l_sDigits.empty() || !l_sDigits.ToULongLong(&l_nVersion)) return -1;
  return static_cast<long long>(l_nVersion);
}

py::array_t<double> ToArray(const SteeringMatrix& p_aadMatrix) {
  // Output points that every row has.
  size_t l_nColumns = p_aadMatrix.empty() ? 0 : std::numeric_limits<size_t>::max();
  for (const std::vector<double>& l_rRow : p_aadMatrix)
    l_nColumns = std::min(l_nColumns, l_rRow.size());
  py::array_t<double> l_cArray({p_aadMatrix.size(), l_nColumns});
  auto l_cView = l_cArray.mutable_unchecked<2>();
  for (size_t r = 0; r < p_aadMatrix.size(); ++r)
    for (size_t c = 0; c < l_nColumns; ++c) l_cView(r, c) = p_aadMatrix[r][c];
  return l_cArray;
}

}  // namespace

class ClientHandle {
 public:
  ClientHandle(const std::string& p_sHost, unsigned int p_nPort, double p_dTimeout)
      : m_sHost(p_sHost), m_nPort(p_nPort), m_nTimeout(1), m_pcModel(NULL) {
    if (!(p_dTimeout > 0.0) || !std::isfinite(p_dTimeout))
      throw py::value_error("the timeout must be a positive number of seconds");
    // wxWidgets counts whole seconds.
    m_nTimeout = static_cast<int>(std::min(std::ceil(p_dTimeout), 86400.0));
  }

  ~ClientHandle() {
    WithoutGil l_cNoGil;
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    Drop();
  }

  std::string Where() const { return m_sHost + ":" + std::to_string(m_nPort); }

  // Connects and checks the protocol version. Raises quor.ConnectError, or
  // quor.VersionMismatch for a server of another version.
  void Connect() {
    Runtime::Get(false);
    unsigned int l_nResult = FAILURE;
    wxString l_sLog;
    bool l_bTimedOut = false, l_bNoHost = false;
    {
      WithoutGil l_cNoGil;
      std::lock_guard<std::mutex> l_cLock(m_cMutex);
      Drop();
      wxIPV4address l_cAddress;
      if (!l_cAddress.Hostname(FromPy(m_sHost))) {
        l_bNoHost = true;
      } else {
        m_pcClient.reset(new SteeringClient(FromPy(m_sHost), wxString::Format(wxT("%u"), m_nPort)));
        m_pcClient->SetTimeout(m_nTimeout);
        ThreadLogCapture l_cCapture;
        l_nResult = m_pcClient->ConnectToServer(false);
        l_sLog = l_cCapture.Text();
        wxSocketBase* l_pcSocket = m_pcClient->GetClientSocket();
        l_bTimedOut = l_pcSocket != NULL && l_pcSocket->LastError() == wxSOCKET_TIMEDOUT;
        if (l_nResult != SUCCESS) Drop();
      }
    }
    if (l_nResult == SUCCESS) return;
    if (l_bNoHost) Raise("ConnectError", "cannot connect to " + Where() + ": unknown host");
    if (l_nResult == VERSION_MISMATCH) {
      const long long l_nVersion = AnnouncedVersion(l_sLog);
      py::object l_cClass = py::module_::import("quor.errors").attr("VersionMismatch");
      py::object l_cError =
          l_cClass(Where(), l_nVersion < 0 ? py::object(py::none()) : py::int_(l_nVersion),
                   STEERING_PROTOCOL_VERSION, m_nTimeout);
      PyErr_SetObject(l_cClass.ptr(), l_cError.ptr());
      throw py::error_already_set();
    }
    Raise("ConnectError",
          "cannot connect to a steering server at " + Where() +
              (l_bTimedOut ? ": no answer within " + std::to_string(m_nTimeout) + " s"
                           : ": the connection was refused (is the server running there?)"));
  }

  void Close() {
    WithoutGil l_cNoGil;
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    Drop();
  }

  bool IsConnected() {
    WithoutGil l_cNoGil;
    std::lock_guard<std::mutex> l_cLock(m_cMutex);
    return m_pcClient && m_pcClient->GetClientSocket() != NULL && m_pcClient->IsConnected();
  }

  std::vector<std::string> ModelNames() {
    std::vector<wxString> l_asNames;
    Request("GetRuningModelNames", [&](SteeringClient& c) { return c.GetRuningModelNames(l_asNames); });
    std::vector<std::string> l_asTexts;
    for (const wxString& l_sName : l_asNames) l_asTexts.push_back(ToPy(l_sName));
    return l_asTexts;
  }

  // Registration with the running model of that index. REQUIRES: an index
  // the server runs (the server drops a connection that names another).
  void Attach(int p_nIndex) {
    Request("Initialize", [&](SteeringClient& c) {
      const unsigned int l_nResult = c.Initialize(p_nIndex);
      m_pcModel = c.GetModel();
      // The model uploaded before is no longer the current one.
      m_pcUploaded.reset();
      return l_nResult;
    });
  }

  void Upload(const py::dict& p_rNet) {
    const NetData l_cNet = NetFromDict(p_rNet);
    std::unique_ptr<Model> l_pcModel = BuildModel(l_cNet);
    Request("Initialize", [&](SteeringClient& c) {
      const unsigned int l_nResult = c.Initialize(l_pcModel.get());
      m_pcUploaded = std::move(l_pcModel);
      m_pcModel = c.GetModel();
      return l_nResult;
    });
  }

  // The current model as a net dict; None before registration.
  py::object Describe() {
    bool l_bModel = false;
    NetData l_cNet;
    {
      WithoutGil l_cNoGil;
      std::lock_guard<std::mutex> l_cLock(m_cMutex);
      if (m_pcClient && m_pcModel != NULL) {
        l_bModel = true;
        l_cNet = ReadNet(*m_pcModel);
      }
    }
    if (!l_bModel) return py::none();
    return NetToDict(l_cNet);
  }

  // Steering requests; each returns the refusal ("" when taken).
  std::string Command(int p_nCommand) {
    return Steer("Send_CMD",
                 [&](SteeringClient& c) { return c.Send_CMD(static_cast<CMD_TYPE>(p_nCommand)); });
  }
  std::string Start(const std::string& p_sName, double p_dStart, double p_dEnd, double p_dStep,
                    bool p_bRestart) {
    return Steer(p_bRestart ? "CMD_Restart" : "CMD_Start", [&](SteeringClient& c) {
      return p_bRestart ? c.CMD_Restart(FromPy(p_sName), p_dStart, p_dEnd, p_dStep)
                        : c.CMD_Start(FromPy(p_sName), p_dStart, p_dEnd, p_dStep);
    });
  }
  std::string SetSpeed(unsigned int p_nSpeed) {
    return Steer("ChanageSimulatorSpeed",
                 [&](SteeringClient& c) { return c.ChanageSimulatorSpeed(p_nSpeed); });
  }
  // Changes several values in one turn: (position, value) pairs.
  std::string ChangeValues(bool p_bPlaces,
                           const std::vector<std::pair<unsigned long long, double> >& p_aChanges) {
    return Steer(p_bPlaces ? "ChangeCurrentPlaceValues" : "ChangeCurrentParameterValues",
                 [&](SteeringClient& c) {
                   unsigned int l_nResult = SUCCESS;
                   for (const auto& l_rChange : p_aChanges) {
                     l_nResult = p_bPlaces
                                     ? c.ChangeCurrentPlaceValues(l_rChange.first, l_rChange.second)
                                     : c.ChangeCurrentParameterValues(l_rChange.first,
                                                                      l_rChange.second);
                     if (l_nResult != SUCCESS) break;
                   }
                   return l_nResult;
                 });
  }
  std::string ResetValues(bool p_bPlaces) {
    return Steer(p_bPlaces ? "ResetMarkingValues" : "ResetParameterValues",
                 [&](SteeringClient& c) {
                   return p_bPlaces ? c.ResetMarkingValues() : c.ResetParameterValues();
                 });
  }
  std::string SetCurrentSimulator(const std::string& p_sCategory, const std::string& p_sName) {
    return Steer("WriteCurrentSimulatorName", [&](SteeringClient& c) {
      return c.WriteCurrentSimulatorName(FromPy(p_sCategory), FromPy(p_sName));
    });
  }
  std::string WriteSettings(const std::string& p_sSimulator, const py::list& p_rSettings) {
    SimulatorAttribute l_cSettings;
    for (const py::handle l_cItem : p_rSettings) {
      const py::dict l_cSetting = py::reinterpret_borrow<py::dict>(l_cItem);
      l_cSettings.AddAttribute(FromPy(l_cSetting["name"].cast<std::string>()),
                               FromPy(l_cSetting["caption"].cast<std::string>()),
                               FromPy(l_cSetting["value"].cast<std::string>()),
                               l_cSetting["gui_type"].cast<unsigned int>(),
                               l_cSetting["min"].cast<double>(), l_cSetting["max"].cast<double>());
      std::vector<wxString> l_asChoices;
      for (const std::string& l_sChoice : l_cSetting["choices"].cast<std::vector<std::string> >())
        l_asChoices.push_back(FromPy(l_sChoice));
      l_cSettings.SetPossibleValues(static_cast<unsigned int>(l_cSettings.size() - 1),
                                    l_asChoices);
    }
    return Steer("SendSimulatorSetting", [&](SteeringClient& c) {
      return c.SendSimulatorSetting(FromPy(p_sSimulator), &l_cSettings);
    });
  }

  // Reads.
  std::vector<double> Values(bool p_bPlaces) {
    std::vector<double> l_adValues;
    Request(p_bPlaces ? "ReadCurrentPlaceValues" : "ReadCurrentParameterValues",
            [&](SteeringClient& c) {
              return p_bPlaces ? c.ReadCurrentPlaceValues(l_adValues)
                               : c.ReadCurrentParameterValues(l_adValues);
            });
    return l_adValues;
  }
  py::array_t<double> Matrix(bool p_bRates) {
    SteeringMatrix l_aadMatrix;
    Request(p_bRates ? "ReadRateMatrix" : "ReadResultMatrix", [&](SteeringClient& c) {
      return p_bRates ? c.ReadRateMatrix(l_aadMatrix) : c.ReadResultMatrix(l_aadMatrix);
    });
    return ToArray(l_aadMatrix);
  }
  py::tuple Interval() {
    const double l_dNaN = std::numeric_limits<double>::quiet_NaN();
    double l_dStart = l_dNaN, l_dEnd = l_dNaN, l_dStep = l_dNaN;
    Request("ReadSimulationInterval", [&](SteeringClient& c) {
      // Its result is FAILURE in every case: the outputs tell.
      c.ReadSimulationInterval(l_dStart, l_dEnd, l_dStep);
      return std::isnan(l_dStart) ? FAILURE : SUCCESS;
    });
    return py::make_tuple(l_dStart, l_dEnd, l_dStep);
  }
  py::list Simulators() {
    std::vector<QU_SimulatorCategory> l_aCategories;
    Request("ReadAvailableSimulators", [&](SteeringClient& c) {
      c.ReadAvailableSimulators(l_aCategories);
      // Its frames' results are not passed on: the socket tells.
      return c.GetClientSocket()->Error() ? FAILURE : SUCCESS;
    });
    py::list l_cList;
    for (const QU_SimulatorCategory& l_rCategory : l_aCategories) {
      std::vector<std::string> l_asNames;
      for (const wxString& l_sName : l_rCategory.m_asSimulatorNames) l_asNames.push_back(ToPy(l_sName));
      l_cList.append(py::make_tuple(ToPy(l_rCategory.m_sCategoryName), l_rCategory.m_nCategoryId,
                                    l_asNames));
    }
    return l_cList;
  }
  py::tuple CurrentSimulator() {
    wxString l_sCategory, l_sName;
    Request("ReadCurrentSimulatorName",
            [&](SteeringClient& c) { return c.ReadCurrentSimulatorName(l_sCategory, l_sName); });
    return py::make_tuple(ToPy(l_sCategory), ToPy(l_sName));
  }
  py::list Settings(const std::string& p_sSimulator) {
    SimulatorAttribute l_cSettings;
    Request("ReceiveSimulatorSetting", [&](SteeringClient& c) {
      return c.ReceiveSimulatorSetting(FromPy(p_sSimulator), &l_cSettings);
    });
    py::list l_cList;
    for (unsigned int i = 0; i < l_cSettings.size(); ++i) {
      wxString l_sName, l_sCaption, l_sValue;
      unsigned int l_nGuiType = 0;
      double l_dMin = 0.0, l_dMax = 0.0;
      if (!l_cSettings.GetAttribute(i, l_sName, l_sCaption, l_sValue, l_nGuiType, l_dMin, l_dMax))
        continue;
      std::vector<std::string> l_asChoices;
      for (const wxString& l_sChoice : l_cSettings.GetPossibleValues(i))
        l_asChoices.push_back(ToPy(l_sChoice));
      py::dict l_cSetting;
      l_cSetting["name"] = ToPy(l_sName);
      l_cSetting["caption"] = ToPy(l_sCaption);
      l_cSetting["value"] = ToPy(l_sValue);
      l_cSetting["gui_type"] = l_nGuiType;
      l_cSetting["min"] = l_dMin;
      l_cSetting["max"] = l_dMax;
      l_cSetting["choices"] = l_asChoices;
      l_cList.append(l_cSetting);
    }
    return l_cList;
  }
  py::dict Statistics() {
    ModelRuntimeState l_cState;
    Request("ReadModelStatistics", [&](SteeringClient& c) { return c.ReadModelStatistics(l_cState); });
    py::dict l_cDict;
    l_cDict["state"] = l_cState.FindValue<AttributeInt>(keys::SIMULATOR_STATE, -1);
    l_cDict["progress"] = l_cState.FindValue<AttributeDouble>(keys::SIMULATOR_PROGRESS, 0.0);
    l_cDict["runtime"] = l_cState.FindValue<AttributeDouble>(keys::SIMULATOR_RUNTIME, 0.0);
    l_cDict["error"] = l_cState.FindValue<AttributeInt>(keys::ERROR_STATE, 0);
    l_cDict["speed"] = l_cState.FindValue<AttributeInt>(keys::SIMULATOR_SPEED, 0);
    Attribute* l_pcCategory = l_cState.FindAttribute(keys::SIMULATOR_CATEGORY);
    Attribute* l_pcAlgorithm = l_cState.FindAttribute(keys::CURRENT_SIMULATOR_ALGORITHM);
    l_cDict["category"] = l_pcCategory ? ToPy(l_pcCategory->GetValueString()) : std::string();
    l_cDict["simulator"] = l_pcAlgorithm ? ToPy(l_pcAlgorithm->GetValueString()) : std::string();
    return l_cDict;
  }
  std::string ErrorMessage() {
    wxString l_sMessage;
    Request("ReceiveErrorMessage", [&](SteeringClient& c) { return c.ReceiveErrorMessage(l_sMessage); });
    return ToPy(l_sMessage);
  }
  std::string LogMessage() {
    wxString l_sMessage;
    Request("ReadLogMessage", [&](SteeringClient& c) { return c.ReadLogMessage(l_sMessage); });
    return ToPy(l_sMessage);
  }

 private:
  // Closes the connection and lets go of the client and its model.
  // REQUIRES: m_cMutex is held.
  void Drop() {
    if (m_pcClient) {
      m_pcClient->DisConnectFromServer();
      // A received model is the caller's; an uploaded one is m_pcUploaded.
      if (m_pcModel != NULL && m_pcModel != m_pcUploaded.get()) delete m_pcModel;
      m_pcClient.reset();
    }
    m_pcModel = NULL;
    m_pcUploaded.reset();
  }

  // Runs a request without the GIL and under the lock. A result other than
  // 1 closes the connection and raises quor.ConnectError.
  template <typename F>
  void Request(const char* p_sRequest, F p_fRequest) {
    unsigned int l_nResult = SUCCESS;
    bool l_bConnected = true;
    {
      WithoutGil l_cNoGil;
      std::lock_guard<std::mutex> l_cLock(m_cMutex);
      l_bConnected = m_pcClient && m_pcClient->GetClientSocket() != NULL && m_pcClient->IsConnected();
      if (l_bConnected) {
        l_nResult = p_fRequest(*m_pcClient);
        if (l_nResult != SUCCESS) Drop();
      }
    }
    if (!l_bConnected) Raise("ConnectError", "not connected to " + Where());
    if (l_nResult != SUCCESS)
      Raise("ConnectError", std::string("the request ") + p_sRequest + " to " + Where() +
                                " failed (" + ToPy(ResultName(l_nResult)) +
                                "); the connection is closed");
  }

  // A request, then the refusals it earned, in one turn. The server answers
  // ReceiveErrorMessage with the connection's refusals, or, without any,
  // with the model's error message (why its last run failed): a second
  // read tells the two apart, since the first one took the refusals.
  template <typename F>
  std::string Steer(const char* p_sRequest, F p_fRequest) {
    wxString l_sFirst, l_sSecond;
    Request(p_sRequest, [&](SteeringClient& c) {
      unsigned int l_nResult = p_fRequest(c);
      if (l_nResult != SUCCESS) return l_nResult;
      l_nResult = c.ReceiveErrorMessage(l_sFirst);
      if (l_nResult != SUCCESS || l_sFirst.empty()) return l_nResult;
      return c.ReceiveErrorMessage(l_sSecond);
    });
    return l_sFirst == l_sSecond ? std::string() : ToPy(l_sFirst);
  }

  std::string m_sHost;
  unsigned int m_nPort;
  int m_nTimeout;
  std::mutex m_cMutex;  // the client and the models, one request at a time
  std::unique_ptr<SteeringClient> m_pcClient;
  Model* m_pcModel;                     // the client's current model
  std::unique_ptr<Model> m_pcUploaded;  // the model this handle uploaded
};

void BindClient(py::module_& p_rModule) {
  py::class_<ClientHandle>(p_rModule, "ClientHandle",
                           "One connection to a steering server (quor.Client wraps it).")
      .def(py::init<const std::string&, unsigned int, double>(), py::arg("host"), py::arg("port"),
           py::arg("timeout"))
      .def_property_readonly("where", &ClientHandle::Where)
      .def("connect", &ClientHandle::Connect)
      .def("close", &ClientHandle::Close)
      .def_property_readonly("connected", &ClientHandle::IsConnected)
      .def("model_names", &ClientHandle::ModelNames)
      .def("attach", &ClientHandle::Attach, py::arg("index"))
      .def("upload", &ClientHandle::Upload, py::arg("net"))
      .def("describe", &ClientHandle::Describe)
      .def("command", &ClientHandle::Command, py::arg("command"))
      .def("start", &ClientHandle::Start, py::arg("name"), py::arg("start"), py::arg("end"),
           py::arg("step"), py::arg("restart"))
      .def("set_speed", &ClientHandle::SetSpeed, py::arg("speed"))
      .def("change_values", &ClientHandle::ChangeValues, py::arg("places"), py::arg("changes"))
      .def("reset_values", &ClientHandle::ResetValues, py::arg("places"))
      .def("set_current_simulator", &ClientHandle::SetCurrentSimulator, py::arg("category"),
           py::arg("name"))
      .def("write_settings", &ClientHandle::WriteSettings, py::arg("simulator"),
           py::arg("settings"))
      .def("values", &ClientHandle::Values, py::arg("places"))
      .def("matrix", &ClientHandle::Matrix, py::arg("rates"))
      .def("interval", &ClientHandle::Interval)
      .def("simulators", &ClientHandle::Simulators)
      .def("current_simulator", &ClientHandle::CurrentSimulator)
      .def("settings", &ClientHandle::Settings, py::arg("simulator"))
      .def("statistics", &ClientHandle::Statistics)
      .def("error_message", &ClientHandle::ErrorMessage)
      .def("log_message", &ClientHandle::LogMessage);
}

}  // namespace python
}  // namespace quor
