// SPDX-License-Identifier: MIT
// What the fuzz targets share: the input format, a loopback connection whose
// far end plays a hostile peer, the checks that every target makes after the
// library has read the peer's bytes, and the sample data that both the
// targets and the seed generator (make_seeds.cpp) build.
//
// Input format. Most targets read a few header bytes from the front of the
// input (which operation, which class, prefilled or empty) and take the rest
// as a script of the bytes the peer sends. A script is a run of pieces:
//
//   tag (1 byte), length L (4 bytes, little-endian), L bytes
//
// A piece with an even tag goes on the wire as it is; a piece with an odd tag
// is a value that goes on the wire as a compressed frame body (its zlib
// stream's 8-byte length, then the stream, as the library's sender makes
// it). A length that runs past the input takes what is left. Every byte
// string is a valid script, so mutations stay meaningful, and the fuzzer can
// change what a compressed frame carries without having to write zlib.
//
// Only the public interface (include/quor/) is used, so that the targets keep
// working while the library's insides change.
#ifndef QUOR_TESTS_FUZZ_SUPPORT_H
#define QUOR_TESTS_FUZZ_SUPPORT_H

#include <wx/socket.h>
#include <wx/string.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "quor/attribute.h"
#include "quor/model.h"
#include "quor/steeringcontrol.h"

namespace quor {
class ColoredModel;
class ModelRuntimeState;
class ModelView;
class ResultMatrixInfo;
class SimulatorAttribute;
class SteeringClient;
class SteeringModelStore;
class SteeringServer;
class SteeringVector;
}  // namespace quor

namespace quor_fuzz {

using Bytes = std::vector<uint8_t>;

// Once per process, on the main thread: wxWidgets and its sockets, the
// C.UTF-8 locale (so that texts have the same multibyte form everywhere), a
// silent log (QUOR_FUZZ_LOG=1 in the environment prints it on stderr), and
// wxWidgets assertions that abort. Every target calls it first.
void Initialize();

// Reports a broken expectation on stderr and aborts, which the fuzzer keeps
// as a finding.
[[noreturn]] void Fail(const char* p_sFormat, ...) __attribute__((format(printf, 1, 2)));

// Reads an input from the front; what is missing reads as zero.
class Input {
 public:
  Input(const uint8_t* p_pData, size_t p_nSize) : m_pNext(p_pData), m_pEnd(p_pData + p_nSize) {}
  uint8_t Byte();
  uint32_t Number();  // 4 bytes, little-endian
  const uint8_t* Rest() const { return m_pNext; }
  size_t RestSize() const { return static_cast<size_t>(m_pEnd - m_pNext); }
  // The rest of the input read as a script: the bytes the peer sends.
  Bytes Wire() const;

 private:
  const uint8_t* m_pNext;
  const uint8_t* m_pEnd;
};

// Scripts.
enum ScriptTag : uint8_t { SCRIPT_RAW = 0, SCRIPT_COMPRESSED = 1 };
// The wire bytes of a script.
Bytes WireOf(const uint8_t* p_pScript, size_t p_nSize);
// A script of recorded wire bytes: every compressed frame body in them (an
// 8-byte length, then a zlib stream of exactly that many bytes that
// compressing its contents again reproduces) becomes a compressed piece, the
// rest raw pieces. WireOf(ScriptOf(w)) == w.
Bytes ScriptOf(const Bytes& p_aWire);
void AppendPiece(Bytes& p_aScript, ScriptTag p_eTag, const Bytes& p_aBytes);
// The bytes of a compressed frame body: 8-byte length, then the zlib stream
// at the default level (as the library compresses).
Bytes CompressedBody(const Bytes& p_aValue);

// An independent reading of the frames in a peer's bytes, to compare with
// what the library reports as received.
class FrameReader {
 public:
  explicit FrameReader(const Bytes& p_aWire) : m_aWire(p_aWire), m_nAt(0) {}
  // The value of a frame of p_nSize bytes: the raw bytes, or for more than
  // 100 bytes what zlib makes of the compressed block, zero-filled where the
  // stream stopped early. False when the bytes run out. *p_pbExact is false
  // when zlib found the stream corrupt or too long for the value: a receiver
  // may then hold zlib's partial output or zeros.
  bool Value(uint32_t p_nSize, Bytes* p_paValue, bool* p_pbExact);
  // A string frame (an 8-byte character count, then a value frame of that
  // many bytes), decoded as the library decodes received text. False when
  // the bytes run out or the count exceeds what one frame carries.
  bool String(wxString* p_psValue, bool* p_pbExact);
  // A number in one raw frame.
  template <typename T>
  bool Number(T* p_pValue) {
    Bytes l_aValue;
    bool l_bExact = true;
    if (!Value(sizeof(T), &l_aValue, &l_bExact)) return false;
    std::memcpy(p_pValue, l_aValue.data(), sizeof(T));
    return true;
  }

