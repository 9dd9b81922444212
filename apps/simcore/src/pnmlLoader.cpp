// SPDX-License-Identifier: MIT
#include "simcore/pnmlLoader.h"

#include <wx/log.h>
#include <wx/mstream.h>
#include <wx/thread.h>
#include <wx/xml/xml.h>

#include <cmath>
#include <map>
#include <memory>
#include <set>

#include "simcore/rateFunction.h"
#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

namespace {

// Name of the tool whose toolspecific elements this loader reads, and the
// one version of their content it knows.
const char* const kToolName = "quor";
const char* const kToolVersion = "1";

std::string ToUtf8(const wxString& p_sText) {
  wxScopedCharBuffer l_cBuffer = p_sText.utf8_str();
  return std::string(l_cBuffer.data(), l_cBuffer.length());
}

// Element name without a namespace prefix ("pnml:place" -> "place").
std::string LocalName(const wxXmlNode* p_pcNode) {
  std::string l_sName = ToUtf8(p_pcNode->GetName());
  std::size_t l_nColon = l_sName.rfind(':');
  return l_nColon == std::string::npos ? l_sName : l_sName.substr(l_nColon + 1);
}

bool HasAttribute(const wxXmlNode* p_pcNode, const char* p_sName) {
  return p_pcNode->HasAttribute(wxString::FromUTF8(p_sName));
}

std::string Attribute(const wxXmlNode* p_pcNode, const char* p_sName) {
  return ToUtf8(p_pcNode->GetAttribute(wxString::FromUTF8(p_sName), wxString()));
}

std::string Lower(std::string p_sText) {
  for (char& l_rChar : p_sText)
    if (l_rChar >= 'A' && l_rChar <= 'Z') l_rChar = static_cast<char>(l_rChar - 'A' + 'a');
  return p_sText;
}

bool EndsWith(const std::string& p_sText, const std::string& p_sEnd) {
  return p_sText.size() >= p_sEnd.size() &&
         p_sText.compare(p_sText.size() - p_sEnd.size(), p_sEnd.size(), p_sEnd) == 0;
}

// Empty for a place/transition net type, else what kind of net the type
// names ("a symmetric net"). The PNML grammars name place/transition nets
// by a URI ending in "ptnet" (http://www.pnml.org/version-2009/grammar/ptnet),
// early drafts in "ptNetb"; PIPE writes "P/T net".
std::string NetTypeName(const std::string& p_sType) {
  const std::string l_sType = Lower(p_sType);
  if (EndsWith(l_sType, "ptnet") || EndsWith(l_sType, "ptnetb") || l_sType == "p/t net")
    return std::string();
  if (l_sType.find("symmetricnet") != std::string::npos) return "a symmetric net";
  if (l_sType.find("pt-hlpng") != std::string::npos)
    return "a place/transition net in high-level notation";
  if (l_sType.find("highlevelnet") != std::string::npos || l_sType.find("hlpn") != std::string::npos)
    return "a high-level net";
  if (l_sType.find("coloured") != std::string::npos || l_sType.find("colored") != std::string::npos)
    return "a coloured net";
  return "a net of another type";
}

const wxXmlNode* FirstChild(const wxXmlNode* p_pcNode, const std::string& p_sName) {
  for (const wxXmlNode* l_pcChild = p_pcNode->GetChildren(); l_pcChild;
       l_pcChild = l_pcChild->GetNext())
    if (l_pcChild->GetType() == wxXML_ELEMENT_NODE && LocalName(l_pcChild) == p_sName)
      return l_pcChild;
  return nullptr;
}

// Keeps the first message logged while it is installed, and shows none.
// The XML parser reports what is wrong (and where) only through wxLog.
class CaptureLog : public wxLog {
 public:
  const std::string& First() const { return m_sFirst; }

 protected:
  void DoLogRecord(wxLogLevel p_eLevel, const wxString& p_sMessage,
                   const wxLogRecordInfo& p_rInfo) override {
    (void)p_eLevel;
    (void)p_rInfo;
    if (m_sFirst.empty()) m_sFirst = ToUtf8(p_sMessage);
  }

