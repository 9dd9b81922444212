// SPDX-License-Identifier: MIT
// The paired control halves of SteeringControl and SteeringCMD against a raw
// peer: simulation interval, start command, available simulators, model
// statistics and whole models.
#include <gtest/gtest.h>

#include <memory>

#include "quor/coloredmodel.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/steeringcmd.h"
#include "log_capture.h"
#include "raw_peer.h"
#include "server_harness.h"

using namespace quor;
using namespace quor_test;

namespace {

Bytes Interval(double a, double b, double c) { return Doubles({a, b, c}); }

}  // namespace

TEST(ControlInterval, SendPutsTheThreeDoublesInOneRawFrame) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  Bytes l_aValue;
  l_cPair.Run([&](RawPeer& p) { l_aValue = p.RecvFrame(24); });
  EXPECT_EQ(l_cControl.SendSimulationInterval(0.5, 100.0, 2.0), 1u);
  l_cPair.Join();
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), ToHex(Interval(0.5, 100.0, 2.0)));
  EXPECT_EQ(ToHex(l_cPair.Peer().Sent()), "61");
}

TEST(ControlInterval, ReceiveFillsTheOutputsAndAcknowledges) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) { p.SendFrame(Interval(1.5, 20.0, 0.25)); });
  double a = 0, b = 0, c = 0;
  EXPECT_EQ(l_cControl.ReceiveSimulationInterval(a, b, c), 1u);
  l_cPair.Join();
  EXPECT_EQ(a, 1.5);
  EXPECT_EQ(b, 20.0);
  EXPECT_EQ(c, 0.25);
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "61");
}

TEST(ControlInterval, ReceiveAfterATransferErrorIsFailureWhateverTheCode) {
  // Not connected (transfer code 2) and a peer that went away (code 3):
  // both give FAILURE and leave the outputs as they were.
  {
    LoopbackPair l_cPair;
    SteeringControl l_cControl(l_cPair.Socket());
    l_cPair.Socket()->Close();
    double a = 7, b = 8, c = 9;
    EXPECT_EQ(l_cControl.ReceiveSimulationInterval(a, b, c), FAILURE);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(b, 8);
    EXPECT_EQ(c, 9);
  }
  {
    LoopbackPair l_cPair;
    SteeringControl l_cControl(l_cPair.Socket());
    l_cPair.Peer().Write(Hex("00 00 00 00 00 00 f0 3f"));  // 8 of the 24 bytes
    l_cPair.Peer().Close();
    double a = 7, b = 8, c = 9;
    EXPECT_EQ(l_cControl.ReceiveSimulationInterval(a, b, c), FAILURE);
    EXPECT_EQ(a, 7);
    EXPECT_EQ(b, 8);
    EXPECT_EQ(c, 9);
  }
}

TEST(ControlStartCommand, SendIsTheNameFrameThenTheInterval) {
  LoopbackPair l_cPair;
  SteeringCMD l_cCmd(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.RecvString();
    p.RecvFrame(24);
  });
  EXPECT_EQ(l_cCmd.SendStartCMD(wxT("sim"), 0.0, 100.0, 1.0), 1u);
  l_cPair.Join();
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()),
            ToHex(Cat({StringFrame("sim"), Interval(0.0, 100.0, 1.0)})));
  EXPECT_EQ(ToHex(l_cPair.Peer().Sent()), ToHex(Acks(3)));
}

TEST(ControlStartCommand, ReceiveMirrorsTheSend) {
  LoopbackPair l_cPair;
  SteeringCMD l_cCmd(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.SendString("petri");
    p.SendFrame(Interval(2.0, 50.0, 0.5));
  });
  wxString l_sName;
  double a = 0, b = 0, c = 0;
  EXPECT_EQ(l_cCmd.ReceiveStartCMD(l_sName, a, b, c), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_sName, wxT("petri"));
  EXPECT_EQ(a, 2.0);
  EXPECT_EQ(b, 50.0);
  EXPECT_EQ(c, 0.5);
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), ToHex(Acks(3)));
}

