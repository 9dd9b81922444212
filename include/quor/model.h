// SPDX-License-Identifier: MIT
// The description of one Petri net as it travels between a simulation and
// its steering clients: every property is a named attribute of the set, and
// the plot views travel behind the attributes.
#ifndef QUOR_MODEL_H
#define QUOR_MODEL_H

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "quor/attributeTransitionConnection.h"
#include "quor/export.h"
#include "quor/netTypes.h"
#include "quor/steeringvector.h"

namespace quor {

class ModelView;

// The "MODEL_TYPE" of a plain net. (A coloured net is COLORED_MODEL_TYPE,
// coloredmodel.h; any other value is received as a plain net.)
constexpr unsigned int PLAIN_MODEL_TYPE = 0;

class QUOR_API Model : public SteeringVector {
 public:
  // The transition count comes before the place count.
  Model(wxSocketBase* p_pcSocket, const wxString& p_sModelName,
        const unsigned long long& p_nTransitionCount,
        const unsigned long long& p_nPlaceCount);
  // Deletes the views; the attributes go with the set.
  ~Model() override;

  // Whole-model transfer. SendModel: the 4-byte model type, the attribute
  // list, then the views. ReceiveModel does not read the model type (the
  // caller has read it to choose the class to build).
  virtual unsigned int SendModel();
  virtual unsigned int ReceiveModel();
  // The view count, each view, the active view, then a 4-byte
  // acknowledgement 1 from the receiver. SendModelViews counts and sends
  // only the non-NULL views. ReceiveModelViews deletes the views held so far
  // once the count has arrived, and stops at the first view whose read
  // fails (that view stays in the list), returning its status. A count of
  // more views than the value limit can hold gives "Error: cannot allocate
  // memory" and FAILURE with the views held so far kept. Each view receives
  // on behalf of the model (ReceivingFor): under its limit, reporting its
  // unclean frames to it.
  virtual unsigned int SendModelViews();
  virtual unsigned int ReceiveModelViews();
  virtual void SetModelName(const wxString& p_sName);
  virtual wxString GetModelName();
  virtual unsigned long long GetPlaceCount();
  virtual unsigned long long GetTransitionCount();
  // The live arc list inside "TRANSITION_CONNECTION".
  virtual std::vector<Transitions>* GetTransitions();
  virtual void SetTransitions(const std::vector<Transitions>& p_aTransitions);

  unsigned int GetModelType();
  unsigned int GetActiveView();
  void SetActiveView(const unsigned int& p_nView);
  void SetOutputStartPoint(const double& p_dValue);
  void SetOutputEndPoint(const double& p_dValue);
  void SetOutputSamplingSize(const double& p_dValue);

  // Net structure.
  void SetPlaceNames(const std::vector<wxString>& p_asNames);
  void SetTransitionNames(const std::vector<wxString>& p_asNames);
  void MapPlaceName2Positions(const std::vector<wxString>& p_asNames);
  void MapTransitionNames2Positions(const std::vector<wxString>& p_asNames);
  void MapNames2Positions(const std::vector<wxString>& p_asPlaceNames,
                          const std::vector<wxString>& p_asTransitionNames);
  void SetTransitionPreConnection(const unsigned long long& p_nTransitionPos,
                                  const unsigned long long& p_nPlacePos,
                                  const ConnectionType& p_eType, const double& p_dWeight);
  void SetTransitionPreConnection(const wxString& p_sTransitionName,
                                  const wxString& p_sPlaceName,
                                  const ConnectionType& p_eType, const double& p_dWeight);
  void SetTransitionPostConnection(const unsigned long long& p_nTransitionPos,
                                   const unsigned long long& p_nPlacePos,
                                   const double& p_dWeight);
  void SetTransitionPostConnection(const wxString& p_sTransitionName,
                                   const wxString& p_sPlaceName, const double& p_dWeight);
  std::vector<unsigned long long> GetTransitionPrePlaces(unsigned long long p_nTransitionPos);
  std::vector<unsigned long long> GetTransitionPostPlaces(unsigned long long p_nTransitionPos);
  void SetPlaceTypes(const std::vector<PlaceType>& p_aeTypes);
  std::vector<int>* GetPlaceType();
  void SetTransitionTypes(const std::vector<TransType>& p_aeTypes);
  // REQUIRES: p_nTransitionPos < the length of "TRANSITION_TYPES".
  void SetTransitionType(const unsigned long long& p_nTransitionPos, const TransType& p_eType);
  std::vector<int>* GetTransitionTypes();

  // Markings and parameters.
  void SetInitialMarking(const std::vector<double>& p_adMarking);
  std::vector<double>* GetInitialMarking();
  void SetCurrentMarking(const std::vector<double>& p_adMarking);
  std::vector<double>* GetCurrentMarking();
  void SetInitialParameterValues(const std::vector<double>& p_adValues);
  void SetCurrentParameterValues(const std::vector<double>& p_adValues);
  void ResetCurrentMarking();
  void ResetParameterValues();
  void SetParameterValue(const unsigned long long& p_nPosition, const double& p_dValue);
  void SetMarkingValue(const unsigned long long& p_nPosition, const double& p_dValue);

  // Views (an addition for the side that describes a net): AddModelView
  // appends a view and takes ownership; GetModelViews is the live list.
  void AddModelView(ModelView* p_pcView);
  std::vector<ModelView*>* GetModelViews() { return m_apcModelViews; }

  // The name maps, local to this object (they do not travel).
  const std::map<wxString, unsigned long long>& GetPlaceName2Position() const {
    return m_mPlaceName2Position;
  }
  const std::map<wxString, unsigned long long>& GetTransitionName2Position() const {
    return m_mTransitionName2Position;
  }

 protected:
  // Creates an attribute of class T named after the key and enters it into
  // the set; the set owns it from then on (also when entering it throws).
  template <typename T, typename... Args>
  T* RegisterAttribute(const wxString& p_sKey, Args&&... p_args) {
    std::unique_ptr<T> l_pcAttribute(new T(p_sKey, std::forward<Args>(p_args)...));
    AddAttribute(p_sKey, l_pcAttribute.get());
    return l_pcAttribute.release();
  }
  // Adds one arc to the pre lists (p_bPre) or the post lists of a
  // transition's record.
  void AddArc(const unsigned long long& p_nTransitionPos, const unsigned long long& p_nPlacePos,
              const ConnectionType& p_eType, const double& p_dWeight, bool p_bPre);
  // A copy of one place list of a transition's record; empty when the
  // transition is out of range.
  std::vector<unsigned long long> CopyArcPlaces(
      const unsigned long long& p_nTransitionPos,
      std::vector<unsigned long long> Transitions::*p_pList);
  // Copies the list under the first key over the list under the second.
  void CopyValues(const wxString& p_sInitialKey, const wxString& p_sCurrentKey);
  // Sets one entry of a list of doubles; an entry outside the list is
  // logged and left alone.
  void SetCurrentValue(const wxString& p_sKey, const unsigned long long& p_nPosition,
                       const double& p_dValue);
  // Receives one view into a new ModelView and appends it.
  unsigned int ReceiveOneView();
  // Deletes the views and empties the list.
  void DeleteModelViews();

  std::map<wxString, unsigned long long> m_mPlaceName2Position;
  std::map<wxString, unsigned long long> m_mTransitionName2Position;
  std::vector<ModelView*>* m_apcModelViews;
  std::vector<Transitions>* m_pcTransitionPtr;
};

}  // namespace quor

#endif  // QUOR_MODEL_H
