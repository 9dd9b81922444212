// SPDX-License-Identifier: MIT
// How each kind of value travels inside a request: the frames of a number,
// a text, a list, a matrix, the library's messages. Both ends of a request
// move the same values in the same order, so both can write their half of a
// request as one line: Send(position, value) on one side, Receive(position,
// value) on the other.
//
//   number (integer, double, enumeration)  one value frame of its width
//   wxString                               a string frame
//   std::vector<wxString>                  a string list
//   SteeringMatrix, SteeringMatrixSnapshot a matrix of doubles
//   std::vector<QU_SimulatorCategory>      the available simulators
//   std::vector<unsigned long long>,       a counted list: an 8-byte count,
//   std::vector<double>                    then (unless 0) the values in one
//                                          frame
//   SimulatorAttribute                     simulator settings
//   ResultMatrixInfo                       the result-matrix row description
//   ModelRuntimeState                      the model statistics
//   Model                                  the model's views (on the model's
//                                          own socket)
//   ModelSnapshot                          a whole model (send only)
//
// A codec is used by one thread at a time, like its connection.
#ifndef QUOR_STEERINGVALUECODEC_H
#define QUOR_STEERINGVALUECODEC_H

#include <wx/string.h>

#include <memory>
#include <type_traits>
#include <vector>

#include "quor/export.h"
#include "quor/steeringcmd.h"

namespace quor {

class Model;
class ModelRuntimeState;
class ResultMatrixInfo;
class SimulatorAttribute;

// A matrix of doubles, row by row.
typedef std::vector<std::vector<double> > SteeringMatrix;
// A matrix that may be shared by several readers and is never changed.
typedef std::shared_ptr<const SteeringMatrix> SteeringMatrixSnapshot;
// A model that may be shared by several readers and is never changed.
typedef std::shared_ptr<const Model> ModelSnapshot;

class QUOR_API SteeringValueCodec {
 public:
  // The values travel over p_cWire's connection. REQUIRES: p_cWire outlives
  // the codec.
  explicit SteeringValueCodec(SteeringCMD& p_cWire);

  // The most memory one received value may cost: the limit of the codec's
  // connection (SteeringCommunicator::SetMaxValueSize). A larger value is
  // refused (FAILURE, see Problem) before anything is sized by it.
  void SetMaxValueSize(unsigned long long p_nBytes) { m_rWire.SetMaxValueSize(p_nBytes); }
  unsigned long long GetMaxValueSize() const { return m_rWire.GetMaxValueSize(); }

  // The values in order, each in its own frames, up to the first that
  // fails. Returns the result of the last frame attempted (1 when all went
  // through).
  template <typename... T>
  unsigned int Receive(T&... p_values) {
    unsigned int l_nResult = SUCCESS;
    ((l_nResult = l_nResult == SUCCESS ? ReceiveOne(p_values) : l_nResult), ...);
    return l_nResult;
  }
  template <typename... T>
  unsigned int Send(T&&... p_values) {
    unsigned int l_nResult = SUCCESS;
    ((l_nResult = l_nResult == SUCCESS ? SendOne(p_values) : l_nResult), ...);
    return l_nResult;
  }

  // Why a value was refused when its frame's result does not tell it
  // ("1099511627776 positions announced"); empty otherwise. Kept until
  // ClearProblem.
  const wxString& Problem() const { return m_sProblem; }
  void ClearProblem() { m_sProblem.clear(); }

  // One value each.
  template <typename T>
  using IfNumber = std::enable_if_t<std::is_arithmetic<T>::value || std::is_enum<T>::value, int>;
  template <typename T, IfNumber<T> = 0>
  unsigned int ReceiveOne(T& p_value) {
    return m_rWire.ReceiveValue(&p_value, sizeof(T));
  }
  template <typename T, IfNumber<T> = 0>
  unsigned int SendOne(const T& p_value) {
    return m_rWire.SendValue(&p_value, sizeof(T));
  }
  unsigned int ReceiveOne(wxString& p_sValue);
  unsigned int SendOne(const wxString& p_sValue);
  unsigned int ReceiveOne(std::vector<wxString>& p_asValue);
  unsigned int SendOne(const std::vector<wxString>& p_asValue);
  unsigned int ReceiveOne(SteeringMatrix& p_aadValue);
  unsigned int SendOne(const SteeringMatrix& p_aadValue);
  // A NULL snapshot travels as an empty matrix.
  unsigned int SendOne(const SteeringMatrixSnapshot& p_pcValue);
  unsigned int ReceiveOne(std::vector<QU_SimulatorCategory>& p_aList);
  unsigned int SendOne(const std::vector<QU_SimulatorCategory>& p_aList);
  unsigned int ReceiveOne(std::vector<unsigned long long>& p_anValue);
  unsigned int SendOne(const std::vector<unsigned long long>& p_anValue);
  unsigned int ReceiveOne(std::vector<double>& p_adValue);
  unsigned int SendOne(const std::vector<double>& p_adValue);
  unsigned int ReceiveOne(SimulatorAttribute& p_cValue);
  unsigned int SendOne(SimulatorAttribute& p_cValue);
  unsigned int ReceiveOne(ResultMatrixInfo& p_cValue);
  unsigned int SendOne(ResultMatrixInfo& p_cValue);
  unsigned int ReceiveOne(ModelRuntimeState& p_cValue);
  unsigned int SendOne(ModelRuntimeState& p_cValue);
  unsigned int ReceiveOne(Model& p_cViews);
  unsigned int SendOne(Model& p_cViews);
  // The whole model (type, attributes, views, and the receiver's 4-byte
  // acknowledgement), sent straight from the snapshot: nothing of it is
  // copied or changed, so other threads may read or send the same snapshot
  // meanwhile. FAILURE for NULL.
  unsigned int SendOne(const ModelSnapshot& p_pcModel);

 private:
  template <typename T>
  unsigned int ReceiveCounted(std::vector<T>& p_aValue, const wxChar* p_sWhat);
  template <typename T>
  unsigned int SendCounted(const std::vector<T>& p_aValue);

  SteeringCMD& m_rWire;
  wxString m_sProblem;

  SteeringValueCodec(const SteeringValueCodec&) = delete;
  SteeringValueCodec& operator=(const SteeringValueCodec&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGVALUECODEC_H
