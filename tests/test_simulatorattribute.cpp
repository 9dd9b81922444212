// SPDX-License-Identifier: MIT
// SimulatorAttribute: the settings list, its records and its message as the
// raw peer sees it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log_capture.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringvector.h"
#include "raw_peer.h"

using namespace quor;
using namespace quor_test;

namespace {

struct Setting {
  std::string m_sName;
  std::string m_sCaption;
  std::string m_sValue;
  uint32_t m_nGuiType;
  double m_dMin;
  double m_dMax;
  std::vector<std::string> m_asPossible;
};

const Setting g_cSpeed = {"speed", "Speed", "1.5", 2, 0.0, 10.0, {}};
const Setting g_cMode = {"mode", "Mode", "a", 3, -1.0, 1.0, {"a", "b"}};

// The parts of a string list as it is sent: total, count, lengths, data.
struct ListParts {
  uint32_t m_nTotal = 0;
  Bytes m_aLengths;
  Bytes m_aData;
};

ListParts Parts(const std::vector<std::string>& p_as) {
  ListParts l_c;
  for (const std::string& l_s : p_as) {
    l_c.m_nTotal += static_cast<uint32_t>(l_s.size());
    l_c.m_aLengths = Cat({l_c.m_aLengths, Le<int16_t>(static_cast<int16_t>(l_s.size()))});
    l_c.m_aData = Cat({l_c.m_aData, Text(l_s)});
  }
  return l_c;
}

Bytes SentText(const std::string& p_s) { return Cat({Le<uint64_t>(p_s.size()), Text(p_s)}); }

// One entry as it crosses the wire: its fields in the key order of their
// names (CAPTION, GUI_TYPE, MAX_VALUE, MIN_VALUE, NAME, POSSIBLE_VALUES,
// VALUE), each in its own frames.
Bytes EntryBytes(const Setting& p_c) {
  const ListParts l_cList = Parts(p_c.m_asPossible);
  return Cat({SentText(p_c.m_sCaption), Le(p_c.m_nGuiType), Le(p_c.m_dMax), Le(p_c.m_dMin),
              SentText(p_c.m_sName), Le(l_cList.m_nTotal),
              Le<uint64_t>(p_c.m_asPossible.size()), l_cList.m_aLengths, l_cList.m_aData,
              SentText(p_c.m_sValue)});
}

// Reads one entry frame by frame, acknowledging each.
void ReadEntry(RawPeer& p_cPeer) {
  p_cPeer.RecvString();
  p_cPeer.RecvValue<uint32_t>();
  p_cPeer.RecvValue<double>();
  p_cPeer.RecvValue<double>();
  p_cPeer.RecvString();
  const uint32_t l_nTotal = p_cPeer.RecvValue<uint32_t>();
  const uint64_t l_nCount = p_cPeer.RecvValue<uint64_t>();
  if (l_nCount != 0) p_cPeer.RecvFrame(static_cast<size_t>(2 * l_nCount));
  p_cPeer.RecvFrame(l_nTotal);
  p_cPeer.RecvString();
}

// Sends one entry frame by frame.
void WriteEntry(RawPeer& p_cPeer, const Setting& p_c) {
  const ListParts l_cList = Parts(p_c.m_asPossible);
  p_cPeer.SendString(p_c.m_sCaption);
  p_cPeer.SendValue(p_c.m_nGuiType);
  p_cPeer.SendValue(p_c.m_dMax);
  p_cPeer.SendValue(p_c.m_dMin);
  p_cPeer.SendString(p_c.m_sName);
  p_cPeer.SendValue(l_cList.m_nTotal);
  p_cPeer.SendValue<uint64_t>(p_c.m_asPossible.size());
  if (!p_c.m_asPossible.empty()) p_cPeer.SendFrame(l_cList.m_aLengths);
  p_cPeer.SendFrame(l_cList.m_aData);
  p_cPeer.SendString(p_c.m_sValue);
}

void Add(SimulatorAttribute& p_cList, const Setting& p_c) {
  ASSERT_TRUE(p_cList.AddAttribute(wxString::FromUTF8(p_c.m_sName.c_str()),
                                   wxString::FromUTF8(p_c.m_sCaption.c_str()),
                                   wxString::FromUTF8(p_c.m_sValue.c_str()), p_c.m_nGuiType,
                                   p_c.m_dMin, p_c.m_dMax));
  std::vector<wxString> l_asPossible;
  for (const std::string& l_s : p_c.m_asPossible)
    l_asPossible.push_back(wxString::FromUTF8(l_s.c_str()));
  if (!l_asPossible.empty()) p_cList.SetPossibleValues(p_cList.size() - 1, l_asPossible);
}

// The out-parameters of GetAttribute, preset to values no entry holds.
struct Outputs {
  wxString m_sName = wxT("n");
  wxString m_sCaption = wxT("c");
  wxString m_sValue = wxT("v");
  unsigned int m_nGuiType = 77;
  double m_dMin = 1.0;
  double m_dMax = 2.0;

