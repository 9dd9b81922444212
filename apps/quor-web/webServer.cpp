// SPDX-License-Identifier: MIT
#include "webServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <random>
#include <sstream>

namespace quor {
namespace web {

using nlohmann::json;

namespace {

bool ReadFile(const std::string& p_sPath, std::string& p_rsContent) {
  std::ifstream l_cFile(p_sPath, std::ios::binary);
  if (!l_cFile) return false;
  std::ostringstream l_cContent;
  l_cContent << l_cFile.rdbuf();
  p_rsContent = l_cContent.str();
  return true;
}

bool IsDirectory(const std::string& p_sPath) {
  std::ifstream l_cFile(p_sPath + "/index.html");
  return static_cast<bool>(l_cFile);
}

void Answer(httplib::Response& p_rResponse, int p_nStatus, const json& p_cBody) {
  p_rResponse.status = p_nStatus;
  p_rResponse.set_header("Cache-Control", "no-store");
  p_rResponse.set_content(JsonText(p_cBody), "application/json");
}

void Refuse(httplib::Response& p_rResponse, int p_nStatus, const std::string& p_sWhy) {
  Answer(p_rResponse, p_nStatus, {{"error", p_sWhy}});
}

void Answer(httplib::Response& p_rResponse, const Outcome& p_rcOutcome) {
  Answer(p_rResponse, p_rcOutcome.nStatus, p_rcOutcome.cBody);
}

// Equal texts, in a time that does not depend on where they differ.
bool SameSecret(const std::string& p_sA, const std::string& p_sB) {
  if (p_sA.size() != p_sB.size()) return false;
  unsigned char l_nDiff = 0;
  for (std::size_t i = 0; i < p_sA.size(); ++i)
    l_nDiff |= static_cast<unsigned char>(p_sA[i] ^ p_sB[i]);
  return l_nDiff == 0;
}

// The checks of a request body. Each getter leaves the reason in m_sWhy
// and gives false when the field is missing or wrong.
class Body {
 public:
  explicit Body(const httplib::Request& p_rRequest) {
    m_cJson = json::parse(p_rRequest.body, nullptr, false);
    if (m_cJson.is_discarded())
      m_sWhy = "the body is not JSON";
    else if (!m_cJson.is_object())
      m_sWhy = "the body must be a JSON object";
  }
  bool Ok() const { return m_sWhy.empty(); }
  const std::string& Why() const { return m_sWhy; }
  bool Has(const char* p_sField) const { return Ok() && m_cJson.contains(p_sField); }

  // A name: text of 1 to MAX_NAME_LENGTH bytes without control characters.
  bool Name(const char* p_sField, std::string& p_rsName) {
    if (!Ok()) return false;
    const auto l_iAt = m_cJson.find(p_sField);
    if (l_iAt == m_cJson.end() || !l_iAt->is_string())
      return Fail(std::string("'") + p_sField + "' is missing or not a text");
    p_rsName = l_iAt->get<std::string>();
    if (p_rsName.empty() || p_rsName.size() > MAX_NAME_LENGTH)
      return Fail(std::string("'") + p_sField + "' must have 1 to " + std::to_string(MAX_NAME_LENGTH) +
                  " characters");
    for (unsigned char l_cChar : p_rsName)
      if (l_cChar < 0x20 || l_cChar == 0x7f)
        return Fail(std::string("'") + p_sField + "' has a control character");
    return true;
  }

  // A finite number.
  bool Number(const char* p_sField, double& p_rdValue) {
    if (!Ok()) return false;
    const auto l_iAt = m_cJson.find(p_sField);
    if (l_iAt == m_cJson.end() || !l_iAt->is_number())
      return Fail(std::string("'") + p_sField + "' is missing or not a number");
    p_rdValue = l_iAt->get<double>();
    if (!std::isfinite(p_rdValue)) return Fail(std::string("'") + p_sField + "' must be finite");
    return true;
  }