 private:
  std::string m_sFirst;
};

// Installs a CaptureLog for the current thread for its lifetime. The main
// thread has no thread-specific target, so there the process-wide target is
// swapped briefly (messages of other threads are queued meanwhile, not
// delivered to it).
class ScopedCapture {
 public:
  ScopedCapture() : m_bMain(wxThread::IsMain()) {
    m_pcPrevious = m_bMain ? wxLog::SetActiveTarget(&m_cLog) : wxLog::SetThreadActiveTarget(&m_cLog);
  }
  ~ScopedCapture() {
    if (m_bMain)
      wxLog::SetActiveTarget(m_pcPrevious);
    else
      wxLog::SetThreadActiveTarget(m_pcPrevious);
  }
  ScopedCapture(const ScopedCapture&) = delete;
  ScopedCapture& operator=(const ScopedCapture&) = delete;
  const std::string& First() const { return m_cLog.First(); }

 private:
  bool m_bMain;
  CaptureLog m_cLog;
  wxLog* m_pcPrevious = nullptr;
};

// What an id stands for.
enum class NodeKind { Net, Page, Place, Transition, Arc, ReferencePlace, ReferenceTransition };

struct IdEntry {
  NodeKind kind;
  std::size_t index;  // position of the place/transition; for references: in m_acReferences
  int line;
};

struct Reference {
  std::string id;
  std::string target;
  bool place;
  int line;
};

struct PendingArc {
  std::string id;
  std::string source;
  std::string target;
  double weight;
  int line;
};

class Reader {
 public:
  explicit Reader(const std::string& p_sSource) : m_sSource(p_sSource) {}

  PnmlLoadResult Read(const std::string& p_sDocument);

 private:
  bool Fail(const wxXmlNode* p_pcNode, const std::string& p_sMessage) {
    return FailAt(p_pcNode ? p_pcNode->GetLineNumber() : 0, p_sMessage);
  }
  bool FailAt(long p_nLine, const std::string& p_sMessage) {
    if (m_sError.empty()) m_sError = LoadError(m_sSource, p_nLine, p_sMessage);
    return false;
  }

  bool Register(const wxXmlNode* p_pcNode, const std::string& p_sId, NodeKind p_eKind,
                std::size_t p_nIndex, const std::string& p_sWhat);
  bool RequireId(const wxXmlNode* p_pcNode, const std::string& p_sWhat, std::string& p_rsId);
  std::string ReadName(const wxXmlNode* p_pcNode, const std::string& p_sFallback);
  bool ReadNumberText(const wxXmlNode* p_pcLabel, const std::string& p_sOwner,
                      const std::string& p_sWhat, double& p_rdValue);

  bool ReadNet(const wxXmlNode* p_pcNet);
  bool ReadContainer(const wxXmlNode* p_pcContainer);
  bool ReadPlace(const wxXmlNode* p_pcNode);
  bool ReadTransition(const wxXmlNode* p_pcNode);
  bool ReadArc(const wxXmlNode* p_pcNode);
  bool ReadReference(const wxXmlNode* p_pcNode, bool p_bPlace);
  bool IsOurToolData(const wxXmlNode* p_pcNode, const std::string& p_sOwner, bool& p_rbOurs);
  bool ReadNetToolData(const wxXmlNode* p_pcNode);
  bool ReadTransitionToolData(const wxXmlNode* p_pcNode, Transition& p_rTransition,
                              bool& p_rbRateSeen);
  bool ResolveNode(const std::string& p_sId, const PendingArc& p_rArc, const char* p_sEnd,
                   bool& p_rbPlace, std::size_t& p_rnIndex);
  bool ResolveArcs();
  bool CheckFunctions();