TEST(ControlStartCommand, AFailedNameStillSendsTheIntervalAndItsResultCounts) {
  // The peer never acknowledges the name's count: the name fails after the
  // socket timeout (one second here), yet the interval follows and its
  // result is the command's result.
  LoopbackPair l_cPair(1);
  SteeringCMD l_cCmd(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.Read(8);
    p.RecvFrame(24);
  });
  EXPECT_EQ(l_cCmd.SendStartCMD(wxT("sim"), 0.0, 1.0, 1.0), 1u);
  l_cPair.Join();
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()),
            ToHex(Cat({Le<uint64_t>(3), Interval(0.0, 1.0, 1.0)})));
  // Not connected: the interval's own failure is returned.
  l_cPair.Socket()->Close();
  EXPECT_EQ(l_cCmd.SendStartCMD(wxT("sim"), 0.0, 1.0, 1.0), 2u);
}

TEST(ControlSimulators, AnEmptyListIsAZeroCountAndNothingElse) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  l_cPair.Run([&](RawPeer& p) {
    p.RecvValue<uint32_t>();
    // A marker behind it proves that nothing else was sent.
    p.RecvValue<uint32_t>();
  });
  EXPECT_EQ(l_cControl.SendAvailableSimulators({}), 1u);
  uint32_t l_nMarker = 0xABCD;
  l_cControl.SendValue(&l_nMarker, 4);
  l_cPair.Join();
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "00 00 00 00 cd ab 00 00");
}

TEST(ControlSimulators, ReceivingAnEmptyListEmptiesTheCallersList) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  std::vector<QU_SimulatorCategory> l_aList = TwoCategories();
  l_cPair.Run([&](RawPeer& p) { p.SendValue<uint32_t>(0); });
  EXPECT_EQ(l_cControl.ReceiveAvailableSimulators(l_aList), 1u);
  l_cPair.Join();
  EXPECT_TRUE(l_aList.empty());
}

TEST(ControlSimulators, SendPutsCountThenNameIdAndNamesPerCategory) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  l_cPair.Run(RecvCategories);
  EXPECT_EQ(l_cControl.SendAvailableSimulators(TwoCategories()), 1u);
  l_cPair.Join();
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), ToHex(TwoCategoriesBytes()));
  EXPECT_EQ(ToHex(l_cPair.Peer().Sent()), ToHex(Acks(14)));
}

TEST(ControlSimulators, ReceiveResizesTheListAndFillsEachCategory) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  std::vector<QU_SimulatorCategory> l_aList(3);
  l_aList[1].m_asSimulatorNames = {wxT("old")};
  l_cPair.Run(SendTwoCategories);
  EXPECT_EQ(l_cControl.ReceiveAvailableSimulators(l_aList), 1u);
  l_cPair.Join();
  ASSERT_EQ(l_aList.size(), 2u);
  EXPECT_EQ(l_aList[0].m_sCategoryName, wxT("ODE"));
  EXPECT_EQ(l_aList[0].m_nCategoryId, 3);
  EXPECT_EQ(l_aList[0].m_asSimulatorNames, (std::vector<wxString>{wxT("euler"), wxT("rk4")}));
  EXPECT_EQ(l_aList[1].m_sCategoryName, wxT(""));
  EXPECT_EQ(l_aList[1].m_nCategoryId, -1);
  EXPECT_TRUE(l_aList[1].m_asSimulatorNames.empty());
}

TEST(ControlSimulators, ReceiveStopsAtTheFirstFailedFrameAndKeepsWholeCategories) {
  // A count of a billion followed by one category and a closed connection:
  // the reading ends at once, the list holds the one category that arrived,
  // and the result is still 1.
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  std::vector<QU_SimulatorCategory> l_aList;
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint32_t>(1000000000u);
    p.SendString("ODE");
    p.SendValue<int32_t>(3);
    p.SendValue<uint32_t>(0);
    p.SendValue<uint64_t>(0);
    p.SendFrame(Bytes());
    p.SendString("half");
    p.Close();
  });
  EXPECT_EQ(l_cControl.ReceiveAvailableSimulators(l_aList), 1u);
  l_cPair.Join();
  ASSERT_EQ(l_aList.size(), 1u);
  EXPECT_EQ(l_aList[0].m_sCategoryName, wxT("ODE"));
}