 private:
  const Bytes& m_aWire;
  size_t m_nAt;
};

// The received value must be the reference's: equal when the reference is
// exact, else equal or zero byte by byte (never a byte that was there
// before). p_sWhat names the value in the finding.
void CheckReceived(const char* p_sWhat, const uint8_t* p_pReceived, const Bytes& p_aExpected,
                   bool p_bExact);

// How long the library's sockets may wait in the fuzz targets (seconds). A
// healthy receive never waits: the peer's bytes are all there, followed by
// the end of the stream. The fuzzer's own -timeout is shorter, so that a
// receive that waits for its socket timeout is kept as a finding.
constexpr int SOCKET_TIMEOUT_SECONDS = 30;

// Acknowledges what arrived on the descriptor at once, instead of after the
// kernel's delayed-acknowledgement wait: a peer without TCP_NODELAY then
// sends its next small frame without waiting ~40 ms for it. (Linux resets
// this after a while, so it is asked for after every read.)
void AckAtOnce(int p_nFd);

// The peer's side of one conversation on a connected descriptor: writes
// p_aOut (reading whatever arrives meanwhile), ends its sending side, then
// reads until the other end closes. Returns what it read. Gives up after
// p_nIdleMillis without any progress (and then Fail()s if p_bFailOnIdle).
Bytes Converse(int p_nFd, const Bytes& p_aOut, int p_nIdleMillis, bool p_bFailOnIdle);

// Listening sockets on 127.0.0.1 with ports of the system's choice, for
// the whole process. They take turns, one connection each: the peer's end,
// which ends its sending first, stays in TIME_WAIT for a minute after each
// connection, and thousands of connections a second to one port would use
// up the loopback's ephemeral ports (connecting then fails). REQUIRES: one
// connection at a time (Port, then connect, then Accept).
class Listener {
 public:
  static Listener& Get();
  // The listening socket whose turn it is, and its port.
  size_t Turn() const { return m_nTurn.load(); }
  unsigned short Port() const { return m_anPorts[m_nTurn.load()]; }
  // Waits (up to p_nMillis) for one connection on the socket whose turn it
  // is; -1 if none came. A connection accepted passes the turn on.
  int Accept(int p_nMillis);
  // The same on socket p_nSocket, leaving the turn where it is.
  int AcceptOn(size_t p_nSocket, int p_nMillis);

 private:
  static constexpr size_t SOCKETS = 64;
  Listener();
  int m_anFds[SOCKETS];
  unsigned short m_anPorts[SOCKETS];
  std::atomic<size_t> m_nTurn{0};
};

// A blocking wxSocketClient (wait-all, SOCKET_TIMEOUT_SECONDS) for the library
// on the near end of a fresh loopback connection; on the far end the peer
// sends the given bytes and ends its sending side. Bytes that fit into the
// connection's buffers are sent at once, before the library reads (no
// thread, no waiting); more go through a peer thread that sends them while
// the library reads. The library's own sends (acknowledgements) wait in the
// peer's buffer and are read when the feed finishes.
class Feed {
 public:
  explicit Feed(const Bytes& p_aWire);
  // Finish(), then frees the socket.
  ~Feed();
  wxSocketBase* Socket() { return m_pcSocket; }
  // Closes the library's end and reads what the library sent (its
  // acknowledgements).
  const Bytes& Finish();

 private:
  wxSocketClient* m_pcSocket;
  int m_nPeer;
  std::thread m_cPeer;
  Bytes m_aSent;
  bool m_bFinished;
};
// The most bytes a Feed sends without a peer thread: the library's
// acknowledgements for them (at most one per byte) still fit into the
// peer's receive buffer.
constexpr size_t FEED_DIRECT_LIMIT = 32768;

// A server for a SteeringClient: accepts one connection on the Listener,
// announces protocol version 7, sends the given bytes, ends its sending side
// and reads until the client closes.
class ScriptedServer {
 public:
  explicit ScriptedServer(const Bytes& p_aWire);
  ~ScriptedServer();
  wxString Service() const;
  // Waits for the server's thread. Returns what the client sent.
  const Bytes& Finish();

