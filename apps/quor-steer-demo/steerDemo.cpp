// SPDX-License-Identifier: MIT
#include "steerDemo.h"

#include <wx/cmdline.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorState.h"
#include "quor/steeringclient.h"
#include "quorapp/text.h"

namespace quor {
namespace demo {

namespace {

typedef std::chrono::steady_clock Clock;

// The columns of the live table: the first places of the model.
const std::size_t SHOWN_PLACES = 4;
// Rows of the live table over a whole run, about.
const std::size_t TABLE_ROWS = 20;
// The demo waits this long for a run to come up after the start command.
const std::chrono::seconds START_WAIT(15);
const std::chrono::milliseconds POLL_INTERVAL(40);

std::string Text(const wxString& p_sText) { return app::ToStd(p_sText); }

std::string Format(const char* p_sFormat, double p_dValue) {
  char l_acBuffer[64];
  std::snprintf(l_acBuffer, sizeof(l_acBuffer), p_sFormat, p_dValue);
  return l_acBuffer;
}

std::string Number(double p_dValue) { return Format("%.6g", p_dValue); }

class Demo {
 public:
  Demo(const DemoOptions& p_rOptions, std::ostream& p_rOut, std::ostream& p_rErr)
      : m_rOptions(p_rOptions), m_rOut(p_rOut), m_rErr(p_rErr) {}

  int Run() {
    const int l_nResult = Steer();
    if (m_pcClient) {
      // The model received at registration is the caller's to delete.
      std::unique_ptr<Model> l_pcModel(m_pcClient->GetModel());
      m_pcClient->DisConnectFromServer();
      m_pcClient.reset();
    }
    return l_nResult;
  }

 private:
  // Each step returns false after reporting what went wrong.
  int Steer() {
    if (!Connect() || !Attach() || !Prepare() || !Start() || !Watch() || !Save()) return 1;
    return 0;
  }

  bool Fail(const std::string& p_sText) {
    m_rErr << PROGRAM.name << ": " << p_sText << std::endl;
    return false;
  }

  // A request that answered with anything but 1 ends the demo.
  bool Check(unsigned int p_nResult, const char* p_sRequest) {
    if (p_nResult == 1) return true;
    return Fail(std::string("the request ") + p_sRequest + " failed (result " +
                std::to_string(static_cast<int>(p_nResult)) + ")");
  }

  bool Connect() {
    const wxString l_sService = wxString::Format(wxT("%u"), m_rOptions.port);
    m_pcClient.reset(new SteeringClient(m_rOptions.host, l_sService));
    m_pcClient->SetTimeout(m_rOptions.timeout);
    const unsigned int l_nResult = m_pcClient->ConnectToServer(true);
    const std::string l_sWhere = Text(m_rOptions.host) + ":" + Text(l_sService);
    if (l_nResult == static_cast<unsigned int>(-2))
      return Fail("the server at " + l_sWhere + " speaks another protocol version");
    if (l_nResult != 1)
      return Fail("cannot connect to a simulation server at " + l_sWhere +
                  " (is quor-simd running there?)");
    m_rOut << "Connected to the simulation server at " << l_sWhere << "." << std::endl;
    return true;
  }

