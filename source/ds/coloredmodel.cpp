// SPDX-License-Identifier: MIT
#include "quor/coloredmodel.h"

#include "quor/attributeVector.h"
#include "quor/keys.h"

namespace quor {

ColoredModel::ColoredModel(wxSocketBase* p_pcSocket, const wxString& p_sModelName,
                           const unsigned long long& p_nTransitionCount,
                           const unsigned long long& p_nPlaceCount,
                           const unsigned long long& p_nColoredPlaceCount,
                           const unsigned long long& p_nColoredTransitionCount)
    : Model(p_pcSocket, p_sModelName, p_nTransitionCount, p_nPlaceCount) {
  SetAttributeValue(keys::MODEL_TYPE, COLORED_MODEL_TYPE);
  RegisterAttribute<AttributeUlong>(keys::COLORED_PLACE_COUNT, p_nColoredPlaceCount);
  RegisterAttribute<AttributeUlong>(keys::COLORED_TRANSITION_COUNT, p_nColoredTransitionCount);
  RegisterAttribute<AttributeVectorString>(keys::COLORED_PLACE_NAMES);
  RegisterAttribute<AttributeVectorString>(keys::COLORED_TRANSITION_NAMES);
  // One zero range per coloured place and transition (32-bit element counts).
  RegisterAttribute<AttributeVectorULong2ULong>(keys::COLORED_PLACE_INFO)
      ->assign(static_cast<unsigned int>(p_nColoredPlaceCount));
  RegisterAttribute<AttributeVectorULong2ULong>(keys::COLORED_TRANSITION_INFO)
      ->assign(static_cast<unsigned int>(p_nColoredTransitionCount));
}

ColoredModel::~ColoredModel() {}

// A range outside the list is neither written nor read: both operations
// then return false.

bool ColoredModel::SetColoredInformation(const wxString& p_sKey,
                                         const unsigned long long& p_nColorPos,
                                         const unsigned long long& p_nStart,
                                         const unsigned long long& p_nEnd) {
  AttributeVectorULong2ULong* l_pcAttribute =
      FindAttribute<AttributeVectorULong2ULong>(p_sKey);
  CHECK_POINTER(l_pcAttribute, return false);
  if (p_nColorPos >= l_pcAttribute->GetValue().size()) return false;
  l_pcAttribute->SetElementValue(p_nColorPos, p_nStart, p_nEnd);
  return true;
}

bool ColoredModel::GetColoredInformation(const wxString& p_sKey,
                                         const unsigned long long& p_nColorPos,
                                         unsigned long long& p_nStart,
                                         unsigned long long& p_nEnd) {
  AttributeVectorULong2ULong* l_pcAttribute =
      FindAttribute<AttributeVectorULong2ULong>(p_sKey);
  CHECK_POINTER(l_pcAttribute, return false);
  if (p_nColorPos >= l_pcAttribute->GetValue().size()) return false;
  l_pcAttribute->GetElementValue(p_nColorPos, p_nStart, p_nEnd);
  return true;
}

void ColoredModel::SetColoredPlaceCount(const unsigned long long& p_nCount) {
  SetAttributeValue(keys::COLORED_PLACE_COUNT, p_nCount);
}

unsigned long long ColoredModel::GetColoredPlaceCount() {
  return GetAttributeValueULong(keys::COLORED_PLACE_COUNT);
}

void ColoredModel::SetColoredTransitionCount(const unsigned long long& p_nCount) {
  SetAttributeValue(keys::COLORED_TRANSITION_COUNT, p_nCount);
}

unsigned long long ColoredModel::GetColoredTransitionCount() {
  return GetAttributeValueULong(keys::COLORED_TRANSITION_COUNT);
}

void ColoredModel::SetColoredPlaceNames(const std::vector<wxString>& p_asNames) {
  SetAttributeValue(keys::COLORED_PLACE_NAMES, p_asNames);
}

void ColoredModel::SetColoredTransitionNames(const std::vector<wxString>& p_asNames) {
  SetAttributeValue(keys::COLORED_TRANSITION_NAMES, p_asNames);
}

void ColoredModel::SetColorPlaceRange(const unsigned long long& p_nColorPos,
                                      const unsigned long long& p_nStart,
                                      const unsigned long long& p_nEnd) {
  SetColoredInformation(keys::COLORED_PLACE_INFO, p_nColorPos, p_nStart, p_nEnd);
}

void ColoredModel::GetColorPlaceRange(const unsigned long long& p_nColorPos,
                                      unsigned long long& p_nStart, unsigned long long& p_nEnd) {
  GetColoredInformation(keys::COLORED_PLACE_INFO, p_nColorPos, p_nStart, p_nEnd);
}

void ColoredModel::SetColorTransitionRange(const unsigned long long& p_nColorPos,
                                           const unsigned long long& p_nStart,
                                           const unsigned long long& p_nEnd) {
  SetColoredInformation(keys::COLORED_TRANSITION_INFO, p_nColorPos, p_nStart, p_nEnd);
}

void ColoredModel::GetColorTransitionRange(const unsigned long long& p_nColorPos,
                                           unsigned long long& p_nStart,
                                           unsigned long long& p_nEnd) {
  GetColoredInformation(keys::COLORED_TRANSITION_INFO, p_nColorPos, p_nStart, p_nEnd);
}

}  // namespace quor