 private:
  std::thread m_cThread;
  Bytes m_aFromClient;
  bool m_bFinished;
};

// A bound on what one input may make the library allocate. While it lives,
// the largest amount of heap in use (over what was in use when it began) is
// measured; its destructor Fail()s when that peak is above
//   ALLOWANCE_BASE + ALLOWANCE_PER_BYTE * input size.
// A peer's bytes may legitimately grow a thousandfold through zlib, and a
// received record costs some tens of times its packed size in memory; what
// is far beyond that was allocated ahead of bytes that never came. Measured
// in sanitizer builds only (through the allocator's hooks); elsewhere the
// bound is not checked. The allocation that goes past the bound fails at
// once, so that the report's stack names it. QUOR_FUZZ_ALLOWANCE_MB in the
// environment replaces the base (to look past amplifications already known).
constexpr size_t ALLOWANCE_BASE = 64u << 20;
constexpr size_t ALLOWANCE_PER_BYTE = 64u << 10;
class AllocationBound {
 public:
  explicit AllocationBound(size_t p_nInputSize);
  ~AllocationBound();
  static bool Measured();

 private:
  size_t m_nInputSize;
  long long m_nStart;
};

// The common start of a target whose library side reads a peer's bytes
// over a Feed: Initialize(), p_nHeaders header bytes from the front of the
// input, the rest as the script of the peer's bytes, an AllocationBound for
// the input and the Feed that sends the bytes. (Members in this order.)
class Reception {
 public:
  Reception(const uint8_t* p_pData, size_t p_nSize, unsigned int p_nHeaders = 1);
  uint8_t Header(unsigned int p_nIndex = 0) const { return m_anHeaders[p_nIndex]; }
  const Bytes& Wire() const { return m_aWire; }
  wxSocketBase* Socket() { return m_cFeed.Socket(); }
  Feed& GetFeed() { return m_cFeed; }