  bool Attach() {
    std::vector<wxString> l_asNames;
    if (!Check(m_pcClient->GetRuningModelNames(l_asNames), "GetRuningModelNames")) return false;
    m_rOut << "Running models:";
    for (std::size_t i = 0; i < l_asNames.size(); ++i)
      m_rOut << (i == 0 ? " " : ", ") << "[" << i << "] " << Text(l_asNames[i]);
    m_rOut << (l_asNames.empty() ? " none" : "") << std::endl;
    if (m_rOptions.model < 0 || static_cast<std::size_t>(m_rOptions.model) >= l_asNames.size())
      return Fail("there is no model with index " + std::to_string(m_rOptions.model));
    if (!Check(m_pcClient->Initialize(m_rOptions.model), "Initialize")) return false;
    Model* l_pcModel = m_pcClient->GetModel();
    m_sModel = Text(l_pcModel->GetModelName());
    for (const wxString& l_sName : l_pcModel->GetAttributeValueVectorString(keys::PLACE_NAMES))
      m_asPlaces.push_back(Text(l_sName));
    for (const wxString& l_sName :
         l_pcModel->GetAttributeValueVectorString(keys::PARAMETER_NAMES))
      m_asParameters.push_back(Text(l_sName));
    m_dStart = l_pcModel->GetAttributeValueDouble(keys::START_OUTPUT_POINT);
    m_dEnd = l_pcModel->GetAttributeValueDouble(keys::END_OUTPUT_POINT);
    m_dStep = l_pcModel->GetAttributeValueDouble(keys::SAMPLE_POINT_SIZE);
    if (!(m_dStep > 0.0) || !(m_dEnd >= m_dStart))
      return Fail("the model's output interval is unusable");
    const double l_dIntervals = (m_dEnd - m_dStart) / m_dStep;
    m_nPoints = static_cast<std::size_t>(std::floor(l_dIntervals + 1e-9 * (1.0 + l_dIntervals))) + 1;
    m_rOut << "Attached to model " << m_rOptions.model << " '" << m_sModel << "': "
           << m_asPlaces.size() << " places, "
           << l_pcModel->GetAttributeValueVectorString(keys::TRANSITION_NAMES).size()
           << " transitions." << std::endl;
    return true;
  }

  bool Prepare() {
    std::vector<QU_SimulatorCategory> l_aSimulators;
    if (!Check(m_pcClient->ReadAvailableSimulators(l_aSimulators), "ReadAvailableSimulators"))
      return false;
    bool l_bContinuous = false;
    m_rOut << "Simulators on offer:";
    for (const QU_SimulatorCategory& l_cCategory : l_aSimulators) {
      m_rOut << " " << Text(l_cCategory.m_sCategoryName) << " (";
      for (std::size_t i = 0; i < l_cCategory.m_asSimulatorNames.size(); ++i) {
        m_rOut << (i == 0 ? "" : ", ") << Text(l_cCategory.m_asSimulatorNames[i]);
        if (l_cCategory.m_asSimulatorNames[i] == wxT("continuous")) l_bContinuous = true;
      }
      m_rOut << ")";
    }
    m_rOut << std::endl;
    if (!l_bContinuous) return Fail("the server offers no continuous simulator");

    int l_nState = 0;
    if (!Check(m_pcClient->ReadSimulatorState(l_nState), "ReadSimulatorState")) return false;
    if (l_nState == SIMULATOR_RUNNING || l_nState == SIMULATOR_PAUSED)
      return Fail("model '" + m_sModel + "' is busy (" + SimulatorStateName(l_nState) +
                  "); try again when its run has ended");

    // A steered run before this one leaves its parameter values behind.
    if (!Check(m_pcClient->ResetParameterValues(), "ResetParameterValues")) return false;
    if (!Check(m_pcClient->ReadCurrentParameterValues(m_adParameters),
               "ReadCurrentParameterValues"))
      return false;
    m_rOut << "Parameters (reset to their initial values):";
    for (std::size_t i = 0; i < m_asParameters.size() && i < m_adParameters.size(); ++i)
      m_rOut << (i == 0 ? " " : ", ") << m_asParameters[i] << " = " << Number(m_adParameters[i]);
    m_rOut << (m_asParameters.empty() ? " none" : "") << std::endl;

    // The parameter to steer: the one asked for, else the first.
    m_nSteered = m_asParameters.size();
    for (std::size_t i = 0; i < m_asParameters.size(); ++i)
      if (m_asParameters[i] == m_rOptions.parameter) m_nSteered = i;
    if (m_nSteered == m_asParameters.size() && !m_asParameters.empty()) {
      m_rOut << "The model has no parameter '" << m_rOptions.parameter << "'; steering '"
             << m_asParameters[0] << "' instead." << std::endl;
      m_nSteered = 0;
    }
    m_dSteerAt = std::isnan(m_rOptions.steerAt) ? m_dStart + 0.5 * (m_dEnd - m_dStart)
                                                : m_rOptions.steerAt;
    return Check(m_pcClient->ChanageSimulatorSpeed(m_rOptions.speed), "ChanageSimulatorSpeed");
  }

