// SPDX-License-Identifier: MIT
#include "quor/steeringcontrol.h"

#include "quor/coloredmodel.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"

#include <memory>

namespace quor {

SteeringControl::SteeringControl(wxSocketBase* p_pcSocket) : SteeringVector(p_pcSocket) {}

SteeringControl::~SteeringControl() {}

unsigned int SteeringControl::SendSimulationInterval(const double& p_dStart,
                                                     const double& p_dEnd,
                                                     const double& p_dSampling) {
  const double l_adInterval[3] = {p_dStart, p_dEnd, p_dSampling};
  return SendValue(l_adInterval, sizeof(l_adInterval));
}

unsigned int SteeringControl::ReceiveSimulationInterval(double& p_dStart, double& p_dEnd,
                                                        double& p_dSampling) {
  double l_adInterval[3] = {0.0, 0.0, 0.0};
  // Whatever the transfer reported, a failed interval is FAILURE.
  if (ReceiveValue(l_adInterval, sizeof(l_adInterval)) != 1) return FAILURE;
  p_dStart = l_adInterval[0];
  p_dEnd = l_adInterval[1];
  p_dSampling = l_adInterval[2];
  return 1;
}

unsigned int SteeringControl::SendAvailableSimulators(
    const std::vector<QU_SimulatorCategory>& p_aList) {
  // The frames' results are not examined: a broken connection shows in the
  // request that follows.
  unsigned int l_nCount = static_cast<unsigned int>(p_aList.size());
  SendValue(&l_nCount, sizeof(l_nCount));
  for (const QU_SimulatorCategory& l_cCategory : p_aList) {
    SendString(l_cCategory.m_sCategoryName);
    SendValue(&l_cCategory.m_nCategoryId, sizeof(l_cCategory.m_nCategoryId));
    SendVectorString(l_cCategory.m_asSimulatorNames);
  }
  return 1;
}

unsigned int SteeringControl::ReceiveAvailableSimulators(
    std::vector<QU_SimulatorCategory>& p_aList) {
  // A failed count reads as 0. The count comes from the peer, so the list
  // grows only as categories actually arrive, and the reading stops at the
  // first failed frame (the connection is out of step from there on): the
  // list then holds the categories that arrived whole. The result is 1 in
  // every case.
  unsigned int l_nCount = 0;
  ReceiveValue(&l_nCount, sizeof(l_nCount));
  if (p_aList.size() > l_nCount) p_aList.resize(l_nCount);

  for (unsigned int l_nIndex = 0; l_nIndex < l_nCount; ++l_nIndex) {
    if (l_nIndex == p_aList.size()) {
      TRY_ALLOC(p_aList.emplace_back(), return 1);
    }
    QU_SimulatorCategory& l_cCategory = p_aList[l_nIndex];
    if (ReceiveString(l_cCategory.m_sCategoryName) != 1 ||
        ReceiveValue(&l_cCategory.m_nCategoryId, sizeof(l_cCategory.m_nCategoryId)) != 1 ||
        ReceiveVectorString(l_cCategory.m_asSimulatorNames) != 1) {
      p_aList.resize(l_nIndex);
      return 1;
    }
  }
  return 1;
}

unsigned int SteeringControl::SendModelStatistics(ModelRuntimeState& p_cState) {
  return p_cState.SendAttributes(m_pcClientSocket);
}

unsigned int SteeringControl::ReceiveModelStatistics(ModelRuntimeState& p_cState) {
  ReceivingFor l_cFor(p_cState, *this);
  return p_cState.ReceiveAttributes(m_pcClientSocket);
}

unsigned int SteeringControl::_SendExistingModel(Model* p_pcModel) {
  CHECK_POINTER(p_pcModel, return FAILURE);
  return p_pcModel->SendModel();
}

Model* SteeringControl::_ReceiveExistingModel(wxSocketBase* p_pcSocket) {
  unsigned int l_nModelType = 0;
  if (ReceiveValue(&l_nModelType, sizeof(l_nModelType)) != 1) return NULL;

  Model* l_pcModel = NULL;
  if (l_nModelType == COLORED_MODEL_TYPE) {
    TRY_ALLOC(l_pcModel = new ColoredModel(p_pcSocket, wxT(""), 0, 0, 0, 0), return NULL);
  } else {
    TRY_ALLOC(l_pcModel = new Model(p_pcSocket, wxT(""), 0, 0), return NULL);
  }
  std::unique_ptr<Model> l_cOwner(l_pcModel);
  // The model reads on this connection's behalf: under its limits, and
  // reporting its unclean frames to it.
  ReceivingFor l_cFor(*l_pcModel, *this);
  if (l_pcModel->ReceiveModel() != 1) return NULL;
  return l_cOwner.release();
}

}  // namespace quor