TEST(ControlSimulators, AFailedCountEmptiesTheListAndStillGivesOne) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  std::vector<QU_SimulatorCategory> l_aList = TwoCategories();
  l_cPair.Socket()->Close();
  EXPECT_EQ(l_cControl.ReceiveAvailableSimulators(l_aList), 1u);
  EXPECT_TRUE(l_aList.empty());
  // Sending ignores its frames' results the same way.
  EXPECT_EQ(l_cControl.SendAvailableSimulators(TwoCategories()), 1u);
}

TEST(ControlStatistics, SendIsTheStatesAttributeListOverThisConnection) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  ModelRuntimeState l_cState;
  l_cState.SetAttributeValue(wxT("SIMULATOR_STATE"), 2);
  l_cState.SetAttributeValue(wxT("SIMULATOR_PROGRESS"), 0.75);
  l_cState.SetAttributeValue(wxT("CURRENT_SIMULATOR_ALGORITHM"), wxString(wxT("gillespie")));
  const Bytes l_aBlock = PackedAttributes(l_cState);
  Bytes l_aGot;
  l_cPair.Run([&](RawPeer& p) {
    uint64_t l_nTotal = p.RecvValue<uint64_t>();
    l_aGot = p.RecvFrame(l_nTotal);
  });
  EXPECT_EQ(l_cControl.SendModelStatistics(l_cState), 1u);
  l_cPair.Join();
  EXPECT_EQ(ToHex(l_aGot), ToHex(l_aBlock));
  EXPECT_EQ(ToHex(Bytes(l_cPair.Peer().Received().begin(), l_cPair.Peer().Received().begin() + 8)),
            ToHex(Le<uint64_t>(l_aBlock.size())));
  EXPECT_EQ(l_cState.GetClientSocket(), l_cPair.Socket());
}

TEST(ControlStatistics, ReceiveFillsTheState) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  ModelRuntimeState l_cSource;
  l_cSource.SetAttributeValue(wxT("SIMULATOR_SPEED"), 9);
  l_cSource.SetAttributeValue(wxT("SIMULATOR_RUNTIME"), 12.5);
  l_cSource.SetAttributeValue(wxT("SIMULATOR_CATEGORY"), wxString(wxT("ODE")));
  const Bytes l_aBlock = PackedAttributes(l_cSource);
  l_cPair.Run([&](RawPeer& p) {
    p.SendValue<uint64_t>(l_aBlock.size());
    p.SendFrame(l_aBlock);
  });
  ModelRuntimeState l_cState;
  EXPECT_EQ(l_cControl.ReceiveModelStatistics(l_cState), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cState.GetAttributeValueInt(wxT("SIMULATOR_SPEED")), 9);
  EXPECT_EQ(l_cState.GetAttributeValueDouble(wxT("SIMULATOR_RUNTIME")), 12.5);
  EXPECT_EQ(l_cState.GetAttributeValueString(wxT("SIMULATOR_CATEGORY")), wxT("ODE"));
  EXPECT_EQ(l_cState.GetClientSocket(), l_cPair.Socket());
}

TEST(ControlModel, SendingANullModelIsFailureWithNothingOnTheWire) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  ReportCapture l_cReports;
  l_cPair.Run([&](RawPeer& p) { p.RecvValue<uint32_t>(); });
  EXPECT_EQ(l_cControl._SendExistingModel(NULL), FAILURE);
  uint32_t l_nMarker = 0x11223344;
  l_cControl.SendValue(&l_nMarker, 4);
  l_cPair.Join();
  EXPECT_EQ(ToHex(l_cPair.Peer().Received()), "44 33 22 11");
  ASSERT_EQ(l_cReports.Reports().size(), 1u);
  EXPECT_NE(l_cReports.Reports()[0].find("p_pcModel"), std::string::npos);
}