  bool Get(SimulatorAttribute& p_cList, unsigned int p_nIndex) {
    return p_cList.GetAttribute(p_nIndex, m_sName, m_sCaption, m_sValue, m_nGuiType, m_dMin,
                                m_dMax);
  }
  bool Update(SimulatorAttribute& p_cList, unsigned int p_nIndex) {
    return p_cList.UpdateAttribute(p_nIndex, m_sName, m_sCaption, m_sValue, m_nGuiType,
                                   m_dMin, m_dMax);
  }
  bool operator==(const Outputs& o) const {
    return m_sName == o.m_sName && m_sCaption == o.m_sCaption && m_sValue == o.m_sValue &&
           m_nGuiType == o.m_nGuiType && m_dMin == o.m_dMin && m_dMax == o.m_dMax;
  }
};

void ExpectEntry(SimulatorAttribute& p_cList, unsigned int p_nIndex, const Setting& p_c) {
  Outputs l_cOut;
  ASSERT_TRUE(l_cOut.Get(p_cList, p_nIndex));
  EXPECT_EQ(std::string(l_cOut.m_sName.utf8_str()), p_c.m_sName);
  EXPECT_EQ(std::string(l_cOut.m_sCaption.utf8_str()), p_c.m_sCaption);
  EXPECT_EQ(std::string(l_cOut.m_sValue.utf8_str()), p_c.m_sValue);
  EXPECT_EQ(l_cOut.m_nGuiType, p_c.m_nGuiType);
  EXPECT_EQ(l_cOut.m_dMin, p_c.m_dMin);
  EXPECT_EQ(l_cOut.m_dMax, p_c.m_dMax);
  std::vector<std::string> l_asPossible;
  for (const wxString& l_s : p_cList.GetPossibleValues(p_nIndex))
    l_asPossible.push_back(std::string(l_s.utf8_str()));
  EXPECT_EQ(l_asPossible, p_c.m_asPossible);
}

// A settings list and a connection whose other end is the raw peer.
class SimulatorAttributeWire : public ::testing::Test {
 protected:
  LoopbackPair m_cPair;
  SteeringVector m_cLink{m_cPair.Socket()};
  SimulatorAttribute m_cList;
};

bool HasReport(const ReportCapture& p_cReports, const std::string& p_sText) {
  for (const std::string& l_s : p_cReports.Reports())
    if (l_s.find(p_sText) != std::string::npos) return true;
  return false;
}

}  // namespace

TEST_F(SimulatorAttributeWire, AnEmptyListSendsOnlyTheCountZero) {
  m_cPair.Run([](RawPeer& p_cPeer) { p_cPeer.RecvValue<uint32_t>(); });
  EXPECT_EQ(m_cList.SendAttributes(&m_cLink), 1u);
  m_cPair.Join();
  EXPECT_EQ(ToHex(m_cPair.Peer().Received()), "00 00 00 00");
  EXPECT_EQ(ToHex(m_cPair.Peer().Sent()), "61");
}