  const json& Json() const { return m_cJson; }
  bool Fail(const std::string& p_sWhy) {
    m_sWhy = p_sWhy;
    return false;
  }

 private:
  json m_cJson;
  std::string m_sWhy;
};

std::string HostOf(const std::string& p_sHostHeader) {
  if (!p_sHostHeader.empty() && p_sHostHeader[0] == '[') {
    const std::size_t l_nEnd = p_sHostHeader.find(']');
    return l_nEnd == std::string::npos ? p_sHostHeader : p_sHostHeader.substr(1, l_nEnd - 1);
  }
  return p_sHostHeader.substr(0, p_sHostHeader.find(':'));
}

}  // namespace

bool IsLoopback(const std::string& p_sHost) {
  if (p_sHost == "localhost" || p_sHost == "::1") return true;
  in_addr l_cAddress{};
  if (inet_pton(AF_INET, p_sHost.c_str(), &l_cAddress) != 1) return false;
  return (ntohl(l_cAddress.s_addr) >> 24) == 127;
}

std::string MakeToken() {
  std::random_device l_cRandom;
  static const char l_acDigits[] = "0123456789abcdef";
  std::string l_sToken;
  for (int i = 0; i < 32; ++i) l_sToken += l_acDigits[l_cRandom() % 16];
  return l_sToken;
}

std::string FindPageDir(const std::string& p_sProgramPath) {
  const std::size_t l_nSlash = p_sProgramPath.rfind('/');
  if (l_nSlash != std::string::npos) {
    const std::string l_sNext = p_sProgramPath.substr(0, l_nSlash) + "/../share/quor/web";
    if (IsDirectory(l_sNext)) return l_sNext;
  }
  if (IsDirectory(QUOR_WEB_INSTALLED_PAGE_DIR)) return QUOR_WEB_INSTALLED_PAGE_DIR;
  return QUOR_WEB_SOURCE_PAGE_DIR;
}

WebServer::WebServer(WebLink& p_rLink, EventHub& p_rEvents, const ServerOptions& p_rOptions)
    : m_rLink(p_rLink), m_rEvents(p_rEvents), m_cOptions(p_rOptions), m_pcServer(new httplib::Server) {
  m_pcServer->new_task_queue = [] { return new httplib::ThreadPool(MAX_EVENT_STREAMS + 8); };
  m_pcServer->set_payload_max_length(MAX_BODY_BYTES);
  m_pcServer->set_tcp_nodelay(true);
  Routes();
}

WebServer::~WebServer() { Stop(); }

bool WebServer::Bind(std::string& p_rsWhy) {
  if (m_cOptions.nPort == 0) {
    m_nPort = m_pcServer->bind_to_any_port(m_cOptions.sHost);
    if (m_nPort > 0) return true;
  } else if (m_pcServer->bind_to_port(m_cOptions.sHost, m_cOptions.nPort)) {
    m_nPort = m_cOptions.nPort;
    return true;
  }
  p_rsWhy = "cannot listen on " + m_cOptions.sHost + ":" + std::to_string(m_cOptions.nPort);
  return false;
}

void WebServer::Run() { m_pcServer->listen_after_bind(); }

void WebServer::Stop() {
  m_rEvents.Close();
  if (m_pcServer) m_pcServer->stop();
}

void WebServer::Routes() {
  httplib::Server& l_rServer = *m_pcServer;

  // Every request: a loopback server answers loopback names only; a change
  // needs JSON, and the token when there is one.
  l_rServer.set_pre_routing_handler([this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    if (m_cOptions.sToken.empty() && !IsLoopback(HostOf(p_rRequest.get_header_value("Host")))) {
      Refuse(p_rResponse, 403, "this server answers requests to 127.0.0.1 or localhost only");
      return httplib::Server::HandlerResponse::Handled;
    }
    if (p_rRequest.method != "GET" && p_rRequest.method != "HEAD") {
      if (!m_cOptions.sToken.empty() &&
          !SameSecret(p_rRequest.get_header_value("X-Quor-Token"), m_cOptions.sToken)) {
        Refuse(p_rResponse, 403,
               "a change needs the token that quor-web printed at start (open the URL it printed)");
        return httplib::Server::HandlerResponse::Handled;
      }
      const std::string l_sType = p_rRequest.get_header_value("Content-Type");
      if (l_sType.compare(0, 16, "application/json") != 0) {
        Refuse(p_rResponse, 415, "a change is a JSON body (Content-Type: application/json)");
        return httplib::Server::HandlerResponse::Handled;
      }
    }
    return httplib::Server::HandlerResponse::Unhandled;
  });

  // The page and the plotting library: a fixed list, nothing else is read.
  struct Asset {
    const char* sPath;
    std::string sFile;
    const char* sType;
  };
  const std::vector<Asset> l_acAssets = {
      {"/", m_cOptions.sPageDir + "/index.html", "text/html; charset=utf-8"},
      {"/index.html", m_cOptions.sPageDir + "/index.html", "text/html; charset=utf-8"},
      {"/app.js", m_cOptions.sPageDir + "/app.js", "text/javascript; charset=utf-8"},
      {"/style.css", m_cOptions.sPageDir + "/style.css", "text/css; charset=utf-8"},
      {"/lib/chart.js", CHART_JS_PATH, "text/javascript; charset=utf-8"}};
  for (const Asset& l_cAsset : l_acAssets) {
    const std::string l_sFile = l_cAsset.sFile;
    const std::string l_sType = l_cAsset.sType;
    l_rServer.Get(l_cAsset.sPath, [l_sFile, l_sType](const httplib::Request&, httplib::Response& p_rResponse) {
      std::string l_sContent;
      if (!ReadFile(l_sFile, l_sContent)) {
        p_rResponse.status = 500;
        p_rResponse.set_content("quor-web cannot read " + l_sFile + "\n", "text/plain");
        return;
      }
      p_rResponse.set_header("Cache-Control", "no-cache");
      p_rResponse.set_content(l_sContent, l_sType.c_str());
    });
  }

  l_rServer.Get("/api/state", [this](const httplib::Request&, httplib::Response& p_rResponse) {
    Answer(p_rResponse, 200, m_rLink.Snapshot());
  });
  l_rServer.Get("/api/models", [this](const httplib::Request&, httplib::Response& p_rResponse) {
    Answer(p_rResponse, m_rLink.Models());
  });
  l_rServer.Get("/api/model", [this](const httplib::Request&, httplib::Response& p_rResponse) {
    Answer(p_rResponse, m_rLink.Model());
  });
  l_rServer.Get("/api/settings", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    const std::string l_sSimulator = p_rRequest.get_param_value("simulator");
    if (l_sSimulator.empty() || l_sSimulator.size() > MAX_NAME_LENGTH)
      return Refuse(p_rResponse, 400, "'simulator' must have 1 to " + std::to_string(MAX_NAME_LENGTH) + " characters");
    Answer(p_rResponse, m_rLink.ReadSettings(l_sSimulator));
  });
  l_rServer.Get("/api/results.csv", [this](const httplib::Request&, httplib::Response& p_rResponse) {
    std::string l_sCsv;
    if (!m_rLink.ResultsCsv(l_sCsv)) return Refuse(p_rResponse, 409, "attach to a model first");
    p_rResponse.set_header("Content-Disposition", "attachment; filename=\"results.csv\"");
    p_rResponse.set_header("Cache-Control", "no-store");
    p_rResponse.set_content(l_sCsv, "text/csv; charset=utf-8");
  });

