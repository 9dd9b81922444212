// SPDX-License-Identifier: MIT
// One plot view of a model: its settings as named attributes and a list of
// curve records grown from the view's own curve prototype.
#ifndef QUOR_MODELVIEW_H
#define QUOR_MODELVIEW_H

#include "quor/export.h"
#include "quor/attributeStruct.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/netTypes.h"
#include "quor/steeringvector.h"

namespace quor {

class QUOR_API ModelView : public SteeringVector {
 public:
  ModelView(const wxString& p_sName, wxSocketBase* p_pcSocket);
  ~ModelView() override;

  // Insert-on-lookup: a missing key is entered with NULL and NULL returned.
  Attribute* GetAttribute(const wxString& p_sName) override;

  virtual wxString GetName();
  virtual void SetName(const wxString& p_sName);
  virtual wxString GetTitle();
  virtual void SetTitle(const wxString& p_sTitle);

  // Appends one curve record (a clone of the curve prototype).
  void AddNewCurve(const unsigned long long& p_nIndex, wxString& p_sName,
                   const int& p_nLineWidth, const int& p_nLineStyle,
                   const RM_ROW_TYPE& p_eCurveType, const wxString& p_sColourName,
                   bool p_bShow);
  // Deletes every curve record; the other settings stay.
  void RemoveAllCurves();
  // A deep copy owned by the caller, or NULL when the view holds a NULL
  // entry.
  ModelView* Clone();

  // Sets the socket and sends or receives the attribute list.
  unsigned int SendView(wxSocketBase* p_pcSocket);
  unsigned int ReceiveView(wxSocketBase* p_pcSocket);

  // About what a received view costs in memory before its curves: a default
  // view's settings and its curve prototype. A count of views is checked
  // against it before any view is built.
  static unsigned long long MemoryOfOne();

  // The curve list ("CURVE_INFO") and the prototype of its records.
  AttributeVectorAttribute* GetCurves();
  AttributeStruct* GetCurveProtoType() { return m_pcCurveProtoType; }

 protected:
  AttributeStruct* m_pcCurveProtoType;
};

}  // namespace quor

#endif  // QUOR_MODELVIEW_H
