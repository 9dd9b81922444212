// SPDX-License-Identifier: MIT
// The server's half of the protocol: the version announcement, and for each
// request code the frames that mirror the client's operation, with the
// handler's operation in between. One row per request; the rows read like
// the client's rows in steeringclient.cpp.
#ifndef QUOR_STEERINGSERVERPROTOCOL_H
#define QUOR_STEERINGSERVERPROTOCOL_H

#include <wx/string.h>

#include "quor/steeringcmd.h"
#include "quor/steeringdeadline.h"
#include "quor/steeringhandler.h"
#include "quor/steeringvaluecodec.h"

namespace quor {

// The first and the last request code; every code in between is in use.
constexpr int REQUEST_FIRST = REQUEST_SEND_CMD;
constexpr int REQUEST_LAST = REQUEST_WRITE_MODEL_STATISTICS;

class SteeringServerProtocol {
 public:
  // Answers the requests of connection p_nConnection on p_pcSocket with
  // p_cHandler. REQUIRES: both outlive this object.
  SteeringServerProtocol(SteeringHandler& p_cHandler, unsigned int p_nConnection,
                         wxSocketBase* p_pcSocket);

  // The most bytes one received value may take.
  void SetMaxValueSize(unsigned long long p_nBytes);

  // The protocol version (4 bytes) and its acknowledgement.
  unsigned int SendVersion();
  // The code that opens a request.
  unsigned int ReceiveRequestCode(int& p_nCode);
  // The frames of request p_nCode (REQUIRES: REQUEST_FIRST..REQUEST_LAST)
  // after its code, with the handler's operation; the result of the last
  // frame, or FAILURE with Problem() telling why. The handler's operations
  // run outside p_pcDeadline's time (which may be NULL).
  unsigned int Answer(int p_nCode, SteeringDeadline* p_pcDeadline);
  // Why the last request failed, when more than a frame's result tells it;
  // empty otherwise.
  const wxString& Problem() const { return m_sProblem; }

 private:
  typedef SteeringHandler H;

  unsigned int Row(int p_nCode);
  unsigned int AnswerCommand();
  unsigned int AnswerRegistration();
  unsigned int SendModel(int p_nIndex);

  // The rows' three shapes. Deliver: → the values, then the handler's
  // operation with them. Reply: ← what the operation returns. Fill: ← the
  // values that the operation fills in.
  template <typename... A, typename... T>
  unsigned int Deliver(void (H::*p_pOperation)(unsigned int, A...), T&... p_values) {
    const unsigned int l_nResult = m_cCodec.Receive(p_values...);
    if (l_nResult == SUCCESS) Call([&] { (m_rHandler.*p_pOperation)(m_nConnection, p_values...); });
    return l_nResult;
  }
  template <typename R>
  unsigned int Reply(R (H::*p_pOperation)(unsigned int)) {
    R l_Value{};
    Call([&] { l_Value = (m_rHandler.*p_pOperation)(m_nConnection); });
    return m_cCodec.Send(l_Value);
  }
  template <typename... A, typename... T>
  unsigned int Fill(void (H::*p_pOperation)(unsigned int, A...), T&... p_values) {
    Call([&] { (m_rHandler.*p_pOperation)(m_nConnection, p_values...); });
    return m_cCodec.Send(p_values...);
  }
  // Thrown by Call to end a row whose values the application must not see.
  struct UncleanRequest {};
  // Runs the application's code with the request's clock stopped, unless
  // a value of this request arrived as a compressed block that was not a
  // clean zlib stream: the application never sees such values, nothing is
  // answered, and Answer fails the request.
  template <typename F>
  void Call(F p_fOperation) {
    if (!FramesClean()) throw UncleanRequest();
    SteeringDeadline::Pause l_cPause(m_pcDeadline);
    p_fOperation();
  }
  // True while every compressed value of the request being answered was a
  // clean zlib stream of exactly its size.
  bool FramesClean() const { return m_cWire.UncleanFrames() == m_nUncleanBefore; }

  SteeringHandler& m_rHandler;
  const unsigned int m_nConnection;
  // The frames of this connection, and how its values travel.
  SteeringCMD m_cWire;
  SteeringValueCodec m_cCodec;
  SteeringDeadline* m_pcDeadline = nullptr;
  unsigned long long m_nUncleanBefore = 0;
  wxString m_sProblem;

  SteeringServerProtocol(const SteeringServerProtocol&) = delete;
  SteeringServerProtocol& operator=(const SteeringServerProtocol&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGSERVERPROTOCOL_H
