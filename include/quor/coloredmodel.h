// SPDX-License-Identifier: MIT
// A coloured Petri net: a Model of the unfolded net (model type 1) plus the
// coloured places and transitions above it, each with a range of positions.
#ifndef QUOR_COLOREDMODEL_H
#define QUOR_COLOREDMODEL_H

#include "quor/export.h"
#include "quor/model.h"

namespace quor {

// The "MODEL_TYPE" of a coloured net: a receiver builds a ColoredModel for
// it.
constexpr unsigned int COLORED_MODEL_TYPE = 1;

class QUOR_API ColoredModel : public Model {
 public:
  // Transitions before places for the unfolded net (as Model), then the
  // coloured places before the coloured transitions.
  ColoredModel(wxSocketBase* p_pcSocket, const wxString& p_sModelName,
               const unsigned long long& p_nTransitionCount,
               const unsigned long long& p_nPlaceCount,
               const unsigned long long& p_nColoredPlaceCount,
               const unsigned long long& p_nColoredTransitionCount);
  ~ColoredModel() override;

  virtual bool SetColoredInformation(const wxString& p_sKey,
                                     const unsigned long long& p_nColorPos,
                                     const unsigned long long& p_nStart,
                                     const unsigned long long& p_nEnd);
  virtual bool GetColoredInformation(const wxString& p_sKey,
                                     const unsigned long long& p_nColorPos,
                                     unsigned long long& p_nStart,
                                     unsigned long long& p_nEnd);
  virtual void SetColoredPlaceCount(const unsigned long long& p_nCount);
  virtual unsigned long long GetColoredPlaceCount();
  virtual void SetColoredTransitionCount(const unsigned long long& p_nCount);
  virtual unsigned long long GetColoredTransitionCount();
  virtual void SetColoredPlaceNames(const std::vector<wxString>& p_asNames);
  virtual void SetColoredTransitionNames(const std::vector<wxString>& p_asNames);
  virtual void SetColorPlaceRange(const unsigned long long& p_nColorPos,
                                  const unsigned long long& p_nStart,
                                  const unsigned long long& p_nEnd);
  virtual void GetColorPlaceRange(const unsigned long long& p_nColorPos,
                                  unsigned long long& p_nStart, unsigned long long& p_nEnd);
  virtual void SetColorTransitionRange(const unsigned long long& p_nColorPos,
                                       const unsigned long long& p_nStart,
                                       const unsigned long long& p_nEnd);
  virtual void GetColorTransitionRange(const unsigned long long& p_nColorPos,
                                       unsigned long long& p_nStart,
                                       unsigned long long& p_nEnd);
};

}  // namespace quor

#endif  // QUOR_COLOREDMODEL_H
