// SPDX-License-Identifier: MIT
#include "steerSession.h"

#include <wx/log.h>

#include <cmath>
#include <limits>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/steeringcontrol.h"
#include "quor/utilities.h"
#include "quorapp/text.h"

namespace quor {
namespace steer {

const NameKind PLACE = {"place", "places"};
const NameKind TRANSITION = {"transition", "transitions"};
const NameKind PARAMETER = {"parameter", "parameters"};
const NameKind SETTING = {"setting", "settings"};
const NameKind SIMULATOR = {"simulator", "simulators"};
const NameKind MODEL = {"model", "models"};

std::string Text(const wxString& p_sText) { return app::ToStd(p_sText); }
wxString WxText(const std::string& p_sText) { return app::FromStd(p_sText); }

std::string JoinNames(const std::vector<std::string>& p_asNames) {
  if (p_asNames.empty()) return "none";
  std::string l_sText;
  for (std::size_t i = 0; i < p_asNames.size(); ++i) l_sText += (i == 0 ? "" : ", ") + p_asNames[i];
  return l_sText;
}

std::size_t FindName(const NameKind& p_rKind, const std::vector<std::string>& p_asNames,
                     const std::string& p_sName) {
  for (std::size_t i = 0; i < p_asNames.size(); ++i)
    if (p_asNames[i] == p_sName) return i;
  throw Failure(STATUS_USAGE, std::string("unknown ") + p_rKind.one + " '" + p_sName + "' (the " +
                                  p_rKind.many + " are: " + JoinNames(p_asNames) + ")");
}

Session::Session(const Connection& p_rConnection) : m_cConnection(p_rConnection) {}

Session::~Session() {
  if (m_pcClient) m_pcClient->DisConnectFromServer();
  m_pcClient.reset();  // before the model it points at
}

void Session::Connect() {
  const std::string l_sWhere = m_cConnection.host + ":" + std::to_string(m_cConnection.port);
  m_pcClient.reset(new SteeringClient(WxText(m_cConnection.host),
                                      wxString::Format(wxT("%u"), m_cConnection.port)));
  m_pcClient->SetTimeout(m_cConnection.timeout);
  unsigned int l_nResult;
  {
    // The library logs a mismatch in its own words; the program says it.
    wxLogNull l_cQuiet;
    l_nResult = m_pcClient->ConnectToServer(true);
  }
  if (l_nResult == VERSION_MISMATCH)
    throw Failure(STATUS_VERSION, "the server at " + l_sWhere +
                                      " speaks another version of the steering protocol (this "
                                      "client speaks version " +
                                      std::to_string(STEERING_PROTOCOL_VERSION) + ")");
  if (l_nResult != SUCCESS)
    throw Failure(STATUS_NO_CONNECTION, "cannot connect to a simulation server at " + l_sWhere +
                                            " (is quor-simd running there?)");
}

std::vector<std::string> Session::ModelNames() {
  std::vector<wxString> l_asNames;
  Check(m_pcClient->GetRuningModelNames(l_asNames), "GetRuningModelNames");
  std::vector<std::string> l_asText;
  for (const wxString& l_sName : l_asNames) l_asText.push_back(Text(l_sName));
  return l_asText;
}

void Session::Attach(const std::string& p_sModel) {
  const std::vector<std::string> l_asModels = ModelNames();
  std::vector<std::string> l_asListed;
  for (std::size_t i = 0; i < l_asModels.size(); ++i)
    l_asListed.push_back("[" + std::to_string(i) + "] " + l_asModels[i]);

  std::size_t l_nIndex = l_asModels.size();
  const bool l_bDigits = !p_sModel.empty() && p_sModel.size() < 10 &&
                         p_sModel.find_first_not_of("0123456789") == std::string::npos;
  if (l_bDigits) {
    l_nIndex = static_cast<std::size_t>(std::stoul(p_sModel));
    if (l_nIndex >= l_asModels.size())
      throw Failure(STATUS_USAGE, "there is no model " + p_sModel + " (the models are: " +
                                      JoinNames(l_asListed) + ")");
  } else {
    for (std::size_t i = 0; i < l_asModels.size() && l_nIndex == l_asModels.size(); ++i)
      if (l_asModels[i] == p_sModel) l_nIndex = i;
    if (l_nIndex == l_asModels.size())
      throw Failure(STATUS_USAGE, "unknown model '" + p_sModel + "' (the models are: " +
                                      JoinNames(l_asListed) + ")");
  }
  const unsigned int l_nResult = m_pcClient->Initialize(static_cast<int>(l_nIndex));
  // The model received is ours, also when the registration failed later.
  m_pcModel.reset(m_pcClient->GetModel());
  Check(l_nResult, "Initialize");
  if (!m_pcModel) throw Failure(STATUS_FAILED, "the server sent no model");
  m_sModel = l_asModels[l_nIndex];
  m_asEarlier = ReceiveMessages();
}

void Session::Upload(std::unique_ptr<Model> p_pcModel) {
  m_sModel = Text(p_pcModel->GetModelName());
  m_pcModel = std::move(p_pcModel);
  Check(m_pcClient->Initialize(m_pcModel.get()), "Initialize");
  CheckRefusals();
}

std::vector<std::string> Session::Names(const wxChar* p_sKey) {
  std::vector<std::string> l_asNames;
  for (const wxString& l_sName :
       m_pcModel->FindValue<AttributeVectorString, std::vector<wxString> >(
           p_sKey, std::vector<wxString>()))
    l_asNames.push_back(Text(l_sName));
  return l_asNames;
}

void Session::Check(unsigned int p_nResult, const char* p_sRequest) {
  if (p_nResult == SUCCESS) return;
  throw Failure(STATUS_FAILED, std::string("the request ") + p_sRequest + " failed (" +
                                   Text(ResultName(p_nResult)) + ")");
}

std::vector<std::string> Session::ReceiveMessages() {
  wxString l_sMessages;
  Check(m_pcClient->ReceiveErrorMessage(l_sMessages), "ReceiveErrorMessage");
  std::vector<std::string> l_asLines;
  std::string l_sLine;
  for (char l_c : Text(l_sMessages) + "\n") {
    if (l_c != '\n') {
      l_sLine += l_c;
      continue;
    }
    if (!l_sLine.empty()) l_asLines.push_back(l_sLine);
    l_sLine.clear();
  }
  return l_asLines;
}

void Session::CheckRefusals() {
  const std::vector<std::string> l_asRefusals = ReceiveMessages();
  if (l_asRefusals.empty()) return;
  std::string l_sText = "the server refused: " + l_asRefusals[0];
  for (std::size_t i = 1; i < l_asRefusals.size(); ++i) l_sText += "\n" + l_asRefusals[i];
  throw Failure(STATUS_FAILED, l_sText);
}

bool Session::ReadInterval(double& p_rdStart, double& p_rdEnd, double& p_rdStep) {
  const double l_dNone = std::numeric_limits<double>::quiet_NaN();
  p_rdStart = p_rdEnd = p_rdStep = l_dNone;
  // The request reports FAILURE whatever happened: the values tell.
  m_pcClient->ReadSimulationInterval(p_rdStart, p_rdEnd, p_rdStep);
  if (!m_pcClient->IsConnected()) throw Failure(STATUS_FAILED, "the connection to the server was lost");
  return std::isfinite(p_rdStart) && std::isfinite(p_rdEnd) && std::isfinite(p_rdStep);
}

}  // namespace steer
}  // namespace quor