TEST(ControlModel, SendIsTheModelTypeAttributesViewsAndActiveView) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  Model l_cModel(l_cPair.Socket(), wxT("net"), 3, 2);
  const WireModel l_cExpected = ImageOf(l_cModel);
  WireModel l_cGot;
  l_cPair.Run([&](RawPeer& p) { l_cGot = RecvModel(p); });
  EXPECT_EQ(l_cControl._SendExistingModel(&l_cModel), 1u);
  l_cPair.Join();
  EXPECT_EQ(l_cGot.type, 0u);
  EXPECT_EQ(ToHex(l_cGot.attributes), ToHex(l_cExpected.attributes));
  EXPECT_TRUE(l_cGot.views.empty());
  EXPECT_EQ(l_cGot.activeView, 0u);
  // The first bytes are the 4-byte model type, then the 8-byte total.
  EXPECT_EQ(ToHex(Bytes(l_cPair.Peer().Received().begin(), l_cPair.Peer().Received().begin() + 12)),
            ToHex(Cat({Le<uint32_t>(0), Le<uint64_t>(l_cExpected.attributes.size())})));
}

TEST(ControlModel, ReceivedTypeOneBuildsAColoredModel) {
  LoopbackPair l_cPair;
  SteeringControl l_cControl(l_cPair.Socket());
  ColoredModel l_cSource(NULL, wxT("cnet"), 3, 2, 2, 1);
  l_cSource.SetColorPlaceRange(1, 4, 7);
  uint32_t l_nAck = 0;
  l_cPair.Run([&](RawPeer& p) { SendModel(p, ImageOf(l_cSource), &l_nAck); });
  std::unique_ptr<Model> l_pcModel(l_cControl._ReceiveExistingModel(l_cPair.Socket()));
  l_cPair.Join();
  ASSERT_NE(l_pcModel, nullptr);
  ColoredModel* l_pcColored = dynamic_cast<ColoredModel*>(l_pcModel.get());
  ASSERT_NE(l_pcColored, nullptr);
  EXPECT_EQ(l_pcColored->GetModelName(), wxT("cnet"));
  EXPECT_EQ(l_pcColored->GetModelType(), 1u);
  EXPECT_EQ(l_pcColored->GetColoredPlaceCount(), 2u);
  unsigned long long l_nStart = 0, l_nEnd = 0;
  l_pcColored->GetColorPlaceRange(1, l_nStart, l_nEnd);
  EXPECT_EQ(l_nStart, 4u);
  EXPECT_EQ(l_nEnd, 7u);
  EXPECT_EQ(l_pcColored->GetClientSocket(), l_cPair.Socket());
  EXPECT_EQ(l_nAck, 1u);
}

TEST(ControlModel, ReceivedTypeZeroOrAnyOtherBuildsAPlainModel) {
  for (uint32_t l_nType : {0u, 5u}) {
    SCOPED_TRACE(l_nType);
    LoopbackPair l_cPair;
    SteeringControl l_cControl(l_cPair.Socket());
    Model l_cSource(NULL, wxT("net"), 3, 2);
    WireModel l_cImage = ImageOf(l_cSource);
    l_cImage.type = l_nType;
    l_cPair.Run([&](RawPeer& p) { SendModel(p, l_cImage); });
    std::unique_ptr<Model> l_pcModel(l_cControl._ReceiveExistingModel(l_cPair.Socket()));
    l_cPair.Join();
    ASSERT_NE(l_pcModel, nullptr);
    EXPECT_EQ(dynamic_cast<ColoredModel*>(l_pcModel.get()), nullptr);
    EXPECT_EQ(l_pcModel->GetModelName(), wxT("net"));
    EXPECT_EQ(l_pcModel->GetPlaceCount(), 2u);
    EXPECT_EQ(l_pcModel->GetTransitionCount(), 3u);
  }
}

