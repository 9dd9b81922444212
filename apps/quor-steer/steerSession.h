// SPDX-License-Identifier: MIT
// One connection of quor-steer to a simulation server: connecting with the
// version check, attaching to a running model by index or name, the
// model's names, and the requests with their results and refusals turned
// into failures that carry the program's exit status.
#ifndef QUOR_STEER_SESSION_H
#define QUOR_STEER_SESSION_H

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "quor/model.h"
#include "quor/steeringclient.h"

namespace quor {
namespace steer {

// The exit statuses of quor-steer.
enum Status : int {
  STATUS_SUCCESS = 0,
  STATUS_FAILED = 1,         // the server refused, a request failed, the run failed
  STATUS_USAGE = 2,          // a wrong command line (an unknown name included)
  STATUS_NO_CONNECTION = 3,  // no server could be reached
  STATUS_VERSION = 4         // the server speaks another protocol version
};

// What ends a command: the text for stderr and the exit status.
class Failure : public std::runtime_error {
 public:
  Failure(int p_nStatus, const std::string& p_sText)
      : std::runtime_error(p_sText), m_nStatus(p_nStatus) {}
  int GetStatus() const { return m_nStatus; }

 private:
  int m_nStatus;
};

// What names a kind of thing in messages ("parameter", "parameters").
struct NameKind {
  const char* one;
  const char* many;
};
extern const NameKind PLACE, TRANSITION, PARAMETER, SETTING, SIMULATOR, MODEL;

// The position of p_sName in p_asNames; otherwise a usage failure that
// lists the valid names: "unknown parameter 'x' (the parameters are: a, b)".
std::size_t FindName(const NameKind& p_rKind, const std::vector<std::string>& p_asNames,
                     const std::string& p_sName);
// "a, b, c" ("none" for an empty list).
std::string JoinNames(const std::vector<std::string>& p_asNames);

std::string Text(const wxString& p_sText);
wxString WxText(const std::string& p_sText);

struct Connection {
  std::string host = "127.0.0.1";
  unsigned int port = 3000;
  int timeout = 10;  // seconds, for the connection and for each request
};

class Session {
 public:
  explicit Session(const Connection& p_rConnection);
  ~Session();

  // Connects; a Failure with STATUS_NO_CONNECTION or STATUS_VERSION
  // otherwise.
  void Connect();
  // The running models' names.
  std::vector<std::string> ModelNames();
  // Attaches to the model p_sModel names: an index ("0") or a model's name.
  // Refusals left for this connection before (a run that failed) are kept
  // for EarlierMessages. REQUIRES: connected.
  void Attach(const std::string& p_sModel);
  // Uploads p_pcModel (which the session keeps from now on) as a new
  // running model. REQUIRES: connected, not attached.
  void Upload(std::unique_ptr<Model> p_pcModel);

  SteeringClient& Client() { return *m_pcClient; }
  // REQUIRES: attached.
  Model& GetModel() { return *m_pcModel; }
  const std::string& ModelName() const { return m_sModel; }
  std::vector<std::string> Names(const wxChar* p_sKey);

  // A request's result: anything but SUCCESS is a Failure (STATUS_FAILED)
  // naming the request.
  void Check(unsigned int p_nResult, const char* p_sRequest);
  // The refusals the server left for this connection since it last asked;
  // a Failure with them when there are any. Call after each steering
  // request.
  void CheckRefusals();
  // Every message the server has for this connection now, one per entry.
  std::vector<std::string> ReceiveMessages();
  const std::vector<std::string>& EarlierMessages() const { return m_asEarlier; }

  // The current output interval of the model on the server. False when the
  // server sent none.
  bool ReadInterval(double& p_rdStart, double& p_rdEnd, double& p_rdStep);

 private:
  Connection m_cConnection;
  // The models outlive the client that points at them.
  std::unique_ptr<Model> m_pcModel;
  std::unique_ptr<SteeringClient> m_pcClient;
  std::string m_sModel;
  std::vector<std::string> m_asEarlier;

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
};

}  // namespace steer
}  // namespace quor

#endif  // QUOR_STEER_SESSION_H
