// SPDX-License-Identifier: MIT
// ModelRuntimeState: its seven settings and their message as the raw peer
// sees it.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "quor/modelruntimestate.h"
#include "raw_peer.h"

using namespace quor;
using namespace quor_test;

namespace {

Bytes Str(const std::string& p_s) {
  return Cat({Le<uint32_t>(static_cast<uint32_t>(p_s.size())), Text(p_s)});
}

void Fill(ModelRuntimeState& p_cState) {
  p_cState.SetAttributeValue(wxT("SIMULATOR_STATE"), 2);
  p_cState.SetAttributeValue(wxT("SIMULATOR_RUNTIME"), 12.5);
  p_cState.SetAttributeValue(wxT("SIMULATOR_PROGRESS"), 0.25);
  p_cState.SetAttributeValue(wxT("ERROR_STATE"), -3);
  p_cState.SetAttributeValue(wxT("SIMULATOR_CATEGORY"), wxString(wxT("stochastic")));
  p_cState.SetAttributeValue(wxT("CURRENT_SIMULATOR_ALGORITHM"), wxString(wxT("Gillespie")));
  p_cState.SetAttributeValue(wxT("SIMULATOR_SPEED"), 75);
}

// Fill's values, packed in the key order of their names.
Bytes FilledBody() {
  return Cat({Str("Gillespie"),     // CURRENT_SIMULATOR_ALGORITHM
              Le<int32_t>(-3),      // ERROR_STATE
              Str("stochastic"),    // SIMULATOR_CATEGORY
              Le(0.25),             // SIMULATOR_PROGRESS
              Le(12.5),             // SIMULATOR_RUNTIME
              Le<int32_t>(75),      // SIMULATOR_SPEED
              Le<int32_t>(2)});     // SIMULATOR_STATE
}

void ExpectFilled(ModelRuntimeState& p_cState) {
  EXPECT_EQ(p_cState.GetAttributeValueInt(wxT("SIMULATOR_STATE")), 2);
  EXPECT_EQ(p_cState.GetAttributeValueDouble(wxT("SIMULATOR_RUNTIME")), 12.5);
  EXPECT_EQ(p_cState.GetAttributeValueDouble(wxT("SIMULATOR_PROGRESS")), 0.25);
  EXPECT_EQ(p_cState.GetAttributeValueInt(wxT("ERROR_STATE")), -3);
  EXPECT_EQ(p_cState.GetAttributeValueString(wxT("SIMULATOR_CATEGORY")), wxT("stochastic"));
  EXPECT_EQ(p_cState.GetAttributeValueString(wxT("CURRENT_SIMULATOR_ALGORITHM")),
            wxT("Gillespie"));
  EXPECT_EQ(p_cState.GetAttributeValueInt(wxT("SIMULATOR_SPEED")), 75);
}

// Sends the total and the body as a peer would, into p_cState.
unsigned int ReceiveScripted(ModelRuntimeState& p_cState, const Bytes& p_aBody,
                             LoopbackPair& p_cPair) {
  p_cPair.Run([p_aBody](RawPeer& p_cPeer) {
    p_cPeer.SendValue<uint64_t>(p_aBody.size());
    p_cPeer.SendFrame(p_aBody);
  });
  const unsigned int l_nResult = p_cState.ReceiveAttributes(p_cPair.Socket());
  p_cPair.Join();
  return l_nResult;
}

}  // namespace

