// SPDX-License-Identifier: MIT
#include "quor/steeringvaluecodec.h"

#include <utility>

#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"

namespace quor {

namespace {

// For the time of a send, a set on this connection holds the attributes of
// another set (a snapshot that other threads may read too) instead of its
// own: the pointers are borrowed, nothing is copied, and the set's own
// attributes come back when the loan ends.
class AttributeLoan {
 public:
  AttributeLoan(SteeringVector& p_cBorrower, SteeringVector& p_cOwner)
      : m_rBorrower(p_cBorrower) {
    AttributeList l_mLent = *p_cOwner.GetAttributeList();  // the only step that may throw
    m_mOwn.swap(*p_cBorrower.GetAttributeList());
    p_cBorrower.GetAttributeList()->swap(l_mLent);
  }
  ~AttributeLoan() { m_rBorrower.GetAttributeList()->swap(m_mOwn); }

 private:
  SteeringVector& m_rBorrower;
  AttributeList m_mOwn;
};

// A model on this connection that sends a snapshot's attributes and views
// as its own.
class ModelLoan {
 public:
  ModelLoan(const Model& p_cSnapshot, wxSocketBase* p_pcSocket)
      : m_cShell(p_pcSocket, wxT(""), 0, 0) {
    Model& l_rSnapshot = const_cast<Model&>(p_cSnapshot);  // read only
    const size_t l_nViews = l_rSnapshot.GetModelViews()->size();
    m_apcViews.reserve(l_nViews);
    m_apcLoans.reserve(l_nViews + 1);
    m_cShell.GetModelViews()->reserve(l_nViews);
    m_apcLoans.emplace_back(new AttributeLoan(m_cShell, l_rSnapshot));
    for (ModelView* l_pcView : *l_rSnapshot.GetModelViews()) {
      if (l_pcView == NULL) continue;
      m_apcViews.emplace_back(new ModelView(wxT(""), p_pcSocket));
      m_apcLoans.emplace_back(new AttributeLoan(*m_apcViews.back(), *l_pcView));
    }
    // Nothing throws from here on (the room is reserved), so the shell
    // never holds a view that it would delete as its own.
    for (const std::unique_ptr<ModelView>& l_pcView : m_apcViews)
      m_cShell.GetModelViews()->push_back(l_pcView.get());
  }
  ~ModelLoan() {
    // The views are this object's, not the shell's.
    m_cShell.GetModelViews()->clear();
    m_apcLoans.clear();
  }
  Model& Shell() { return m_cShell; }