TEST(ControlModel, AFailedTypeOrModelGivesNullAndFreesTheHalfBuiltModel) {
  // The type frame fails: nothing is built.
  {
    LoopbackPair l_cPair;
    SteeringControl l_cControl(l_cPair.Socket());
    l_cPair.Peer().Close();
    EXPECT_EQ(l_cControl._ReceiveExistingModel(l_cPair.Socket()), nullptr);
  }
  // The type arrives, the model does not: the model built for it is freed
  // (the leak checker of the sanitized build watches this).
  for (uint32_t l_nType : {0u, 1u}) {
    LoopbackPair l_cPair;
    SteeringControl l_cControl(l_cPair.Socket());
    l_cPair.Run([&](RawPeer& p) {
      p.SendValue(l_nType);
      p.Close();
    });
    EXPECT_EQ(l_cControl._ReceiveExistingModel(l_cPair.Socket()), nullptr);
    l_cPair.Join();
  }
}

TEST(ControlCodes, RequestCommandAndOptionCodesHaveTheirWireValues) {
  const std::vector<int> l_anCodes = {
      REQUEST_SEND_CMD, REQUEST_GET_RUNNING_MODEL_NAMES, REQUEST_READ_RESULT_MATRIX,
      REQUEST_READ_RATE_MATRIX, REQUEST_WRITE_RESULT_MATRIX, REQUEST_STEERING_OPTION,
      REQUEST_CHANGE_CURRENT_MODEL, REQUEST_READ_SIMULATOR_STATE,
      REQUEST_READ_SIMULATION_INTERVAL, REQUEST_READ_AVAILABLE_SIMULATORS,
      REQUEST_WRITE_AVAILABLE_SIMULATORS, REQUEST_READ_CURRENT_SIMULATOR_NAME,
      REQUEST_READ_MODEL_VIEWS, REQUEST_WRITE_MODEL_VIEWS, REQUEST_READ_MODEL_STATISTICS,
      REQUEST_CHANGE_CURRENT_PARAMETER_VALUES, REQUEST_CHANGE_CURRENT_PLACE_VALUES,
      REQUEST_READ_CURRENT_PARAMETER_VALUES, REQUEST_READ_CURRENT_PLACE_VALUES,
      REQUEST_REMOVE_MODEL, REQUEST_SEND_SIMULATOR_SETTING, REQUEST_RECEIVE_SIMULATOR_SETTING,
      REQUEST_UPDATE_RESULT_MATRIX_INFO, REQUEST_INITIALIZE, REQUEST_RECEIVE_ERROR_MESSAGE,
      REQUEST_CHANGE_SIMULATOR_SPEED, REQUEST_SEND_STEERED_PARAM_POSITIONS,
      REQUEST_SEND_STEERED_PLACE_POSITIONS, REQUEST_RECEIVE_STEERED_PARAM_POSITIONS,
      REQUEST_RECEIVE_STEERED_PLACE_POSITIONS, REQUEST_RESET_PARAMETER_VALUES,
      REQUEST_RESET_MARKING_VALUES, REQUEST_READ_LOG_MESSAGE,
      REQUEST_WRITE_CURRENT_SIMULATOR_NAME, REQUEST_WRITE_SIMULATOR_STATE,
      REQUEST_WRITE_MODEL_STATISTICS};
  ASSERT_EQ(l_anCodes.size(), 36u);
  for (int i = 0; i < 36; ++i) EXPECT_EQ(l_anCodes[i], i + 1);
  EXPECT_EQ(sizeof(REQUEST_TYPE), 4u);
  EXPECT_EQ(sizeof(CMD_TYPE), 4u);
  EXPECT_EQ(sizeof(STEERING_OPTION), 4u);
  EXPECT_EQ((std::vector<int>{CMD_PAUSE, CMD_RESUME, CMD_START, CMD_STOP, CMD_RESTART}),
            (std::vector<int>{1, 2, 3, 4, 5}));
  EXPECT_EQ(STEERING_NEW_MODEL, 1);
  EXPECT_EQ(STEERING_EXISTING_MODEL, 2);
  EXPECT_EQ(STEERING_PROTOCOL_VERSION, 7u);
}