TEST(ModelRuntimeState, ANewStateHoldsTheSevenKeysWithTheirDefaults) {
  ModelRuntimeState l_cState;
  const std::vector<std::pair<std::string, unsigned int> > l_aExpected = {
      {"CURRENT_SIMULATOR_ALGORITHM", ATTRIBUTE_STRING}, {"ERROR_STATE", ATTRIBUTE_INT},
      {"SIMULATOR_CATEGORY", ATTRIBUTE_STRING},          {"SIMULATOR_PROGRESS", ATTRIBUTE_DOUBLE},
      {"SIMULATOR_RUNTIME", ATTRIBUTE_DOUBLE},           {"SIMULATOR_SPEED", ATTRIBUTE_INT},
      {"SIMULATOR_STATE", ATTRIBUTE_INT}};
  AttributeList* l_pcList = l_cState.GetAttributeList();
  ASSERT_EQ(l_pcList->size(), l_aExpected.size());
  auto l_itExpected = l_aExpected.begin();
  Bytes l_aPacked;
  for (auto& l_cEntry : *l_pcList) {
    EXPECT_EQ(std::string(l_cEntry.first.mb_str()), l_itExpected->first);
    ASSERT_NE(l_cEntry.second, nullptr);
    EXPECT_EQ(l_cEntry.second->GetAttributeType(), l_itExpected->second);
    Bytes l_aPart(l_cEntry.second->GetPackungSize());
    l_aPart.resize(l_cEntry.second->PackValue(l_aPart.data()));
    l_aPacked = Cat({l_aPacked, l_aPart});
    ++l_itExpected;
  }
  // Empty texts, zeros.
  EXPECT_EQ(ToHex(l_aPacked), ToHex(Cat({Str(""), Le<int32_t>(0), Str(""), Le(0.0), Le(0.0),
                                         Le<int32_t>(0), Le<int32_t>(0)})));
  EXPECT_EQ(l_cState.GetClientSocket(), nullptr);
}

TEST(ModelRuntimeState, SendPutsTheValuesOnTheWireInKeyOrder) {
  LoopbackPair l_cPair;
  ModelRuntimeState l_cState;
  Fill(l_cState);
  l_cPair.Run([](RawPeer& p_cPeer) {
    const uint64_t l_nTotal = p_cPeer.RecvValue<uint64_t>();
    p_cPeer.RecvFrame(static_cast<size_t>(l_nTotal));
  });
  EXPECT_EQ(l_cState.SendAttributes(l_cPair.Socket()), 1u);
  l_cPair.Join();
  const Bytes l_aBody = FilledBody();
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()),
            ToHex(Cat({Le<uint64_t>(l_aBody.size()), l_aBody})));
  EXPECT_EQ(ToHex(l_cPair.Peer().Sent()), "61 61");
  // The socket stays stored.
  EXPECT_EQ(l_cState.GetClientSocket(), l_cPair.Socket());
}

TEST(ModelRuntimeState, ReceiveFillsTheSevenValues) {
  LoopbackPair l_cPair;
  ModelRuntimeState l_cState;
  EXPECT_EQ(ReceiveScripted(l_cState, FilledBody(), l_cPair), 1u);
  ExpectFilled(l_cState);
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "61 61");
  EXPECT_EQ(l_cState.GetClientSocket(), l_cPair.Socket());
}

TEST(ModelRuntimeState, WhatOneStateSendsAPeersDefaultStateReproduces) {
  ModelRuntimeState l_cSender;
  Fill(l_cSender);
  Bytes l_aBody;
  {
    LoopbackPair l_cPair;
    l_cPair.Run([&l_aBody](RawPeer& p_cPeer) {
      const uint64_t l_nTotal = p_cPeer.RecvValue<uint64_t>();
      l_aBody = p_cPeer.RecvFrame(static_cast<size_t>(l_nTotal));
    });
    EXPECT_EQ(l_cSender.SendAttributes(l_cPair.Socket()), 1u);
  }
  LoopbackPair l_cPair;
  ModelRuntimeState l_cReceiver;
  EXPECT_EQ(ReceiveScripted(l_cReceiver, l_aBody, l_cPair), 1u);
  ExpectFilled(l_cReceiver);
}

TEST(ModelRuntimeState, SendWithoutASocketFails) {
  ModelRuntimeState l_cState;
  EXPECT_EQ(l_cState.SendAttributes(NULL), FAILURE);
  // The argument-less overloads of the base stay reachable.
  EXPECT_EQ(l_cState.SendAttributes(), FAILURE);
}