 private:
  Model m_cShell;
  std::vector<std::unique_ptr<ModelView> > m_apcViews;
  // Ended (in reverse) before the views and the shell go.
  std::vector<std::unique_ptr<AttributeLoan> > m_apcLoans;
};

}  // namespace

SteeringValueCodec::SteeringValueCodec(SteeringCMD& p_cWire) : m_rWire(p_cWire) {}

unsigned int SteeringValueCodec::ReceiveOne(wxString& p_sValue) {
  return m_rWire.ReceiveString(p_sValue);
}

unsigned int SteeringValueCodec::SendOne(const wxString& p_sValue) {
  return m_rWire.SendString(p_sValue);
}

unsigned int SteeringValueCodec::ReceiveOne(std::vector<wxString>& p_asValue) {
  return m_rWire.ReceiveVectorString(p_asValue);
}

unsigned int SteeringValueCodec::SendOne(const std::vector<wxString>& p_asValue) {
  return m_rWire.SendVectorString(p_asValue);
}

unsigned int SteeringValueCodec::ReceiveOne(SteeringMatrix& p_aadValue) {
  return m_rWire.ReceiveVector2D(p_aadValue);
}

unsigned int SteeringValueCodec::SendOne(const SteeringMatrix& p_aadValue) {
  return m_rWire.SendVector2D(p_aadValue);
}

unsigned int SteeringValueCodec::SendOne(const SteeringMatrixSnapshot& p_pcValue) {
  return p_pcValue ? SendOne(*p_pcValue) : SendOne(SteeringMatrix());
}

unsigned int SteeringValueCodec::ReceiveOne(std::vector<QU_SimulatorCategory>& p_aList) {
  return m_rWire.ReceiveAvailableSimulators(p_aList);
}

unsigned int SteeringValueCodec::SendOne(const std::vector<QU_SimulatorCategory>& p_aList) {
  return m_rWire.SendAvailableSimulators(p_aList);
}

template <typename T>
unsigned int SteeringValueCodec::ReceiveCounted(std::vector<T>& p_aValue, const wxChar* p_sWhat) {
  unsigned long long l_nCount = 0;
  const unsigned int l_nResult = ReceiveOne(l_nCount);
  p_aValue.clear();
  if (l_nResult != SUCCESS || l_nCount == 0) return l_nResult;
  // The wire's own judgement of the count, told in the dispatcher's words.
  if (!m_rWire.Affords(l_nCount, sizeof(T))) {
    m_sProblem = wxString::Format(wxT("%llu %s announced"), l_nCount, p_sWhat);
    return FAILURE;
  }
  return m_rWire.ReceiveArrayOf(l_nCount, p_aValue);
}

template <typename T>
unsigned int SteeringValueCodec::SendCounted(const std::vector<T>& p_aValue) {
  return m_rWire.SendArray(p_aValue.empty() ? NULL : p_aValue.data(), p_aValue.size(), sizeof(T));
}

unsigned int SteeringValueCodec::ReceiveOne(std::vector<unsigned long long>& p_anValue) {
  return ReceiveCounted(p_anValue, wxT("positions"));
}

unsigned int SteeringValueCodec::SendOne(const std::vector<unsigned long long>& p_anValue) {
  return SendCounted(p_anValue);
}

unsigned int SteeringValueCodec::ReceiveOne(std::vector<double>& p_adValue) {
  return ReceiveCounted(p_adValue, wxT("values"));
}

unsigned int SteeringValueCodec::SendOne(const std::vector<double>& p_adValue) {
  return SendCounted(p_adValue);
}

unsigned int SteeringValueCodec::ReceiveOne(SimulatorAttribute& p_cValue) {
  return p_cValue.ReceiveAttributes(&m_rWire);
}

unsigned int SteeringValueCodec::SendOne(SimulatorAttribute& p_cValue) {
  return p_cValue.SendAttributes(&m_rWire);
}

unsigned int SteeringValueCodec::ReceiveOne(ResultMatrixInfo& p_cValue) {
  return p_cValue.ReceiveValue(&m_rWire);
}

unsigned int SteeringValueCodec::SendOne(ResultMatrixInfo& p_cValue) {
  return p_cValue.SendValue(&m_rWire);
}

unsigned int SteeringValueCodec::ReceiveOne(ModelRuntimeState& p_cValue) {
  return m_rWire.ReceiveModelStatistics(p_cValue);
}

unsigned int SteeringValueCodec::SendOne(ModelRuntimeState& p_cValue) {
  return m_rWire.SendModelStatistics(p_cValue);
}

unsigned int SteeringValueCodec::ReceiveOne(Model& p_cViews) {
  // The views arrive on this connection, under its limit.
  SteeringCommunicator::ReceivingFor l_cOnBehalf(p_cViews, m_rWire);
  return p_cViews.ReceiveModelViews();
}

unsigned int SteeringValueCodec::SendOne(Model& p_cViews) { return p_cViews.SendModelViews(); }

unsigned int SteeringValueCodec::SendOne(const ModelSnapshot& p_pcModel) {
  if (!p_pcModel) return FAILURE;
  std::unique_ptr<ModelLoan> l_pcLoan;
  TRY_ALLOC(l_pcLoan.reset(new ModelLoan(*p_pcModel, m_rWire.GetClientSocket())),
            return FAILURE);
  return m_rWire._SendExistingModel(&l_pcLoan->Shell());
}

}  // namespace quor
