// SPDX-License-Identifier: MIT
// quor-web's side of the simulation server: one steering connection, driven
// by one thread at a time under the link's lock. A watcher thread keeps it
// up (it connects again, and attaches to the same model again, when the
// server comes back), reads the run's state, values and new output points
// several times a second and publishes what changed to every open page.
// The HTTP server's requests go through the same lock; after each one that
// steers, the connection's refusals are read (ReceiveErrorMessage) and
// handed back to the control that caused them.
#ifndef QUOR_WEB_LINK_H
#define QUOR_WEB_LINK_H

#include <nlohmann/json.hpp>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "quor/model.h"
#include "quor/steeringclient.h"
#include "webEvents.h"

namespace quor {
namespace web {

// Limits of what a page may ask for.
const std::size_t MAX_NAME_LENGTH = 256;          // a model, place, simulator or setting name
const double MAX_OUTPUT_POINTS = 1e6;             // points of one run's interval
const unsigned int MAX_SPEED = 1000000;           // output points per second
const std::size_t MESSAGES_KEPT = 200;            // log lines a new page is shown
// How often the watcher reads the run, and tries to connect again.
const int WATCH_PERIOD_MS = 100;
const int RECONNECT_PERIOD_MS = 500;
const int STEERING_TIMEOUT_S = 5;

// The answer to one HTTP request: its status and its JSON body.
struct Outcome {
  int nStatus = 200;
  nlohmann::json cBody = nlohmann::json::object();
};

class WebLink {
 public:
  WebLink(const std::string& p_sHost, const std::string& p_sService, EventHub& p_rEvents);
  ~WebLink();

  // Starts and stops the watcher thread.
  void Start();
  void Stop();

  // Everything a page shows, in one event ("snapshot").
  nlohmann::json Snapshot();

  Outcome Models();
  Outcome Attach(const std::string& p_sName);
  Outcome Model();
  // p_sCommand: start, restart, pause, resume, stop. Start and restart use
  // p_sSimulator and the interval (REQUIRES: already validated).
  Outcome Command(const std::string& p_sCommand, const std::string& p_sSimulator,
                  double p_dStart, double p_dEnd, double p_dStep);
  Outcome Speed(unsigned int p_nSpeed);
  Outcome ChangeParameter(const std::string& p_sName, double p_dValue);
  Outcome ChangeMarking(const std::string& p_sPlace, double p_dValue);
  // p_sWhat: parameters or marking.
  Outcome Reset(const std::string& p_sWhat);
  Outcome ChooseSimulator(const std::string& p_sCategory, const std::string& p_sSimulator);
  Outcome ReadSettings(const std::string& p_sSimulator);
  // p_cValues: an object of setting names and values (strings or numbers).
  Outcome WriteSettings(const std::string& p_sSimulator, const nlohmann::json& p_cValues);
  // The run's results so far: a header "time,PLACE,..." and a row per
  // output point. False when no model is attached.
  bool ResultsCsv(std::string& p_rsCsv);

 private:
  // All under m_cLock.
  bool Connect();
  void Drop(const std::string& p_sWhy);
  bool Lost(unsigned int p_nResult);
  bool AttachLocked(const std::string& p_sName, std::string& p_rsWhy);
  void Watch();
  void WatchOnce();
  void ReadInterval();
  void NewRun();
  nlohmann::json SnapshotLocked() const;
  nlohmann::json StatusJson() const;
  nlohmann::json ValuesJson() const;
  nlohmann::json ModelJson() const;
  nlohmann::json PointsJson(std::size_t p_nFrom) const;
  void Message(const std::string& p_sLevel, const std::string& p_sText,
               const std::string& p_sControl = "");
  // The refusals of the last request, one per line (read from the server).
  std::vector<std::string> Refusals();
  // The common end of a steering request: a lost connection gives 503, any
  // other failure 502; refusals are added to the body and published.
  Outcome Steered(unsigned int p_nResult, const std::string& p_sControl);
  bool Ready(Outcome& p_rcOutcome) const;
  // A parameter (p_sKind "parameter") or a place's marking ("place"), by name.
  Outcome ChangeValue(const wxChar* p_sNamesKey, const std::string& p_sKind,
                      const std::string& p_sName, double p_dValue);
  long long PositionOf(const wxChar* p_sKey, const std::string& p_sName) const;
  std::vector<std::string> Names(const wxChar* p_sKey) const;

  const std::string m_sHost;
  const std::string m_sService;
  EventHub& m_rEvents;

  std::mutex m_cLock;
  std::unique_ptr<SteeringClient> m_pcClient;
  std::unique_ptr<quor::Model> m_pcModel;
  bool m_bConnected = false;
  std::string m_sConnection;  // what the page says about the connection
  std::string m_sAttached;    // the model's name, kept for a reconnection

  // What the watcher saw last.
  int m_nState = 0, m_nErrorState = 0, m_nSpeed = 0;
  double m_dProgress = 0, m_dRuntime = 0;
  std::string m_sCategory, m_sAlgorithm, m_sLog;
  std::string m_sChosenCategory, m_sChosenSimulator;
  std::vector<double> m_adParameters, m_adMarking, m_adInitialParameters;
  double m_dStart = 0, m_dEnd = 0, m_dStep = 1;
  std::vector<std::vector<double> > m_aadResults;  // a row per place
  std::size_t m_nPublished = 0;                    // columns sent to the pages
  bool m_bFailureReported = false;
  std::deque<nlohmann::json> m_acMessages;

  std::mutex m_cStopLock;
  std::condition_variable m_cStopped;
  bool m_bStop = false;
  std::thread m_cWatcher;
};

}  // namespace web
}  // namespace quor

#endif  // QUOR_WEB_LINK_H