  std::string m_sSource;
  std::string m_sError;
  Net m_cNet;
  std::map<std::string, IdEntry> m_cIds;
  std::vector<Reference> m_acReferences;
  std::vector<PendingArc> m_acArcs;
  std::vector<int> m_anParameterLines;
  std::vector<int> m_anTransitionLines;
  bool m_bGridSeen = false;
};

bool Reader::Register(const wxXmlNode* p_pcNode, const std::string& p_sId, NodeKind p_eKind,
                      std::size_t p_nIndex, const std::string& p_sWhat) {
  std::map<std::string, IdEntry>::const_iterator l_it = m_cIds.find(p_sId);
  if (l_it != m_cIds.end())
    return Fail(p_pcNode, "duplicate id '" + p_sId + "': " + p_sWhat + " uses the id of an element on line " +
                              std::to_string(l_it->second.line));
  m_cIds[p_sId] = IdEntry{p_eKind, p_nIndex, p_pcNode->GetLineNumber()};
  return true;
}

bool Reader::RequireId(const wxXmlNode* p_pcNode, const std::string& p_sWhat,
                       std::string& p_rsId) {
  p_rsId = Attribute(p_pcNode, "id");
  if (p_rsId.empty()) return Fail(p_pcNode, "a " + p_sWhat + " has no id");
  return true;
}

// The text of a label: <text> as the standard says, or <value> as some
// editors (PIPE) write.
const wxXmlNode* LabelText(const wxXmlNode* p_pcLabel) {
  const wxXmlNode* l_pcText = FirstChild(p_pcLabel, "text");
  return l_pcText ? l_pcText : FirstChild(p_pcLabel, "value");
}

std::string Reader::ReadName(const wxXmlNode* p_pcNode, const std::string& p_sFallback) {
  const wxXmlNode* l_pcName = FirstChild(p_pcNode, "name");
  if (!l_pcName) return p_sFallback;
  const wxXmlNode* l_pcText = LabelText(l_pcName);
  if (!l_pcText) return p_sFallback;
  std::string l_sName = Trim(ToUtf8(l_pcText->GetNodeContent()));
  return l_sName.empty() ? p_sFallback : l_sName;
}

// A PNML label such as <initialMarking><text>5</text></initialMarking>:
// "<p_sOwner> has the <p_sWhat> ...".
bool Reader::ReadNumberText(const wxXmlNode* p_pcLabel, const std::string& p_sOwner,
                            const std::string& p_sWhat, double& p_rdValue) {
  const wxXmlNode* l_pcText = LabelText(p_pcLabel);
  if (!l_pcText) return Fail(p_pcLabel, "the " + p_sWhat + " of " + p_sOwner + " has no <text>");
  std::string l_sText = Trim(ToUtf8(l_pcText->GetNodeContent()));
  if (LocalName(l_pcText) == "value") {
    // PIPE writes token classes and counts: "Default,3". One class is a
    // number of tokens; more make a coloured net.
    std::vector<std::string> l_asParts;
    std::size_t l_nStart = 0;
    for (;;) {
      const std::size_t l_nComma = l_sText.find(',', l_nStart);
      l_asParts.push_back(Trim(l_sText.substr(l_nStart, l_nComma - l_nStart)));
      if (l_nComma == std::string::npos) break;
      l_nStart = l_nComma + 1;
    }
    if (l_asParts.size() > 2)
      return Fail(l_pcText, p_sOwner + " has the " + p_sWhat + " '" + l_sText +
                                "' with tokens of several classes (a coloured net); only "
                                "place/transition nets are supported");
    l_sText = l_asParts.back();
  }
  double l_dValue = 0.0;
  if (!ParseDouble(l_sText, l_dValue))
    return Fail(l_pcText, p_sOwner + " has the " + p_sWhat + " '" + l_sText +
                              "', which is not a number");
  if (l_dValue < 0.0)
    return Fail(l_pcText, p_sOwner + " has the negative " + p_sWhat + " " + l_sText);
  p_rdValue = l_dValue;
  return true;
}

bool Reader::IsOurToolData(const wxXmlNode* p_pcNode, const std::string& p_sOwner,
                           bool& p_rbOurs) {
  p_rbOurs = Lower(Attribute(p_pcNode, "tool")) == kToolName;
  if (!p_rbOurs) return true;
  std::string l_sVersion = Attribute(p_pcNode, "version");
  if (HasAttribute(p_pcNode, "version") && Trim(l_sVersion) != kToolVersion)
    return Fail(p_pcNode, "the " + std::string(kToolName) + " tool data of " + p_sOwner +
                              " has version '" + l_sVersion + "'; only version " + kToolVersion +
                              " is supported");
  return true;
}

bool Reader::ReadNetToolData(const wxXmlNode* p_pcNode) {
  for (const wxXmlNode* l_pcChild = p_pcNode->GetChildren(); l_pcChild;
       l_pcChild = l_pcChild->GetNext()) {
    if (l_pcChild->GetType() != wxXML_ELEMENT_NODE) continue;
    std::string l_sElement = LocalName(l_pcChild);
    if (l_sElement == "parameter") {
      std::string l_sName = Trim(Attribute(l_pcChild, "name"));
      if (l_sName.empty()) return Fail(l_pcChild, "a <parameter> has no name");
      if (!HasAttribute(l_pcChild, "value"))
        return Fail(l_pcChild, "parameter '" + l_sName + "' has no value");
      std::string l_sValue = Attribute(l_pcChild, "value");
      double l_dValue = 0.0;
      if (!ParseDouble(l_sValue, l_dValue))
        return Fail(l_pcChild, "parameter '" + l_sName + "' has the value '" + l_sValue +
                                   "', which is not a number");
      if (l_dValue < 0.0)
        return Fail(l_pcChild, "parameter '" + l_sName + "' has the negative value " + l_sValue);
      std::size_t l_nOther = m_cNet.FindParameter(l_sName);
      if (l_nOther != kNoIndex)
        return Fail(l_pcChild, "parameter '" + l_sName + "' is defined twice (first on line " +
                                   std::to_string(m_anParameterLines[l_nOther]) + ")");
      m_cNet.AddParameter(l_sName, l_dValue);
      m_anParameterLines.push_back(l_pcChild->GetLineNumber());
    } else if (l_sElement == "interval") {
      if (m_bGridSeen) return Fail(l_pcChild, "the net has more than one <interval>");
      m_bGridSeen = true;
      const char* l_asKeys[3] = {"start", "end", "step"};
      double* l_apdValues[3] = {&m_cNet.grid.start, &m_cNet.grid.end, &m_cNet.grid.step};
      for (int i = 0; i < 3; ++i) {
        if (!HasAttribute(l_pcChild, l_asKeys[i]))
          return Fail(l_pcChild, std::string("the <interval> has no ") + l_asKeys[i]);
        std::string l_sValue = Attribute(l_pcChild, l_asKeys[i]);
        if (!ParseDouble(l_sValue, *l_apdValues[i]))
          return Fail(l_pcChild, std::string("the <interval> ") + l_asKeys[i] + " '" + l_sValue +
                                     "' is not a number");
      }
      std::string l_sProblem = m_cNet.grid.Check();
      if (!l_sProblem.empty()) return Fail(l_pcChild, l_sProblem);
    } else {
      return Fail(l_pcChild, "unknown element <" + l_sElement + "> in the " + kToolName +
                                 " tool data of the net (expected <parameter> or <interval>)");
    }
  }
  return true;
}

bool Reader::ReadTransitionToolData(const wxXmlNode* p_pcNode, Transition& p_rTransition,
                                    bool& p_rbRateSeen) {
  const std::string l_sWho = "transition '" + p_rTransition.id + "'";
  for (const wxXmlNode* l_pcChild = p_pcNode->GetChildren(); l_pcChild;
       l_pcChild = l_pcChild->GetNext()) {
    if (l_pcChild->GetType() != wxXML_ELEMENT_NODE) continue;
    std::string l_sElement = LocalName(l_pcChild);
    if (l_sElement != "rate")
      return Fail(l_pcChild, "unknown element <" + l_sElement + "> in the " + kToolName +
                                 " tool data of " + l_sWho + " (expected <rate>)");
    if (p_rbRateSeen) return Fail(l_pcChild, l_sWho + " has more than one <rate>");
    p_rbRateSeen = true;
    const bool l_bValue = HasAttribute(l_pcChild, "value");
    const bool l_bParameter = HasAttribute(l_pcChild, "parameter");
    const bool l_bFunction = HasAttribute(l_pcChild, "function");
    if (int(l_bValue) + int(l_bParameter) + int(l_bFunction) != 1)
      return Fail(l_pcChild, "the <rate> of " + l_sWho +
                                 " needs exactly one of the attributes value, parameter and function");
    if (l_bFunction) {
      // Read as a model's "TRANSITION_FUNCTIONS" entry: a number or a
      // parameter name alone still means mass action. The parameters of the
      // net are known by now (the net's tool data is read first).
      m_cNet.SetRate(p_rTransition, Attribute(l_pcChild, "function"));
    } else if (l_bValue) {
      std::string l_sValue = Attribute(l_pcChild, "value");
      double l_dValue = 0.0;
      if (!ParseDouble(l_sValue, l_dValue))
        return Fail(l_pcChild, l_sWho + " has the rate '" + l_sValue + "', which is not a number");
      if (l_dValue < 0.0) return Fail(l_pcChild, l_sWho + " has the negative rate " + l_sValue);
      p_rTransition.rateKind = RateKind::Constant;
      p_rTransition.rateValue = l_dValue;
    } else {
      std::string l_sName = Trim(Attribute(l_pcChild, "parameter"));
      if (l_sName.empty()) return Fail(l_pcChild, "the <rate> of " + l_sWho + " names no parameter");
      p_rTransition.rateKind = RateKind::Parameter;
      p_rTransition.parameterName = l_sName;
    }
  }
  return true;
}

bool Reader::ReadPlace(const wxXmlNode* p_pcNode) {
  std::string l_sId;
  if (!RequireId(p_pcNode, "place", l_sId)) return false;
  if (!Register(p_pcNode, l_sId, NodeKind::Place, m_cNet.places.size(), "place '" + l_sId + "'"))
    return false;
  Place l_cPlace;
  l_cPlace.id = l_sId;
  l_cPlace.name = ReadName(p_pcNode, l_sId);
  if (const wxXmlNode* l_pcMarking = FirstChild(p_pcNode, "initialMarking")) {
    if (!ReadNumberText(l_pcMarking, "place '" + l_sId + "'", "initial marking",
                        l_cPlace.initialMarking))
      return false;
  }
  // A capacity (PIPE writes one, 0 meaning none) would bound the marking.
  if (const wxXmlNode* l_pcCapacity = FirstChild(p_pcNode, "capacity")) {
    double l_dCapacity = 0.0;
    if (!ReadNumberText(l_pcCapacity, "place '" + l_sId + "'", "capacity", l_dCapacity))
      return false;
    if (l_dCapacity != 0.0)
      return Fail(l_pcCapacity, "place '" + l_sId + "' has the capacity " +
                                    FormatDouble(l_dCapacity) +
                                    ", which the engine cannot honour (places are unbounded)");
  }
  m_cNet.places.push_back(l_cPlace);
  return true;
}

bool Reader::ReadTransition(const wxXmlNode* p_pcNode) {
  std::string l_sId;
  if (!RequireId(p_pcNode, "transition", l_sId)) return false;
  if (!Register(p_pcNode, l_sId, NodeKind::Transition, m_cNet.transitions.size(),
                "transition '" + l_sId + "'"))
    return false;
  Transition l_cTransition;
  l_cTransition.id = l_sId;
  l_cTransition.name = ReadName(p_pcNode, l_sId);
  bool l_bRateSeen = false;
  for (const wxXmlNode* l_pcChild = p_pcNode->GetChildren(); l_pcChild;
       l_pcChild = l_pcChild->GetNext()) {
    if (l_pcChild->GetType() != wxXML_ELEMENT_NODE || LocalName(l_pcChild) != "toolspecific")
      continue;
    bool l_bOurs = false;
    if (!IsOurToolData(l_pcChild, "transition '" + l_sId + "'", l_bOurs)) return false;
    if (l_bOurs && !ReadTransitionToolData(l_pcChild, l_cTransition, l_bRateSeen)) return false;
  }
  m_cNet.transitions.push_back(l_cTransition);
  m_anTransitionLines.push_back(p_pcNode->GetLineNumber());
  return true;
}

bool Reader::ReadArc(const wxXmlNode* p_pcNode) {
  std::string l_sId;
  if (!RequireId(p_pcNode, "arc", l_sId)) return false;
  if (!Register(p_pcNode, l_sId, NodeKind::Arc, m_acArcs.size(), "arc '" + l_sId + "'"))
    return false;
  PendingArc l_cArc;
  l_cArc.id = l_sId;
  l_cArc.source = Attribute(p_pcNode, "source");
  l_cArc.target = Attribute(p_pcNode, "target");
  l_cArc.weight = 1.0;
  l_cArc.line = p_pcNode->GetLineNumber();
  if (l_cArc.source.empty()) return Fail(p_pcNode, "arc '" + l_sId + "' has no source");
  if (l_cArc.target.empty()) return Fail(p_pcNode, "arc '" + l_sId + "' has no target");
  if (const wxXmlNode* l_pcInscription = FirstChild(p_pcNode, "inscription")) {
    if (!ReadNumberText(l_pcInscription, "arc '" + l_sId + "'", "weight", l_cArc.weight))
      return false;
  }
  // PIPE marks inhibitor (and other) arcs with <type value="...">.
  if (const wxXmlNode* l_pcType = FirstChild(p_pcNode, "type")) {
    const std::string l_sType = Trim(Attribute(l_pcType, "value"));
    if (!l_sType.empty() && Lower(l_sType) != "normal")
      return Fail(l_pcType, "arc '" + l_sId + "' is of the type '" + l_sType +
                                "'; only standard arcs are supported");
  }
  m_acArcs.push_back(l_cArc);
  return true;
}

bool Reader::ReadReference(const wxXmlNode* p_pcNode, bool p_bPlace) {
  const std::string l_sWhat = p_bPlace ? "referencePlace" : "referenceTransition";
  std::string l_sId;
  if (!RequireId(p_pcNode, l_sWhat, l_sId)) return false;
  if (!Register(p_pcNode, l_sId, p_bPlace ? NodeKind::ReferencePlace : NodeKind::ReferenceTransition,
                m_acReferences.size(), l_sWhat + " '" + l_sId + "'"))
    return false;
  std::string l_sTarget = Attribute(p_pcNode, "ref");
  if (l_sTarget.empty()) return Fail(p_pcNode, l_sWhat + " '" + l_sId + "' has no ref");
  m_acReferences.push_back(Reference{l_sId, l_sTarget, p_bPlace, p_pcNode->GetLineNumber()});
  return true;
}

// The elements of a net or a page, pages within pages included.
bool Reader::ReadContainer(const wxXmlNode* p_pcContainer) {
  for (const wxXmlNode* l_pcChild = p_pcContainer->GetChildren(); l_pcChild;
       l_pcChild = l_pcChild->GetNext()) {
    if (l_pcChild->GetType() != wxXML_ELEMENT_NODE) continue;
    std::string l_sElement = LocalName(l_pcChild);
    bool l_bOk = true;
    if (l_sElement == "page") {
      std::string l_sId;
      l_bOk = RequireId(l_pcChild, "page", l_sId) &&
              Register(l_pcChild, l_sId, NodeKind::Page, 0, "page '" + l_sId + "'") &&
              ReadContainer(l_pcChild);
    } else if (l_sElement == "place") {
      l_bOk = ReadPlace(l_pcChild);
    } else if (l_sElement == "transition") {
      l_bOk = ReadTransition(l_pcChild);
    } else if (l_sElement == "arc") {
      l_bOk = ReadArc(l_pcChild);
    } else if (l_sElement == "referencePlace") {
      l_bOk = ReadReference(l_pcChild, true);
    } else if (l_sElement == "referenceTransition") {
      l_bOk = ReadReference(l_pcChild, false);
    }
    // name, graphics, toolspecific of pages and labels of other tools: not
    // needed for simulation.
    if (!l_bOk) return false;
  }
  return true;
}

// Follows reference nodes to the place or transition that p_sId stands for.
bool Reader::ResolveNode(const std::string& p_sId, const PendingArc& p_rArc, const char* p_sEnd,
                         bool& p_rbPlace, std::size_t& p_rnIndex) {
  std::string l_sId = p_sId;
  std::set<std::string> l_cVisited;
  const std::string l_sArc = "arc '" + p_rArc.id + "'";
  auto l_Fail = [&](const std::string& p_sMessage) { return FailAt(p_rArc.line, p_sMessage); };
  for (;;) {
    std::map<std::string, IdEntry>::const_iterator l_it = m_cIds.find(l_sId);
    if (l_it == m_cIds.end()) {
      if (l_sId == p_sId)
        return l_Fail(l_sArc + " has the " + p_sEnd + " '" + p_sId + "', which is no node of the net");
      return l_Fail(l_sArc + " has the " + p_sEnd + " '" + p_sId + "', a reference to the unknown node '" +
                    l_sId + "'");
    }
    const IdEntry& l_rEntry = l_it->second;
    switch (l_rEntry.kind) {
      case NodeKind::Place:
      case NodeKind::Transition:
        p_rbPlace = l_rEntry.kind == NodeKind::Place;
        p_rnIndex = l_rEntry.index;
        return true;
      case NodeKind::ReferencePlace:
      case NodeKind::ReferenceTransition: {
        if (!l_cVisited.insert(l_sId).second)
          return l_Fail("the reference '" + l_sId + "' (" + p_sEnd + " of " + l_sArc +
                        ") refers to itself in a cycle");
        const Reference& l_rReference = m_acReferences[l_rEntry.index];
        std::map<std::string, IdEntry>::const_iterator l_itTarget = m_cIds.find(l_rReference.target);
        if (l_itTarget != m_cIds.end()) {
          NodeKind l_eTarget = l_itTarget->second.kind;
          bool l_bTargetPlace = l_eTarget == NodeKind::Place || l_eTarget == NodeKind::ReferencePlace;
          bool l_bTargetTransition =
              l_eTarget == NodeKind::Transition || l_eTarget == NodeKind::ReferenceTransition;
          if ((l_rReference.place && !l_bTargetPlace) ||
              (!l_rReference.place && !l_bTargetTransition))
            return l_Fail("the reference '" + l_sId + "' (" + p_sEnd + " of " + l_sArc +
                          ") refers to '" + l_rReference.target + "', which is not a " +
                          (l_rReference.place ? "place" : "transition"));
        }
        l_sId = l_rReference.target;
        break;
      }
      default:
        return l_Fail(l_sArc + " has the " + p_sEnd + " '" + p_sId +
                      "', which is not a place or a transition");
    }
  }
}

bool Reader::ResolveArcs() {
  for (const PendingArc& l_rPending : m_acArcs) {
    bool l_bSourcePlace = false, l_bTargetPlace = false;
    std::size_t l_nSource = kNoIndex, l_nTarget = kNoIndex;
    if (!ResolveNode(l_rPending.source, l_rPending, "source", l_bSourcePlace, l_nSource) ||
        !ResolveNode(l_rPending.target, l_rPending, "target", l_bTargetPlace, l_nTarget))
      return false;
    if (l_bSourcePlace == l_bTargetPlace)
      return FailAt(l_rPending.line, "arc '" + l_rPending.id + "' joins two " +
                                         (l_bSourcePlace ? "places" : "transitions") + " ('" +
                                         l_rPending.source + "' and '" + l_rPending.target +
                                         "'); an arc must join a place and a transition");
    Arc l_cArc;
    l_cArc.id = l_rPending.id;
    l_cArc.input = l_bSourcePlace;
    l_cArc.place = l_bSourcePlace ? l_nSource : l_nTarget;
    l_cArc.transition = l_bSourcePlace ? l_nTarget : l_nSource;
    l_cArc.weight = l_rPending.weight;
    m_cNet.arcs.push_back(l_cArc);
  }
  return true;
}

// Rate functions compile and give a usable rate in the initial state;
// else the error names the transition's line.
bool Reader::CheckFunctions() {
  std::unique_ptr<RateSymbols> l_pcSymbols;
  NetState l_cInitial;
  for (std::size_t i = 0; i < m_cNet.transitions.size(); ++i) {
    const Transition& l_rTransition = m_cNet.transitions[i];
    if (l_rTransition.rateKind != RateKind::Function) continue;
    if (!l_pcSymbols) {
      l_pcSymbols.reset(new RateSymbols(m_cNet));
      l_cInitial = m_cNet.InitialState();
    }
    std::string l_sProblem;
    std::unique_ptr<RateFunction> l_pcFunction =
        CompileTransitionRate(l_rTransition, *l_pcSymbols, &l_sProblem);
    if (l_pcFunction) {
      const double l_dRate = l_pcFunction->Evaluate(l_cInitial.marking.data(),
                                                    l_cInitial.parameters.data(), l_cInitial.time);
      if (!(std::isfinite(l_dRate) && l_dRate >= 0.0))
        l_sProblem = l_rTransition.Describe() + ": the rate function '" + l_rTransition.function +
                     "' gives " + FormatDouble(l_dRate) +
                     " in the initial state (a rate must be a finite number >= 0)";
    }
    if (!l_sProblem.empty()) return FailAt(m_anTransitionLines[i], l_sProblem);
  }
  return true;
}

bool Reader::ReadNet(const wxXmlNode* p_pcNet) {
  std::string l_sId;
  if (!RequireId(p_pcNet, "net", l_sId)) return false;
  if (!Register(p_pcNet, l_sId, NodeKind::Net, 0, "the net")) return false;
  m_cNet.id = l_sId;
  m_cNet.name = ReadName(p_pcNet, l_sId);
  if (HasAttribute(p_pcNet, "type")) {
    const std::string l_sType = Trim(Attribute(p_pcNet, "type"));
    const std::string l_sKind = NetTypeName(l_sType);
    if (!l_sKind.empty())
      return Fail(p_pcNet, "net '" + l_sId + "' is " + l_sKind + " (type '" + l_sType +
                               "'); only place/transition nets "
                               "(http://www.pnml.org/version-2009/grammar/ptnet) are supported");
  }
  for (const wxXmlNode* l_pcChild = p_pcNet->GetChildren(); l_pcChild;
       l_pcChild = l_pcChild->GetNext()) {
    if (l_pcChild->GetType() != wxXML_ELEMENT_NODE || LocalName(l_pcChild) != "toolspecific")
      continue;
    bool l_bOurs = false;
    if (!IsOurToolData(l_pcChild, "the net", l_bOurs)) return false;
    if (l_bOurs && !ReadNetToolData(l_pcChild)) return false;
  }
  if (!ReadContainer(p_pcNet)) return false;
  for (std::size_t i = 0; i < m_cNet.transitions.size(); ++i) {
    const Transition& l_rTransition = m_cNet.transitions[i];
    if (l_rTransition.rateKind == RateKind::Parameter &&
        m_cNet.FindParameter(l_rTransition.parameterName) == kNoIndex)
      return FailAt(m_anTransitionLines[i], "transition '" + l_rTransition.id +
                                                "' refers to the unknown parameter '" +
                                                l_rTransition.parameterName + "'");
  }
  if (!ResolveArcs()) return false;
  if (!CheckFunctions()) return false;
  std::string l_sProblem = m_cNet.Validate();
  if (!l_sProblem.empty()) return Fail(nullptr, l_sProblem);
  return true;
}

PnmlLoadResult Reader::Read(const std::string& p_sDocument) {
  PnmlLoadResult l_cResult;
  std::string l_sStart = Trim(p_sDocument.substr(0, 4096));
  if (l_sStart.empty()) {
    l_cResult.error = m_sSource + ": the file is empty";
    return l_cResult;
  }
  std::size_t l_nFirst = l_sStart.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  if (l_sStart.size() <= l_nFirst || l_sStart[l_nFirst] != '<') {
    l_cResult.error = m_sSource + ": not an XML document (it does not start with '<')";
    return l_cResult;
  }
  wxXmlDocument l_cDocument;
  {
    ScopedCapture l_cCapture;
    wxMemoryInputStream l_cStream(p_sDocument.data(), p_sDocument.size());
    if (!l_cDocument.Load(l_cStream) || !l_cDocument.GetRoot()) {
      l_cResult.error = m_sSource + ": not a well-formed XML document";
      if (!l_cCapture.First().empty()) l_cResult.error += " (" + l_cCapture.First() + ")";
      return l_cResult;
    }
  }
  const wxXmlNode* l_pcRoot = l_cDocument.GetRoot();
  if (LocalName(l_pcRoot) != "pnml") {
    l_cResult.error = m_sSource + ": not a PNML document (the root element is <" +
                      ToUtf8(l_pcRoot->GetName()) + ">, not <pnml>)";
    return l_cResult;
  }
  std::vector<const wxXmlNode*> l_apcNets;
  for (const wxXmlNode* l_pcChild = l_pcRoot->GetChildren(); l_pcChild;
       l_pcChild = l_pcChild->GetNext())
    if (l_pcChild->GetType() == wxXML_ELEMENT_NODE && LocalName(l_pcChild) == "net")
      l_apcNets.push_back(l_pcChild);
  if (l_apcNets.empty()) {
    l_cResult.error = m_sSource + ": the document contains no <net>";
    return l_cResult;
  }
  if (l_apcNets.size() > 1) {
    Fail(l_apcNets[1], "the document contains " + std::to_string(l_apcNets.size()) +
                           " nets; only one net per file is supported");
    l_cResult.error = m_sError;
    return l_cResult;
  }
  m_cNet.source = m_sSource;
  if (!ReadNet(l_apcNets.front())) {
    l_cResult.error = m_sError;
    return l_cResult;
  }
  l_cResult.ok = true;
  l_cResult.net = std::move(m_cNet);
  return l_cResult;
}

}  // namespace

PnmlLoadResult LoadPnmlText(const std::string& p_sDocument, const std::string& p_sSourceName) {
  Reader l_cReader(p_sSourceName);
  return l_cReader.Read(p_sDocument);
}

PnmlLoadResult LoadPnmlFile(const std::string& p_sPath) { return LoadFileWith(p_sPath, LoadPnmlText); }

}  // namespace sim
}  // namespace quor