TEST_F(SimulatorAttributeWire, ReceivingTheCountZeroLeavesAnEmptyList) {
  Add(m_cList, g_cSpeed);
  m_cPair.Run([](RawPeer& p_cPeer) { p_cPeer.SendValue<uint32_t>(0); });
  EXPECT_EQ(m_cList.ReceiveAttributes(&m_cLink), 1u);
  m_cPair.Join();
  EXPECT_EQ(m_cList.size(), 0u);
  EXPECT_EQ(ToHex(m_cPair.Peer().Received()), "61");
}

TEST_F(SimulatorAttributeWire, TwoSettingsGoOutFieldByFieldInKeyOrder) {
  Add(m_cList, g_cSpeed);
  Add(m_cList, g_cMode);
  m_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.RecvValue<uint32_t>();
    ReadEntry(p_cPeer);
    ReadEntry(p_cPeer);
  });
  EXPECT_EQ(m_cList.SendAttributes(&m_cLink), 1u);
  m_cPair.Join();
  EXPECT_EQ(ToHex(m_cPair.Peer().Received()),
            ToHex(Cat({Le<uint32_t>(2), EntryBytes(g_cSpeed), EntryBytes(g_cMode)})));
  // Spot check of the second entry's string list: total 2, count 2, lengths
  // 1 and 1, data "ab".
  EXPECT_NE(ToHex(m_cPair.Peer().Received())
                .find("02 00 00 00 02 00 00 00 00 00 00 00 01 00 01 00 61 62"),
            std::string::npos);
  EXPECT_FALSE(m_cPair.Peer().Failed());
}

TEST_F(SimulatorAttributeWire, TwoSettingsArriveInOrderWithTheirPossibleValues) {
  m_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint32_t>(2);
    WriteEntry(p_cPeer, g_cSpeed);
    WriteEntry(p_cPeer, g_cMode);
  });
  EXPECT_EQ(m_cList.ReceiveAttributes(&m_cLink), 1u);
  m_cPair.Join();
  ASSERT_EQ(m_cList.size(), 2u);
  ExpectEntry(m_cList, 0, g_cSpeed);
  ExpectEntry(m_cList, 1, g_cMode);
  EXPECT_FALSE(m_cPair.Peer().Failed());
}

TEST(SimulatorAttribute, AReceiveThatFailsOnTheThirdOfFiveKeepsTwoEntries) {
  // What the transport reports for a read on a connection that the peer
  // closed; the list must pass exactly that up.
  unsigned int l_nClosedResult = 0;
  {
    LoopbackPair l_cPair;
    SteeringBase l_cLink(l_cPair.Socket());
    l_cPair.Peer().Close();
    unsigned int l_nValue = 0;
    l_nClosedResult = l_cLink.ReceiveValue(&l_nValue, sizeof(l_nValue));
  }
  ASSERT_NE(l_nClosedResult, 1u);

  LoopbackPair l_cPair;
  SteeringVector l_cLink(l_cPair.Socket());
  SimulatorAttribute l_cList;
  l_cPair.Run([](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint32_t>(5);
    WriteEntry(p_cPeer, g_cSpeed);
    WriteEntry(p_cPeer, g_cMode);
    p_cPeer.SendString("Third");  // its caption, and then nothing more
    p_cPeer.Close();
  });
  EXPECT_EQ(l_cList.ReceiveAttributes(&l_cLink), l_nClosedResult);
  l_cPair.Join();
  ASSERT_EQ(l_cList.size(), 2u);
  ExpectEntry(l_cList, 0, g_cSpeed);
  ExpectEntry(l_cList, 1, g_cMode);
}