  l_rServer.Post("/api/attach", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    std::string l_sModel;
    if (!l_cBody.Name("model", l_sModel)) return Refuse(p_rResponse, 400, l_cBody.Why());
    Answer(p_rResponse, m_rLink.Attach(l_sModel));
  });

  l_rServer.Post("/api/command", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    std::string l_sCommand, l_sSimulator;
    if (!l_cBody.Name("command", l_sCommand)) return Refuse(p_rResponse, 400, l_cBody.Why());
    double l_dStart = 0, l_dEnd = 0, l_dStep = 0;
    if (l_sCommand == "start" || l_sCommand == "restart") {
      if (!l_cBody.Name("simulator", l_sSimulator) || !l_cBody.Number("start", l_dStart) ||
          !l_cBody.Number("end", l_dEnd) || !l_cBody.Number("step", l_dStep))
        return Refuse(p_rResponse, 400, l_cBody.Why());
      if (!(l_dEnd > l_dStart)) return Refuse(p_rResponse, 400, "'end' must be after 'start'");
      if (!(l_dStep > 0)) return Refuse(p_rResponse, 400, "'step' must be above 0");
      if ((l_dEnd - l_dStart) / l_dStep > MAX_OUTPUT_POINTS)
        return Refuse(p_rResponse, 400, "the interval has more than " +
                                            std::to_string(static_cast<long>(MAX_OUTPUT_POINTS)) +
                                            " output points");
    } else if (l_sCommand != "pause" && l_sCommand != "resume" && l_sCommand != "stop") {
      return Refuse(p_rResponse, 400, "'command' must be start, restart, pause, resume or stop");
    }
    Answer(p_rResponse, m_rLink.Command(l_sCommand, l_sSimulator, l_dStart, l_dEnd, l_dStep));
  });

  l_rServer.Post("/api/speed", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    double l_dSpeed = 0;
    if (!l_cBody.Number("speed", l_dSpeed)) return Refuse(p_rResponse, 400, l_cBody.Why());
    if (l_dSpeed < 0 || l_dSpeed > MAX_SPEED || l_dSpeed != std::floor(l_dSpeed))
      return Refuse(p_rResponse, 400, "'speed' must be a whole number from 0 to " + std::to_string(MAX_SPEED));
    Answer(p_rResponse, m_rLink.Speed(static_cast<unsigned int>(l_dSpeed)));
  });

  l_rServer.Post("/api/parameter", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    std::string l_sName;
    double l_dValue = 0;
    if (!l_cBody.Name("name", l_sName) || !l_cBody.Number("value", l_dValue))
      return Refuse(p_rResponse, 400, l_cBody.Why());
    Answer(p_rResponse, m_rLink.ChangeParameter(l_sName, l_dValue));
  });

  l_rServer.Post("/api/marking", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    std::string l_sPlace;
    double l_dValue = 0;
    if (!l_cBody.Name("place", l_sPlace) || !l_cBody.Number("value", l_dValue))
      return Refuse(p_rResponse, 400, l_cBody.Why());
    Answer(p_rResponse, m_rLink.ChangeMarking(l_sPlace, l_dValue));
  });

  l_rServer.Post("/api/reset", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    std::string l_sWhat;
    if (!l_cBody.Name("what", l_sWhat)) return Refuse(p_rResponse, 400, l_cBody.Why());
    if (l_sWhat != "parameters" && l_sWhat != "marking")
      return Refuse(p_rResponse, 400, "'what' must be parameters or marking");
    Answer(p_rResponse, m_rLink.Reset(l_sWhat));
  });

  l_rServer.Post("/api/simulator", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    std::string l_sCategory, l_sSimulator;
    if (!l_cBody.Name("category", l_sCategory) || !l_cBody.Name("simulator", l_sSimulator))
      return Refuse(p_rResponse, 400, l_cBody.Why());
    Answer(p_rResponse, m_rLink.ChooseSimulator(l_sCategory, l_sSimulator));
  });

  l_rServer.Post("/api/settings", [this](const httplib::Request& p_rRequest, httplib::Response& p_rResponse) {
    Body l_cBody(p_rRequest);
    std::string l_sSimulator;
    if (!l_cBody.Name("simulator", l_sSimulator)) return Refuse(p_rResponse, 400, l_cBody.Why());
    const json& l_cValues = l_cBody.Json().contains("values") ? l_cBody.Json()["values"] : json();
    if (!l_cValues.is_object() || l_cValues.empty())
      return Refuse(p_rResponse, 400, "'values' must be an object of setting names and values");
    for (auto l_iValue = l_cValues.begin(); l_iValue != l_cValues.end(); ++l_iValue) {
      if (l_iValue.key().empty() || l_iValue.key().size() > MAX_NAME_LENGTH)
        return Refuse(p_rResponse, 400, "a setting name must have 1 to " + std::to_string(MAX_NAME_LENGTH) + " characters");
      const bool l_bText = l_iValue->is_string() && l_iValue->get<std::string>().size() <= MAX_NAME_LENGTH;
      const bool l_bNumber = l_iValue->is_number() && std::isfinite(l_iValue->get<double>());
      if (!l_bText && !l_bNumber)
        return Refuse(p_rResponse, 400, "the value of '" + l_iValue.key() + "' must be a finite number or a short text");
    }
    Answer(p_rResponse, m_rLink.WriteSettings(l_sSimulator, l_cValues));
  });

  // The stream of changes: a snapshot first, then each event as it comes.
  l_rServer.Get("/api/events", [this](const httplib::Request&, httplib::Response& p_rResponse) {
    if (++m_nStreams > MAX_EVENT_STREAMS) {
      --m_nStreams;
      return Refuse(p_rResponse, 503, "too many open pages (" + std::to_string(MAX_EVENT_STREAMS) + ")");
    }
    struct Stream {
      bool bStarted = false;
      std::uint64_t nNext = 0;
    };
    auto l_pcStream = std::make_shared<Stream>();
    p_rResponse.set_header("Cache-Control", "no-store");
    p_rResponse.set_header("X-Accel-Buffering", "no");
    p_rResponse.set_chunked_content_provider(
        "text/event-stream",
        [this, l_pcStream](std::size_t, httplib::DataSink& p_rSink) {
          std::string l_sText;
          std::string l_sEvent;
          bool l_bLost = false;
          if (!l_pcStream->bStarted || (!m_rEvents.Wait(l_pcStream->nNext, l_sEvent, l_bLost, EVENT_KEEPALIVE_MS) && l_bLost)) {
            l_pcStream->bStarted = true;
            l_pcStream->nNext = m_rEvents.NextNumber();
            l_sText = "data: " + JsonText({{"type", "snapshot"}, {"state", m_rLink.Snapshot()}}) + "\n\n";
          } else if (!l_sEvent.empty()) {
            l_sText = "data: " + l_sEvent + "\n\n";
          } else if (m_rEvents.IsClosed()) {
            p_rSink.done();
            return false;
          } else {
            l_sText = ": waiting\n\n";
          }
          return p_rSink.write(l_sText.data(), l_sText.size());
        },
        [this](bool) { --m_nStreams; });
  });

  l_rServer.set_exception_handler(
      [](const httplib::Request&, httplib::Response& p_rResponse, std::exception_ptr) {
        Refuse(p_rResponse, 500, "quor-web could not answer this request");
      });

  l_rServer.set_error_handler([](const httplib::Request&, httplib::Response& p_rResponse) {
    if (!p_rResponse.body.empty()) return;
    const std::string l_sWhy = p_rResponse.status == 404   ? "no such page or request"
                               : p_rResponse.status == 413 ? "the body is too large"
                                                           : "the request cannot be answered";
    Refuse(p_rResponse, p_rResponse.status, l_sWhy);
  });
}

}  // namespace web
}  // namespace quor
