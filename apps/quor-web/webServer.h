// SPDX-License-Identifier: MIT
// quor-web's HTTP side: the page, the plotting library, a JSON API over the
// steering link and a stream of server-sent events (/api/events) that
// pushes every change to every open page.
//
// Safety: bound to a loopback address, the server answers only requests
// addressed to a loopback name (the Host header; a web site that points its
// own name at 127.0.0.1 gets nothing). Bound to any other address, every
// request that changes something needs the token printed at start, in the
// header X-Quor-Token (the page takes it from its URL, ?token=...). Every
// request that changes something is a POST with a JSON body
// (Content-Type: application/json, which another site's page cannot send
// without asking first); its names and numbers are checked, and a bad one
// gets a 4xx answer that says what is wrong.
#ifndef QUOR_WEB_SERVER_H
#define QUOR_WEB_SERVER_H

#include <atomic>
#include <memory>
#include <string>

#include "webEvents.h"
#include "webLink.h"

namespace httplib {
class Server;
}

namespace quor {
namespace web {

// What a page may send and hold open.
const std::size_t MAX_BODY_BYTES = 64 * 1024;
const int MAX_EVENT_STREAMS = 32;
// A stream with nothing to say sends a comment this often (and so notices a
// page that has gone).
const int EVENT_KEEPALIVE_MS = 1000;

// Debian's copy of the plotting library (libjs-chart.js).
const char* const CHART_JS_PATH = "/usr/share/javascript/chart.js/chart.min.js";

struct ServerOptions {
  std::string sHost = "127.0.0.1";  // the address to listen on
  int nPort = 8080;                 // 0: a free port
  std::string sToken;               // needed for changes when not empty
  std::string sPageDir;             // index.html, app.js, style.css
};

// True for 127.0.0.0/8, ::1 and "localhost".
bool IsLoopback(const std::string& p_sHost);
// A random token of 32 hexadecimal digits.
std::string MakeToken();
// The folder of the page: next to the installed program
// (bin/../share/quor/web), the installed one, or the sources'.
std::string FindPageDir(const std::string& p_sProgramPath);

class WebServer {
 public:
  WebServer(WebLink& p_rLink, EventHub& p_rEvents, const ServerOptions& p_rOptions);
  ~WebServer();

  // Binds the listening socket. False with the reason.
  bool Bind(std::string& p_rsWhy);
  int Port() const { return m_nPort; }
  // Answers requests until Stop. REQUIRES: Bind succeeded.
  void Run();
  void Stop();

 private:
  void Routes();

  WebLink& m_rLink;
  EventHub& m_rEvents;
  ServerOptions m_cOptions;
  int m_nPort = 0;
  std::unique_ptr<httplib::Server> m_pcServer;
  std::atomic<int> m_nStreams{0};
};

}  // namespace web
}  // namespace quor

#endif  // QUOR_WEB_SERVER_H