TEST(SimulatorAttribute, AddThenGetReturnsTheSixValues) {
  SimulatorAttribute l_cList;
  Add(l_cList, g_cMode);
  ASSERT_TRUE(l_cList.AddAttribute(wxT("speed"), wxT("Speed"), wxT("1.5"), 2, 0.0, 10.0));
  ASSERT_EQ(l_cList.size(), 2u);
  ExpectEntry(l_cList, static_cast<unsigned int>(l_cList.size() - 1), g_cSpeed);
  EXPECT_TRUE(l_cList.GetPossibleValues(1).empty());
}

TEST(SimulatorAttribute, DuplicateNamesAreAppended) {
  SimulatorAttribute l_cList;
  Add(l_cList, g_cSpeed);
  Add(l_cList, g_cSpeed);
  ASSERT_EQ(l_cList.size(), 2u);
  ExpectEntry(l_cList, 0, g_cSpeed);
  ExpectEntry(l_cList, 1, g_cSpeed);
}

TEST(SimulatorAttribute, UpdateChangesTheSixFieldsAndKeepsThePossibleValues) {
  SimulatorAttribute l_cList;
  Add(l_cList, g_cSpeed);
  Add(l_cList, g_cMode);
  Outputs l_cNew;
  l_cNew.m_sName = wxT("algo");
  l_cNew.m_sCaption = wxT("Algorithm");
  l_cNew.m_sValue = wxT("b");
  l_cNew.m_nGuiType = 4;
  l_cNew.m_dMin = 2.5;
  l_cNew.m_dMax = 7.5;
  ASSERT_TRUE(l_cNew.Update(l_cList, 1));
  ExpectEntry(l_cList, 1, {"algo", "Algorithm", "b", 4, 2.5, 7.5, {"a", "b"}});
  ExpectEntry(l_cList, 0, g_cSpeed);
}

TEST(SimulatorAttribute, ClearEmptiesTheListAndThePrototypeStaysUsable) {
  SimulatorAttribute l_cList;
  Add(l_cList, g_cSpeed);
  Add(l_cList, g_cMode);
  l_cList.Clear();
  EXPECT_EQ(l_cList.size(), 0u);
  Add(l_cList, g_cSpeed);
  ASSERT_EQ(l_cList.size(), 1u);
  ExpectEntry(l_cList, 0, g_cSpeed);
}

TEST(SimulatorAttribute, AnIndexPastTheEndTakesTheNullPath) {
  SimulatorAttribute l_cList;
  Add(l_cList, g_cMode);
  ReportCapture l_cReports;

  Outputs l_cOut;
  EXPECT_FALSE(l_cOut.Get(l_cList, 1));
  EXPECT_TRUE(l_cOut == Outputs());  // untouched
  EXPECT_TRUE(HasReport(l_cReports, "l_pcAttribute is NULL, we return false"));
  EXPECT_TRUE(HasReport(l_cReports, "../source/helper/simulatorattribute.cpp"));

  EXPECT_FALSE(l_cOut.Update(l_cList, 1));
  EXPECT_FALSE(l_cOut.Get(l_cList, 0xFFFFFFFFu));
  EXPECT_TRUE(l_cOut == Outputs());
  l_cReports.Clear();
  l_cList.SetPossibleValues(1, {wxT("x")});
  EXPECT_TRUE(HasReport(l_cReports, "we return"));
  EXPECT_TRUE(l_cList.GetPossibleValues(1).empty());

  ASSERT_EQ(l_cList.size(), 1u);
  ExpectEntry(l_cList, 0, g_cMode);
}

TEST(SimulatorAttribute, NoConnectionFailsWithoutTouchingTheList) {
  SimulatorAttribute l_cList;
  Add(l_cList, g_cSpeed);
  EXPECT_EQ(l_cList.SendAttributes(NULL), FAILURE);
  EXPECT_EQ(l_cList.ReceiveAttributes(NULL), FAILURE);
  EXPECT_EQ(l_cList.size(), 1u);
}
