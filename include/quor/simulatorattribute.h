// SPDX-License-Identifier: MIT
// The settings of one simulator: an ordered list of records (name, caption,
// value as text, input-control code, range, possible values), each cloned
// from one prototype, exchanged over a connection it is handed.
#ifndef QUOR_SIMULATORATTRIBUTE_H
#define QUOR_SIMULATORATTRIBUTE_H

#include <vector>

#include "quor/export.h"
#include "quor/attributeStruct.h"

namespace quor {

class SteeringBase;

class QUOR_API SimulatorAttribute {
 public:
  SimulatorAttribute();
  virtual ~SimulatorAttribute();

  virtual bool AddAttribute(const wxString& p_sName, const wxString& p_sCaption,
                            const wxString& p_sValue, const unsigned int& p_nGuiType,
                            const double& p_dMinValue, const double& p_dMaxValue);
  virtual bool GetAttribute(const unsigned int& p_nIndex, wxString& p_sName,
                            wxString& p_sCaption, wxString& p_sValue,
                            unsigned int& p_nGuiType, double& p_dMinValue,
                            double& p_dMaxValue);
  // Writes the six values into entry p_nIndex; the references are only read.
  virtual bool UpdateAttribute(const unsigned int& p_nIndex, wxString& p_sName,
                               wxString& p_sCaption, wxString& p_sValue,
                               unsigned int& p_nGuiType, double& p_dMinValue,
                               double& p_dMaxValue);
  virtual unsigned long long size();
  // The entry count (4 bytes), then each entry's fields in key order.
  virtual unsigned int SendAttributes(SteeringBase* p_pcCommunicator);
  virtual unsigned int ReceiveAttributes(SteeringBase* p_pcCommunicator);
  virtual void SetPossibleValues(const unsigned int& p_nIndex,
                                 const std::vector<wxString>& p_asValues);
  virtual std::vector<wxString> GetPossibleValues(const unsigned int& p_nIndex);
  virtual void Clear();

 protected:
  std::vector<AttributeStruct*> m_apcSimulatorAttributes;
  AttributeStruct* m_pcProtoType;

 private:
  SimulatorAttribute(const SimulatorAttribute&) = delete;
  SimulatorAttribute& operator=(const SimulatorAttribute&) = delete;
};

}  // namespace quor

#endif  // QUOR_SIMULATORATTRIBUTE_H
