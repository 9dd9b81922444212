// SPDX-License-Identifier: MIT
// Shared pieces of the benchmark programs: the library's own server
// (SteeringServer, SteeringDispatcher and the default handler with its
// store) as a user's simulation runs it, a loopback server that answers
// whole-model transfers with the library's send and receive halves, a raw
// POSIX ping-pong peer that moves the same frames without the library (the
// latency floor), and the data that the benchmarks move: smooth result
// matrices and nets with names, arcs and views.
//
// Clients and the loopback server use blocking sockets (wait-all, block)
// and need no event loop; the dispatcher accepts on the main thread, which
// runs the event loop while a client connects. wxWidgets must be
// initialised on the main thread (wxInitializer, wxSocketBase::Initialize)
// before any of it is used.
#ifndef QUOR_BENCH_SUPPORT_H
#define QUOR_BENCH_SUPPORT_H

#include <wx/string.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace quor {
class Model;
class SteeringClient;
class SteeringDispatcher;
class SteeringHandler;
class SteeringServer;
class SteeringVector;
}  // namespace quor

namespace quor_bench {

typedef std::vector<std::vector<double> > Matrix;

// The socket timeout of every benchmark connection, in seconds: long enough
// for the largest transfer on a loaded machine.
constexpr int SOCKET_TIMEOUT_SECONDS = 120;

// A steerable simulation without the simulation: SteeringServer on
// 127.0.0.1 (an ephemeral port) with SteeringDispatcher and the default
// SteeringHandler, whose store runs one net of three places and sixteen
// parameters with the given result matrix. Requests go through the
// dispatcher and the store exactly as a user's requests do. REQUIRES: the
// main thread, for all of it.
// A client and the model it received when it registered, deleted with it.
struct ClientDeleter {
  void operator()(quor::SteeringClient* p_pcClient) const;
};
typedef std::unique_ptr<quor::SteeringClient, ClientDeleter> RegisteredClient;

class DispatcherServer {
 public:
  explicit DispatcherServer(const Matrix& p_aadResults = Matrix());
  ~DispatcherServer();
  // A client connected through the dispatcher (the main thread runs the
  // event loop while it connects) and registered with the net
  // (Initialize(0)). Aborts the program when that fails.
  RegisteredClient Connect();
  // As many clients, one after the other.
  std::vector<RegisteredClient> ConnectMany(size_t p_nClients);

 private:
  std::unique_ptr<quor::SteeringServer> m_pcServer;
  std::unique_ptr<quor::SteeringHandler> m_pcHandler;
  std::unique_ptr<quor::SteeringDispatcher> m_pcDispatcher;
};

// A server thread on 127.0.0.1 (an ephemeral port) that accepts one
// connection, announces the protocol version and answers each request at
// once: the result matrix, and registration (an uploaded model is received
// and dropped; an attach is answered with the stored model). It stops when
// the client closes the connection.
class LoopbackServer {
 public:
  // The matrix and the model are read by the server thread while it runs
  // (either may be NULL when no request needs it) and must outlive it.
  LoopbackServer(const Matrix* p_pcMatrix, quor::Model* p_pcModel);
  // Joins the server thread: the client must be gone (or disconnected).
  ~LoopbackServer();
  unsigned short Port() const { return m_nPort; }
  wxString Service() const;
  void Join();

 private:
  void Serve(void* p_pcSocket);

  const Matrix* m_pcMatrix;
  quor::Model* m_pcModel;
  unsigned short m_nPort;
  std::thread m_cThread;
};

// A SteeringClient connected to a LoopbackServer; the server goes down with
// it. Aborts the program when the connection cannot be made.
class LoopbackSession {
 public:
  explicit LoopbackSession(const Matrix* p_pcMatrix = nullptr,
                           quor::Model* p_pcModel = nullptr);
  ~LoopbackSession();
  quor::SteeringClient& Client() { return *m_pcClient; }

 private:
  LoopbackServer m_cServer;
  std::unique_ptr<quor::SteeringClient> m_pcClient;
};

// One frame of a raw exchange: its size and its direction. The receiver of
// every frame answers with a one-byte acknowledgement, as the library's
// frames do.
struct RawFrame {
  bool m_bToServer;
  size_t m_nSize;
};

// A raw POSIX TCP connection on loopback (TCP_NODELAY on both ends) whose
// server end runs the script of frames over and over on its own thread.
// Run() plays the client's part of the script once.
class RawPingPong {
 public:
  explicit RawPingPong(const std::vector<RawFrame>& p_aScript);
  ~RawPingPong();
  // False when the connection failed.
  bool Run();

 private:
  std::vector<RawFrame> m_aScript;
  int m_nClientFd;
  std::vector<char> m_aBuffer;
  std::thread m_cThread;
};

// A matrix of smooth curves, as a simulation produces them: each row a sum
// of a decaying exponential, a damped sine and a saturating term with
// parameters of its own. Deterministic.
Matrix SmoothMatrix(size_t p_nRows, size_t p_nColumns);

// A net of p_nSize places and p_nSize transitions with names, a pre-arc
// and a post-arc per transition (a read arc on every tenth), an initial
// marking, ten parameters and two views of ten curves each. Owned by the
// caller; on no socket.
std::unique_ptr<quor::Model> BuildNet(size_t p_nSize);

// The packed values of a set in key order (the body of its attribute-list
// message), written into p_aBuffer (resized as needed). Returns the size.
size_t PackSet(quor::SteeringVector& p_cSet, std::vector<char>& p_aBuffer);
// Unpacks such a block into a set of the same schema.
void UnpackSet(quor::SteeringVector& p_cSet, const std::vector<char>& p_aBuffer);

// zlib compress() at the default level and uncompress() of the same bytes,
// with buffers kept between calls. Returns the compressed size (0 when
// zlib failed).
// The same through the library's own compressor (libdeflate where the
// library was built with it, zlib otherwise), at the default level.
size_t DeflateRoundTrip(const void* p_pData, size_t p_nSize,
                        std::vector<unsigned char>& p_aPacked,
                        std::vector<unsigned char>& p_aUnpacked);
// The name of that compressor ("libdeflate" or "zlib").
const char* DeflateName();

size_t ZlibRoundTrip(const void* p_pData, size_t p_nSize, std::vector<unsigned char>& p_aPacked,
                     std::vector<unsigned char>& p_aUnpacked);

// Prints the message and aborts: a benchmark whose setup fails has nothing
// to report.
[[noreturn]] void Fail(const char* p_sMessage);

}  // namespace quor_bench

#endif  // QUOR_BENCH_SUPPORT_H