 private:
  std::vector<uint8_t> m_anHeaders;
  Bytes m_aWire;
  AllocationBound m_cBound;
  Feed m_cFeed;
};

// A SteeringServer listening on 127.0.0.1 and a port of the system's
// choice, started once for the whole process.
quor::SteeringServer& LoopbackServer();
// A connected descriptor (TCP_NODELAY) to 127.0.0.1 and the port.
int ConnectLoopback(unsigned short p_nPort);


// What a receiver holds after reading a peer's bytes must be something the
// library can pack again: PackValue writes exactly GetPackungSize() bytes
// (into a block of exactly that size), and unpacking those bytes into a copy
// consumes them exactly. An attribute that reports FAILURE as its size (a
// record with a missing field) is passed over.
void CheckPacks(quor::Attribute& p_cAttribute);
void CheckPacks(quor::SteeringVector& p_cSet);
// The same for a model and every view it holds.
void CheckModelPacks(quor::Model& p_cModel);

// What a steering application does with a model it received, on the
// model's own counts: reads the arcs of (the first 64) transitions, the
// coloured ranges, the views and their curves, maps the names, changes and
// resets a marking and a parameter value. Whatever a peer put into the
// model, none of this may go wrong.
void UseModel(quor::Model& p_cModel);

// Sample data.
//
// One attribute of each class, each in a holder that also owns the
// prototype of a list of records.
constexpr unsigned int ATTRIBUTE_CLASS_COUNT = 15;
struct Specimen {
  std::unique_ptr<quor::Attribute> m_pcPrototype;
  std::unique_ptr<quor::Attribute> m_pcAttribute;
};
// Class p_nClass % ATTRIBUTE_CLASS_COUNT: 0 string, 1 int, 2 uint, 3 long,
// 4 ulong, 5 double, 6 bool, 7 doubles, 8 ints, 9 ulongs, 10 strings,
// 11 list of curve-like records, 12 pairs, 13 a settings-like record,
// 14 arcs. Named after its class; filled with sample values when
// p_bFilled, else as constructed.
Specimen MakeSpecimen(unsigned int p_nClass, bool p_bFilled);
// A set holding one specimen of every class (under their names), or of one
// class only.
void AddAllSpecimens(quor::SteeringVector& p_cSet, std::vector<Specimen>& p_acKeep, bool p_bFilled);

// A small net (3 places, 2 transitions, arcs, 2 parameters, names, one view
// with curves) on no socket; the coloured one adds coloured places and
// transitions.
quor::Model* SampleModel();
quor::ColoredModel* SampleColoredModel();
// A view with three curves.
quor::ModelView* SampleView();
// Two settings, the second a choice with possible values.
void FillSettings(quor::SimulatorAttribute& p_cSettings);
void FillRuntimeState(quor::ModelRuntimeState& p_cState);
std::vector<quor::QU_SimulatorCategory> SampleSimulators();
std::vector<std::vector<double> > SampleMatrix(size_t p_nRows, size_t p_nColumns);
// The store of the dispatcher target and of the dispatcher's seeds: the
// sample model and the coloured one, their results, simulators, settings,
// runtime state and messages.
void FillStore(quor::SteeringModelStore& p_cStore);

// The client's request operations, each with fixed arguments; the client
// target runs them against a scripted server and the seed generator against
// a real dispatcher.
enum ClientOp : uint8_t {
  OP_ATTACH_0, OP_ATTACH_1, OP_UPLOAD, OP_CHANGE_MODEL,
  OP_PAUSE, OP_RESUME, OP_STOP, OP_START, OP_RESTART, OP_COMMAND, OP_COMMAND_VALUE,
  OP_RUNNING_MODEL_NAMES, OP_READ_RESULT_MATRIX, OP_READ_RATE_MATRIX, OP_WRITE_RESULT_MATRIX,
  OP_READ_SIMULATOR_STATE, OP_READ_SIMULATION_INTERVAL, OP_READ_AVAILABLE_SIMULATORS,
  OP_WRITE_AVAILABLE_SIMULATORS, OP_READ_CURRENT_SIMULATOR_NAME, OP_READ_MODEL_VIEWS,
  OP_WRITE_MODEL_VIEWS, OP_READ_MODEL_STATISTICS, OP_CHANGE_PARAMETER, OP_CHANGE_PLACE,
  OP_READ_PARAMETERS, OP_READ_PLACES, OP_REMOVE_MODEL, OP_SEND_SETTINGS, OP_RECEIVE_SETTINGS,
  OP_UPDATE_RESULT_MATRIX_INFO, OP_RECEIVE_ERROR_MESSAGE, OP_CHANGE_SPEED,
  OP_SEND_STEERED_PARAMS, OP_SEND_STEERED_PLACES, OP_RECEIVE_STEERED_PARAMS,
  OP_RECEIVE_STEERED_PLACES, OP_RESET_PARAMETERS, OP_RESET_MARKING, OP_READ_LOG_MESSAGE,
  OP_WRITE_CURRENT_SIMULATOR_NAME, OP_WRITE_SIMULATOR_STATE, OP_WRITE_MODEL_STATISTICS,
  CLIENT_OP_COUNT
};
const char* ClientOpName(ClientOp p_eOp);
// True for the operations that work on the client's current model.
bool NeedsModel(ClientOp p_eOp);

// Runs client operations and owns what they leave behind: models uploaded
// with OP_UPLOAD and models received from the server.
class ClientRun {
 public:
  explicit ClientRun(quor::SteeringClient& p_cClient) : m_rClient(p_cClient) {}
  // Deletes the models the client handed over.
  ~ClientRun();
  // Runs one operation (an operation that needs a current model is skipped
  // without one) and returns its result. After a received model, checks
  // that it packs again.
  unsigned int Run(ClientOp p_eOp);

 private:
  quor::SteeringClient& m_rClient;
  // Models given to Initialize(model), while the client has not deleted
  // them (_ChangeCurrentModel deletes the current model, whoever made it).
  // A received model is deleted by the client when another one replaces it;
  // the last one is the caller's (see steeringclient.h).
  std::vector<std::unique_ptr<quor::Model> > m_apcUploaded;
};

// Runs wxWidgets' event loop on the main thread (its socket events and
// pending calls) for at most p_nMillis. WakeUpEvents, from any thread, ends
// the wait at once.
void PumpEvents(int p_nMillis);
void WakeUpEvents();

}  // namespace quor_fuzz

#endif  // QUOR_TESTS_FUZZ_SUPPORT_H