  bool ReadStatistics(int& p_rnState, double& p_rdProgress) {
    ModelRuntimeState l_cState;
    if (!Check(m_pcClient->ReadModelStatistics(l_cState), "ReadModelStatistics")) return false;
    p_rnState = l_cState.GetAttributeValueInt(keys::SIMULATOR_STATE);
    p_rdProgress = l_cState.GetAttributeValueDouble(keys::SIMULATOR_PROGRESS);
    m_dRuntime = l_cState.GetAttributeValueDouble(keys::SIMULATOR_RUNTIME);
    return true;
  }

  bool Start() {
    m_rOut << "Starting the continuous simulator on '" << m_sModel << "' from t = "
           << Number(m_dStart) << " to " << Number(m_dEnd) << " every " << Number(m_dStep)
           << " (" << m_nPoints << " output points) at " << m_rOptions.speed
           << " points per second." << std::endl;
    if (!Check(m_pcClient->CMD_Start(wxT("continuous"), m_dStart, m_dEnd, m_dStep), "CMD_Start"))
      return false;
    // The server answers the command before it acts on it: wait for the run.
    const Clock::time_point l_tDeadline = Clock::now() + START_WAIT;
    for (;;) {
      int l_nState = 0;
      double l_dProgress = 0.0;
      if (!ReadStatistics(l_nState, l_dProgress)) return false;
      if (l_nState == SIMULATOR_RUNNING || l_nState == SIMULATOR_PAUSED) return true;
      if (Clock::now() > l_tDeadline) {
        wxString l_sMessage;
        m_pcClient->ReceiveErrorMessage(l_sMessage);
        return Fail("the run did not start (state " + std::string(SimulatorStateName(l_nState)) +
                    (l_sMessage.empty() ? std::string(")") : "): " + Text(l_sMessage)));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  double TimeOf(std::size_t p_nPoint) const {
    return m_dStart + static_cast<double>(p_nPoint) * m_dStep;
  }

  void PrintHeader() {
    m_rOut << std::endl << "      time";
    for (std::size_t i = 0; i < m_asPlaces.size() && i < SHOWN_PLACES; ++i) {
      char l_acBuffer[64];
      std::snprintf(l_acBuffer, sizeof(l_acBuffer), " %10.10s", m_asPlaces[i].c_str());
      m_rOut << l_acBuffer;
    }
    m_rOut << std::endl;
  }

  // Prints the table rows of the points before p_nDone that are due.
  bool PrintRows(std::size_t p_nDone, bool p_bEnd) {
    const std::size_t l_nEvery = std::max<std::size_t>(1, (m_nPoints - 1) / TABLE_ROWS);
    std::vector<std::size_t> l_anDue;
    for (; m_nNextRow < p_nDone; ++m_nNextRow)
      if (m_nNextRow % l_nEvery == 0 || (p_bEnd && m_nNextRow + 1 == p_nDone))
        l_anDue.push_back(m_nNextRow);
    if (l_anDue.empty()) return true;
    std::vector<std::vector<double> > l_aadResults;
    if (!Check(m_pcClient->ReadResultMatrix(l_aadResults), "ReadResultMatrix")) return false;
    for (std::size_t l_nPoint : l_anDue) {
      m_rOut << Format("%10.2f", TimeOf(l_nPoint));
      for (std::size_t i = 0; i < l_aadResults.size() && i < SHOWN_PLACES; ++i)
        m_rOut << (l_nPoint < l_aadResults[i].size() ? Format(" %10.1f", l_aadResults[i][l_nPoint])
                                                      : std::string("          -"));
      m_rOut << std::endl;
    }
    return true;
  }

  bool SteerParameter() {
    m_bSteered = true;
    if (m_nSteered >= m_adParameters.size()) {
      m_rOut << ">>> The model has no parameters to steer; watching only." << std::endl;
      return true;
    }
    // Where the run is: its last output point so far.
    std::vector<std::vector<double> > l_aadResults;
    if (!Check(m_pcClient->ReadResultMatrix(l_aadResults), "ReadResultMatrix")) return false;
    const std::size_t l_nNow = l_aadResults.empty() ? 0 : l_aadResults[0].size();
    const double l_dOld = m_adParameters[m_nSteered];
    const double l_dNew = l_dOld / m_rOptions.divideBy;
    if (!Check(m_pcClient->ChangeCurrentParameterValues(m_nSteered, l_dNew),
               "ChangeCurrentParameterValues"))
      return false;
    std::vector<double> l_adParameters;
    if (!Check(m_pcClient->ReadCurrentParameterValues(l_adParameters),
               "ReadCurrentParameterValues"))
      return false;
    std::string l_sMarking;
    for (std::size_t i = 0; i < l_aadResults.size() && i < SHOWN_PLACES && l_nNow > 0; ++i)
      l_sMarking += (i == 0 ? "" : ", ") + m_asPlaces[i] + " = " +
                    Format("%.1f", l_aadResults[i][l_nNow - 1]);
    m_rOut << ">>> at t = " << Format("%.2f", TimeOf(l_nNow == 0 ? 0 : l_nNow - 1))
           << (l_sMarking.empty() ? std::string() : " (" + l_sMarking + ")");
    m_rOut << ": lowering " << m_asParameters[m_nSteered] << " from " << Number(l_dOld)
           << " to " << Number(l_dNew) << " (divided by " << Number(m_rOptions.divideBy) << ")"
           << std::endl;
    if (m_nSteered < l_adParameters.size())
      m_rOut << ">>> the server now runs with " << m_asParameters[m_nSteered] << " = "
             << Number(l_adParameters[m_nSteered]) << " from its next output point on"
             << std::endl;
    return true;
  }

  bool Watch() {
    PrintHeader();
    const double l_dExpected = static_cast<double>(m_nPoints) / m_rOptions.speed;
    const Clock::time_point l_tDeadline =
        Clock::now() + std::chrono::seconds(60 + static_cast<long>(3.0 * l_dExpected));
    bool l_bPauseNoted = false;
    for (;;) {
      int l_nState = 0;
      double l_dProgress = 0.0;
      if (!ReadStatistics(l_nState, l_dProgress)) return false;
      std::size_t l_nDone = static_cast<std::size_t>(
          std::llround(l_dProgress / 100.0 * static_cast<double>(m_nPoints)));
      l_nDone = std::min(l_nDone, m_nPoints);
      const bool l_bEnd = l_nState == SIMULATOR_FINISHED;
      if (!m_bSteered && l_nDone > 0 && TimeOf(l_nDone - 1) >= m_dSteerAt && !l_bEnd) {
        // Rows up to the change come first.
        if (!PrintRows(l_nDone, false) || !SteerParameter()) return false;
      }
      if (!PrintRows(l_nDone, l_bEnd)) return false;
      if (l_bEnd) break;
      if (l_nState == SIMULATOR_PAUSED && !l_bPauseNoted) {
        m_rOut << "(the run is paused by another client; waiting)" << std::endl;
        l_bPauseNoted = true;
      }
      if (l_nState != SIMULATOR_RUNNING && l_nState != SIMULATOR_PAUSED) {
        wxString l_sMessage;
        m_pcClient->ReceiveErrorMessage(l_sMessage);
        return Fail("the run ended early (" + std::string(SimulatorStateName(l_nState)) + ")" +
                    (l_sMessage.empty() ? std::string() : ": " + Text(l_sMessage)));
      }
      if (Clock::now() > l_tDeadline) return Fail("the run takes far longer than expected");
      std::this_thread::sleep_for(POLL_INTERVAL);
    }
    m_rOut << std::endl
           << "The run finished after " << Format("%.1f", m_dRuntime) << " s." << std::endl;
    if (!m_bSteered)
      m_rOut << "(the run ended before t = " << Number(m_dSteerAt)
             << ": nothing was steered)" << std::endl;
    return true;
  }

  bool Save() {
    std::vector<std::vector<double> > l_aadResults;
    if (!Check(m_pcClient->ReadResultMatrix(l_aadResults), "ReadResultMatrix")) return false;
    if (l_aadResults.size() != m_asPlaces.size())
      return Fail("the result matrix has " + std::to_string(l_aadResults.size()) +
                  " rows; the model has " + std::to_string(m_asPlaces.size()) + " places");
    for (const std::vector<double>& l_adRow : l_aadResults)
      if (l_adRow.size() != m_nPoints)
        return Fail("the result matrix has " + std::to_string(l_adRow.size()) +
                    " columns; the run has " + std::to_string(m_nPoints) + " output points");

    std::ofstream l_cFile(m_rOptions.csv.c_str(), std::ios::out | std::ios::trunc);
    if (!l_cFile) return Fail("cannot write " + m_rOptions.csv);
    l_cFile << "time";
    for (const std::string& l_sPlace : m_asPlaces) l_cFile << "," << app::CsvField(l_sPlace);
    l_cFile << "\n";
    for (std::size_t l_nPoint = 0; l_nPoint < m_nPoints; ++l_nPoint) {
      l_cFile << Format("%.10g", TimeOf(l_nPoint));
      for (const std::vector<double>& l_adRow : l_aadResults)
        l_cFile << "," << Format("%.10g", l_adRow[l_nPoint]);
      l_cFile << "\n";
    }
    l_cFile.close();
    if (!l_cFile) return Fail("cannot write " + m_rOptions.csv);

    // Places that rise and fall again (for SIR: I) have a peak worth telling.
    for (std::size_t i = 0; i < m_asPlaces.size(); ++i) {
      const std::vector<double>& l_adRow = l_aadResults[i];
      const std::size_t l_nPeak = static_cast<std::size_t>(
          std::max_element(l_adRow.begin(), l_adRow.end()) - l_adRow.begin());
      if (l_nPeak == 0 || l_nPeak + 1 == l_adRow.size()) continue;
      m_rOut << m_asPlaces[i] << " peaked at " << Format("%.1f", l_adRow[l_nPeak])
             << " at t = " << Number(TimeOf(l_nPeak)) << "." << std::endl;
    }
    // The server's current marking is where the run ended.
    std::vector<double> l_adMarking;
    if (!Check(m_pcClient->ReadCurrentPlaceValues(l_adMarking), "ReadCurrentPlaceValues"))
      return false;
    m_rOut << "At t = " << Number(TimeOf(m_nPoints - 1)) << ":";
    for (std::size_t i = 0; i < m_asPlaces.size() && i < l_adMarking.size(); ++i)
      m_rOut << (i == 0 ? " " : ", ") << m_asPlaces[i] << " = " << Format("%.1f", l_adMarking[i]);
    m_rOut << std::endl
           << "Wrote " << m_nPoints << " rows (time and " << m_asPlaces.size()
           << " places) to " << m_rOptions.csv << std::endl;
    return true;
  }

  const DemoOptions& m_rOptions;
  std::ostream& m_rOut;
  std::ostream& m_rErr;
  std::unique_ptr<SteeringClient> m_pcClient;
  std::string m_sModel;
  std::vector<std::string> m_asPlaces, m_asParameters;
  std::vector<double> m_adParameters;
  double m_dStart = 0.0, m_dEnd = 0.0, m_dStep = 1.0;
  std::size_t m_nPoints = 0;
  std::size_t m_nSteered = 0;
  double m_dSteerAt = 0.0;
  bool m_bSteered = false;
  std::size_t m_nNextRow = 0;
  double m_dRuntime = 0.0;
};

}  // namespace

const app::ProgramInfo PROGRAM = {
    "quor-steer-demo",
    "Watches a simulation on a quor-simd server, changes a parameter while it runs and "
    "saves the result as CSV."};

ParseOutcome ParseDemoOptions(int p_nArgc, wxChar** p_apArgv, DemoOptions& p_rOptions,
                              wxString& p_rsMessage) {
  p_rsMessage.clear();
  wxCmdLineParser l_cParser(p_nArgc, p_apArgv);
  app::AddStandardOptions(l_cParser, PROGRAM);
  l_cParser.AddOption(wxT(""), wxT("host"), wxT("server host (default 127.0.0.1)"));
  l_cParser.AddOption(wxT(""), wxT("port"), wxT("server port (default 3000)"),
                      wxCMD_LINE_VAL_NUMBER);
  l_cParser.AddOption(wxT(""), wxT("csv"), wxT("CSV file to write (default sir-steered.csv)"));
  l_cParser.AddOption(wxT(""), wxT("model"), wxT("index of the running model (default 0)"),
                      wxCMD_LINE_VAL_NUMBER);
  l_cParser.AddOption(wxT(""), wxT("speed"),
                      wxT("output points per second, 1 to 1000 (default 25)"),
                      wxCMD_LINE_VAL_NUMBER);
  l_cParser.AddOption(wxT(""), wxT("steer-at"),
                      wxT("model time of the parameter change (default: halfway through the run)"),
                      wxCMD_LINE_VAL_DOUBLE);
  l_cParser.AddOption(wxT(""), wxT("parameter"),
                      wxT("parameter to change (default beta; else the first one)"));
  l_cParser.AddOption(wxT(""), wxT("divide-by"),
                      wxT("the parameter's new value is its value divided by this (default 3)"),
                      wxCMD_LINE_VAL_DOUBLE);

  const ParseOutcome l_eOutcome = app::ParseCommandLine(l_cParser, PROGRAM, p_rsMessage);
  if (l_eOutcome != ParseOutcome::RUN) return l_eOutcome;
  auto l_fError = [&](const wxString& p_sText) {
    return app::UsageError(l_cParser, PROGRAM, p_sText, p_rsMessage);
  };

  DemoOptions l_cOptions;
  wxString l_sText;
  long l_nNumber = 0;
  double l_dNumber = 0.0;
  if (l_cParser.Found(wxT("host"), &l_sText)) l_cOptions.host = l_sText;
  if (l_cParser.Found(wxT("port"), &l_nNumber)) {
    if (l_nNumber < 1 || l_nNumber > 65535) return l_fError(wxT("--port: 1 to 65535\n"));
    l_cOptions.port = static_cast<unsigned int>(l_nNumber);
  }
  if (l_cParser.Found(wxT("csv"), &l_sText)) l_cOptions.csv = app::ToStd(l_sText);
  if (l_cParser.Found(wxT("model"), &l_nNumber)) {
    if (l_nNumber < 0 || l_nNumber > 1000000) return l_fError(wxT("--model: an index, 0 or more\n"));
    l_cOptions.model = static_cast<int>(l_nNumber);
  }
  if (l_cParser.Found(wxT("speed"), &l_nNumber)) {
    if (l_nNumber < 1 || l_nNumber > 1000) return l_fError(wxT("--speed: 1 to 1000\n"));
    l_cOptions.speed = static_cast<unsigned int>(l_nNumber);
  }
  if (l_cParser.Found(wxT("steer-at"), &l_dNumber)) {
    if (!std::isfinite(l_dNumber)) return l_fError(wxT("--steer-at: a model time\n"));
    l_cOptions.steerAt = l_dNumber;
  }
  if (l_cParser.Found(wxT("parameter"), &l_sText)) l_cOptions.parameter = app::ToStd(l_sText);
  if (l_cParser.Found(wxT("divide-by"), &l_dNumber)) {
    if (!(l_dNumber > 0.0) || !std::isfinite(l_dNumber))
      return l_fError(wxT("--divide-by: a number greater than 0\n"));
    l_cOptions.divideBy = l_dNumber;
  }
  p_rOptions = l_cOptions;
  return ParseOutcome::RUN;
}

int RunDemo(const DemoOptions& p_rOptions, std::ostream& p_rOut, std::ostream& p_rErr) {
  Demo l_cDemo(p_rOptions, p_rOut, p_rErr);
  return l_cDemo.Run();
}

}  // namespace demo
}  // namespace quor
