// SPDX-License-Identifier: MIT
// Every request of SteeringClient against a raw server: the exact bytes the
// client puts on the wire (its request code, then each frame), the scripted
// answer, the result and the outputs; then the failure rows for a code frame
// that fails and for a payload frame that fails.
#include <gtest/gtest.h>

#include <sys/socket.h>

#include <functional>
#include <memory>

#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringclient.h"
#include "log_capture.h"
#include "raw_peer.h"
#include "server_harness.h"

using namespace quor;
using namespace quor_test;

namespace {

Bytes Code(int32_t p_nCode) { return Le(p_nCode); }

// A session whose client has uploaded the given model; the server script
// runs after the upload, with the recorded bytes forgotten.
class RegisteredSession {
 public:
  RegisteredSession(Model& p_cModel, std::function<void(RawPeer&)> p_fScript)
      : m_cSession([p_fScript](RawPeer& p) {
          ServeUpload(p);
          p_fScript(p);
        }) {
    EXPECT_EQ(m_cSession.Connected(), 1u);
    EXPECT_EQ(m_cSession.Client().Initialize(&p_cModel), 1u);
  }
  SteeringClient& Client() { return m_cSession.Client(); }
  Bytes FromClient() { return m_cSession.FromClient(); }

 private:
  ClientSession m_cSession;
};

void RecvBlockInto(RawPeer& p, Bytes* p_paBlock) {
  uint64_t l_nTotal = p.RecvValue<uint64_t>();
  *p_paBlock = p.RecvFrame(l_nTotal);
}

}  // namespace

// Request 1: commands.

TEST(ClientRequest01, PauseResumeStopAreCodeOneAndTheirCommandType) {
  struct Row {
    std::function<unsigned int(SteeringClient&)> op;
    int32_t cmd;
  };
  const std::vector<Row> l_aRows = {
      {[](SteeringClient& c) { return c.CMD_Pause(); }, 1},
      {[](SteeringClient& c) { return c.CMD_Resume(); }, 2},
      {[](SteeringClient& c) { return c.CMD_Stop(); }, 4},
      {[](SteeringClient& c) { return c.Send_CMD(CMD_RESTART); }, 5},
      {[](SteeringClient& c) { return c.Send_CMD(CMD_START); }, 3},
  };
  for (const Row& l_cRow : l_aRows) {
    SCOPED_TRACE(l_cRow.cmd);
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.RecvValue<int32_t>();
    });
    EXPECT_EQ(l_cRow.op(l_cSession.Client()), 1u);
    EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(1), Le(l_cRow.cmd)})));
  }
}

TEST(ClientRequest01, SendCmdWithAValueSendsTheDoubleAfterTheCommandType) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
    p.RecvValue<double>();
  });
  EXPECT_EQ(l_cSession.Client().Send_CMD(CMD_PAUSE, 2.5), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(1), Le<int32_t>(1), Le(2.5)})));
}

TEST(ClientRequest01, StartAndRestartSendTheStartCommand) {
  for (int32_t l_nCmd : {3, 5}) {
    SCOPED_TRACE(l_nCmd);
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.RecvValue<int32_t>();
      p.RecvString();
      p.RecvFrame(24);
    });
    const unsigned int l_nResult =
        l_nCmd == 3 ? l_cSession.Client().CMD_Start(wxT("sim"), 0.0, 100.0, 1.0)
                    : l_cSession.Client().CMD_Restart(wxT("sim"), 0.0, 100.0, 1.0);
    EXPECT_EQ(l_nResult, 1u);
    EXPECT_EQ(ToHex(l_cSession.FromClient()),
              ToHex(Cat({Code(1), Le(l_nCmd), StringFrame("sim"), Doubles({0.0, 100.0, 1.0})})));
  }
}

TEST(ClientRequest01, AFailedCommandTypeFrameMakesSendCmdFailure) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.Close();
  });
  EXPECT_EQ(l_cSession.Client().CMD_Pause(), FAILURE);
}

TEST(ClientRequest01, AfterAFailedCodeFrameTheValueAndTheStartCommandStillGo) {
  // The server never acknowledges the code: the code frame fails after the
  // socket's own timeout (one second here, well within the request's
  // deadline of the client's ten seconds), the command type is left out,
  // and the payload follows anyway; its result decides.
  {
    ClientSession l_cSession([](RawPeer& p) {
      p.Read(4);
      p.RecvValue<double>();
    });
    l_cSession.Client().GetClientSocket()->SetTimeout(1);
    EXPECT_EQ(l_cSession.Client().Send_CMD(CMD_STOP, -4.0), 1u);
    EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(1), Le(-4.0)})));
  }
  {
    ClientSession l_cSession([](RawPeer& p) {
      p.Read(4);
      p.RecvString();
      p.RecvFrame(24);
    });
    l_cSession.Client().GetClientSocket()->SetTimeout(1);
    EXPECT_EQ(l_cSession.Client().CMD_Start(wxT("run"), 1.0, 2.0, 3.0), 1u);
    EXPECT_EQ(ToHex(l_cSession.FromClient()),
              ToHex(Cat({Code(1), StringFrame("run"), Doubles({1.0, 2.0, 3.0})})));
  }
}

// Requests 2 to 5: model names and matrices.

TEST(ClientRequest02, GetRuningModelNamesFillsTheNames) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(8);
    p.SendValue<uint64_t>(2);
    p.SendFrame(Hex("02 00 06 00"));
    p.SendFrame(Text("m1model2"));
  });
  std::vector<wxString> l_asNames = {wxT("old")};
  EXPECT_EQ(l_cSession.Client().GetRuningModelNames(l_asNames), 1u);
  EXPECT_EQ(l_asNames, (std::vector<wxString>{wxT("m1"), wxT("model2")}));
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(2), Acks(4)})));
}

TEST(ClientRequest03And04, ResultAndRateMatrixReceiveRowsColumnsAndValues) {
  for (int32_t l_nCode : {3, 4}) {
    SCOPED_TRACE(l_nCode);
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.SendValue<uint64_t>(2);
      p.SendValue<uint64_t>(3);
      p.SendFrame(Doubles({1, 2, 3, 4, 5, 6}));
    });
    std::vector<std::vector<double> > l_aad = {{9}};
    const unsigned int l_nResult = l_nCode == 3 ? l_cSession.Client().ReadResultMatrix(l_aad)
                                                : l_cSession.Client().ReadRateMatrix(l_aad);
    EXPECT_EQ(l_nResult, 1u);
    EXPECT_EQ(l_aad, (std::vector<std::vector<double> >{{1, 2, 3}, {4, 5, 6}}));
    EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(l_nCode), Acks(3)})));
  }
}

TEST(ClientRequest05, WriteResultMatrixSendsRowsColumnsAndValues) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvValue<uint64_t>();
    p.RecvValue<uint64_t>();
    p.RecvFrame(32);
  });
  std::vector<std::vector<double> > l_aad = {{1, 2}, {3, 4}};
  EXPECT_EQ(l_cSession.Client().WriteResultMatrix(l_aad), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Code(5), Le<uint64_t>(2), Le<uint64_t>(2), Doubles({1, 2, 3, 4})})));
}

// Request 7: changing the current model.

TEST(ClientRequest07, ChangeCurrentModelSendsTheIndexAndReplacesTheModel) {
  // The uploaded model was allocated with new: changing the current model
  // frees it (the leak checker of the sanitized build watches this).
  Model* l_pcMine = new Model(NULL, wxT("mine"), 1, 1);
  Model l_cServerModel(NULL, wxT("other"), 2, 2);
  const WireModel l_cImage = ImageOf(l_cServerModel);
  RegisteredSession l_cSession(*l_pcMine, [&](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvValue<uint32_t>();
    SendModel(p, l_cImage);
  });
  EXPECT_EQ(l_cSession.Client()._ChangeCurrentModel(4), 1u);
  std::unique_ptr<Model> l_pcModel(l_cSession.Client().GetModel());
  ASSERT_NE(l_pcModel, nullptr);
  EXPECT_EQ(l_pcModel->GetModelName(), wxT("other"));
  const size_t l_nBlockAcks = l_cImage.attributes.size() > 100 ? 2 : 1;
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Code(7), Le<uint32_t>(4), Acks(4 + l_nBlockAcks), Le<uint32_t>(1)})));
}

TEST(ClientRequest07, AFailedIndexKeepsTheModelAndAFailedModelLeavesNone) {
  Model l_cMine(NULL, wxT("mine"), 1, 1);
  {
    RegisteredSession l_cSession(l_cMine, [](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.Close();
    });
    EXPECT_EQ(l_cSession.Client()._ChangeCurrentModel(1), FAILURE);
    EXPECT_EQ(l_cSession.Client().GetModel(), &l_cMine);
  }
  {
    Model* l_pcHeap = new Model(NULL, wxT("heap"), 1, 1);
    RegisteredSession l_cSession(*l_pcHeap, [](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.RecvValue<uint32_t>();
      p.Close();
    });
    EXPECT_EQ(l_cSession.Client()._ChangeCurrentModel(1), FAILURE);
    EXPECT_EQ(l_cSession.Client().GetModel(), nullptr);
  }
}

// Requests 8 to 12: simulator state, interval, simulators, names.

TEST(ClientRequest08, ReadSimulatorStateReceivesFourBytes) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<int32_t>(-3);
  });
  int l_nState = 0;
  EXPECT_EQ(l_cSession.Client().ReadSimulatorState(l_nState), 1u);
  EXPECT_EQ(l_nState, -3);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(8), Acks(1)})));
}

TEST(ClientRequest09, ReadSimulationIntervalIsFailureAfterSuccessAndFillsTheModel) {
  Model l_cModel(NULL, wxT("m"), 1, 1);
  RegisteredSession l_cSession(l_cModel, [](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendFrame(Doubles({2.0, 40.0, 0.5}));
  });
  double a = 0, b = 0, c = 0;
  EXPECT_EQ(l_cSession.Client().ReadSimulationInterval(a, b, c), FAILURE);
  EXPECT_EQ(a, 2.0);
  EXPECT_EQ(b, 40.0);
  EXPECT_EQ(c, 0.5);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("START_OUTPUT_POINT")), 2.0);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("END_OUTPUT_POINT")), 40.0);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("SAMPLE_POINT_SIZE")), 0.5);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(9), Acks(1)})));
}

TEST(ClientRequest09, AFailedIntervalLeavesModelAndOutputsAlone) {
  Model l_cModel(NULL, wxT("m"), 1, 1);
  RegisteredSession l_cSession(l_cModel, [](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.Close();
  });
  double a = 7, b = 8, c = 9;
  EXPECT_EQ(l_cSession.Client().ReadSimulationInterval(a, b, c), FAILURE);
  EXPECT_EQ(a, 7);
  EXPECT_EQ(b, 8);
  EXPECT_EQ(c, 9);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("START_OUTPUT_POINT")), 0.0);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("END_OUTPUT_POINT")), 100.0);
  EXPECT_EQ(l_cModel.GetAttributeValueDouble(wxT("SAMPLE_POINT_SIZE")), 1.0);
}

TEST(ClientRequest10, ReadAvailableSimulatorsFillsTheList) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    SendTwoCategories(p);
  });
  std::vector<QU_SimulatorCategory> l_aList;
  EXPECT_EQ(l_cSession.Client().ReadAvailableSimulators(l_aList), 1u);
  ASSERT_EQ(l_aList.size(), 2u);
  EXPECT_EQ(l_aList[0].m_sCategoryName, wxT("ODE"));
  EXPECT_EQ(l_aList[0].m_nCategoryId, 3);
  EXPECT_EQ(l_aList[0].m_asSimulatorNames, (std::vector<wxString>{wxT("euler"), wxT("rk4")}));
  EXPECT_EQ(l_aList[1].m_nCategoryId, -1);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(10), Acks(14)})));
}

TEST(ClientRequest11, WriteAvailableSimulatorsSendsTheCategories) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    RecvCategories(p);
  });
  EXPECT_EQ(l_cSession.Client().WriteAvailableSimulators(TwoCategories()), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(11), TwoCategoriesBytes()})));
}

TEST(ClientRequest12, ReadCurrentSimulatorNameReceivesTwoStrings) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendString("ODE");
    p.SendString("euler");
  });
  wxString l_sFirst, l_sSecond;
  EXPECT_EQ(l_cSession.Client().ReadCurrentSimulatorName(l_sFirst, l_sSecond), 1u);
  EXPECT_EQ(l_sFirst, wxT("ODE"));
  EXPECT_EQ(l_sSecond, wxT("euler"));
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(12), Acks(4)})));
}

TEST(ClientRequest12, AFailedFirstNameDoesNotStopTheSecond) {
  // The first name announces more characters than one frame can carry:
  // it fails (after "Error: cannot allocate memory"), the second one counts.
  LogCapture l_cLog;
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint64_t>(1ull << 40);
    p.SendString("euler");
  });
  wxString l_sFirst = wxT("keep"), l_sSecond;
  EXPECT_EQ(l_cSession.Client().ReadCurrentSimulatorName(l_sFirst, l_sSecond), 1u);
  EXPECT_EQ(l_sFirst, wxT("keep"));
  EXPECT_EQ(l_sSecond, wxT("euler"));
  EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Error: cannot allocate memory"}));
}

// Requests 13 to 15: views and statistics.

TEST(ClientRequest13, ReadModelViewsReceivesTheViewsIntoTheModel) {
  ModelView l_cView(wxT("plot"), NULL);
  l_cView.SetTitle(wxT("title"));
  const Bytes l_aView = PackedAttributes(l_cView);
  Model l_cModel(NULL, wxT("m"), 1, 1);
  uint32_t l_nAck = 0;
  RegisteredSession l_cSession(l_cModel, [&](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint32_t>(1);
    p.SendValue<uint64_t>(l_aView.size());
    p.SendFrame(l_aView);
    p.SendValue<uint32_t>(0);
    l_nAck = p.RecvValue<uint32_t>();
  });
  EXPECT_EQ(l_cSession.Client().ReadModelViews(), 1u);
  const Bytes l_aFromClient = l_cSession.FromClient();
  EXPECT_EQ(l_nAck, 1u);
  ASSERT_EQ(l_cModel.GetModelViews()->size(), 1u);
  EXPECT_EQ((*l_cModel.GetModelViews())[0]->GetName(), wxT("plot"));
  EXPECT_EQ((*l_cModel.GetModelViews())[0]->GetTitle(), wxT("title"));
  const size_t l_nBlockAcks = l_aView.size() > 100 ? 2 : 1;
  EXPECT_EQ(ToHex(l_aFromClient),
            ToHex(Cat({Code(13), Acks(3 + l_nBlockAcks), Le<uint32_t>(1)})));
}

TEST(ClientRequest14, WriteModelViewsSendsCountViewsAndActiveView) {
  Model l_cModel(NULL, wxT("m"), 1, 1);
  ModelView* l_pcView = new ModelView(wxT("v1"), NULL);
  l_cModel.AddModelView(l_pcView);
  const Bytes l_aExpected = PackedAttributes(*l_pcView);
  uint32_t l_nCount = 0, l_nActive = 9;
  Bytes l_aView;
  RegisteredSession l_cSession(l_cModel, [&](RawPeer& p) {
    p.RecvValue<int32_t>();
    l_nCount = p.RecvValue<uint32_t>();
    RecvBlockInto(p, &l_aView);
    l_nActive = p.RecvValue<uint32_t>();
    p.SendValue<uint32_t>(1);
  });
  EXPECT_EQ(l_cSession.Client().WriteModelViews(), 1u);
  const Bytes l_aFromClient = l_cSession.FromClient();
  EXPECT_EQ(l_nCount, 1u);
  EXPECT_EQ(ToHex(l_aView), ToHex(l_aExpected));
  EXPECT_EQ(l_nActive, 0u);
  EXPECT_EQ(ToHex(Bytes(l_aFromClient.begin(), l_aFromClient.begin() + 16)),
            ToHex(Cat({Code(14), Le<uint32_t>(1), Le<uint64_t>(l_aExpected.size())})));
}

TEST(ClientRequest15, ReadModelStatisticsReceivesTheState) {
  ModelRuntimeState l_cSource;
  l_cSource.SetAttributeValue(wxT("SIMULATOR_STATE"), 3);
  l_cSource.SetAttributeValue(wxT("SIMULATOR_PROGRESS"), 0.5);
  const Bytes l_aBlock = PackedAttributes(l_cSource);
  ClientSession l_cSession([&](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint64_t>(l_aBlock.size());
    p.SendFrame(l_aBlock);
  });
  ModelRuntimeState l_cState;
  EXPECT_EQ(l_cSession.Client().ReadModelStatistics(l_cState), 1u);
  EXPECT_EQ(l_cState.GetAttributeValueInt(wxT("SIMULATOR_STATE")), 3);
  EXPECT_EQ(l_cState.GetAttributeValueDouble(wxT("SIMULATOR_PROGRESS")), 0.5);
  const size_t l_nBlockAcks = l_aBlock.size() > 100 ? 2 : 1;
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(15), Acks(1 + l_nBlockAcks)})));
}

// Requests 16 to 19: values.

TEST(ClientRequest16And17, ChangeCurrentValueSendsPositionThenValue) {
  for (int32_t l_nCode : {16, 17}) {
    SCOPED_TRACE(l_nCode);
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.RecvValue<uint64_t>();
      p.RecvValue<double>();
    });
    const unsigned int l_nResult =
        l_nCode == 16 ? l_cSession.Client().ChangeCurrentParameterValues(3, 0.5)
                      : l_cSession.Client().ChangeCurrentPlaceValues(3, 0.5);
    EXPECT_EQ(l_nResult, 1u);
    EXPECT_EQ(ToHex(l_cSession.FromClient()),
              ToHex(Cat({Code(l_nCode), Le<uint64_t>(3), Le(0.5)})));
  }
}

TEST(ClientRequest16And17, AFailedPositionIsReturnedAndNoValueFollows) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.Read(8);  // the position, never acknowledged
  });
  l_cSession.Client().SetTimeout(1);
  EXPECT_EQ(l_cSession.Client().ChangeCurrentParameterValues(7, 1.0), 3u);
  l_cSession.Client().DisConnectFromServer();
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(16), Le<uint64_t>(7)})));
}

TEST(ClientRequest18And19, TwelveValuesAreOneRawFrameThirteenAreCompressed) {
  for (int32_t l_nCode : {18, 19}) {
    for (size_t l_nCount : {12u, 13u}) {
      SCOPED_TRACE(l_nCode * 100 + l_nCount);
      std::vector<double> l_adSent;
      for (size_t i = 0; i < l_nCount; ++i) l_adSent.push_back(0.5 * i);
      Bytes l_aValues;
      for (double d : l_adSent) l_aValues = Cat({l_aValues, Le(d)});
      Model l_cModel(NULL, wxT("m"), 1, 1);
      RegisteredSession l_cSession(l_cModel, [&](RawPeer& p) {
        p.RecvValue<int32_t>();
        p.SendValue<uint64_t>(l_nCount);
        p.SendFrame(l_aValues);
      });
      std::vector<double> l_adValues = {99};
      const unsigned int l_nResult =
          l_nCode == 18 ? l_cSession.Client().ReadCurrentParameterValues(l_adValues)
                        : l_cSession.Client().ReadCurrentPlaceValues(l_adValues);
      EXPECT_EQ(l_nResult, 1u);
      EXPECT_EQ(l_adValues, l_adSent);
      const Bytes l_aFromClient = l_cSession.FromClient();
      // 96 bytes: one raw frame and its acknowledgement. 104 bytes: the
      // compressed length and the stream, each acknowledged.
      EXPECT_EQ(ToHex(l_aFromClient),
                ToHex(Cat({Code(l_nCode), Acks(l_nCount == 12 ? 2 : 3)})));
      const std::vector<double>& l_adStored =
          static_cast<AttributeVectorDouble*>(
              l_cModel.GetAttribute(l_nCode == 18 ? wxT("CURRENT_PARAM_VALUES")
                                                  : wxT("CURRENT_MARKING")))
              ->GetValue();
      EXPECT_EQ(l_adStored, l_adSent);
    }
  }
}

TEST(ClientRequest18And19, ACountOfZeroClearsTheModelsListAndGivesOne) {
  Model l_cModel(NULL, wxT("m"), 1, 3);
  ASSERT_EQ(l_cModel.GetCurrentMarking()->size(), 3u);
  RegisteredSession l_cSession(l_cModel, [](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint64_t>(0);
  });
  std::vector<double> l_adValues = {1, 2};
  EXPECT_EQ(l_cSession.Client().ReadCurrentPlaceValues(l_adValues), 1u);
  EXPECT_TRUE(l_adValues.empty());
  EXPECT_TRUE(l_cModel.GetCurrentMarking()->empty());
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(19), Acks(1)})));
}

TEST(ClientRequest18And19, AFailedOrImpossibleCountIsFailureAndLeavesTheModel) {
  // A count whose values no frame can carry is refused before anything is
  // allocated for it.
  {
    LogCapture l_cLog;
    Model l_cModel(NULL, wxT("m"), 1, 2);
    RegisteredSession l_cSession(l_cModel, [](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.SendValue<uint64_t>(1ull << 40);
    });
    std::vector<double> l_adValues = {1};
    EXPECT_EQ(l_cSession.Client().ReadCurrentParameterValues(l_adValues), FAILURE);
    EXPECT_TRUE(l_adValues.empty());
    EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Error: cannot allocate memory"}));
  }
  {
    Model l_cModel(NULL, wxT("m"), 1, 2);
    RegisteredSession l_cSession(l_cModel, [](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.Close();
    });
    std::vector<double> l_adValues = {1};
    EXPECT_EQ(l_cSession.Client().ReadCurrentPlaceValues(l_adValues), FAILURE);
    EXPECT_TRUE(l_adValues.empty());
    EXPECT_EQ(l_cModel.GetCurrentMarking()->size(), 2u);
  }
}

// Requests 20 to 23: model removal, settings, result-matrix info.

TEST(ClientRequest20, RemoveModelSendsTheNameAndReceivesTheResult) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvString();
    p.SendValue<int32_t>(-5);
  });
  int l_nResult = 0;
  EXPECT_EQ(l_cSession.Client().RemoveModel(wxT("net"), l_nResult), 1u);
  EXPECT_EQ(l_nResult, -5);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(20), StringFrame("net"), Acks(1)})));
}

TEST(ClientRequest21, SendSimulatorSettingSendsTheNameThenTheSettings) {
  SimulatorAttribute l_cSettings;
  l_cSettings.AddAttribute(wxT("steps"), wxT("Steps"), wxT("10"), 2, 1.0, 100.0);
  l_cSettings.SetPossibleValues(0, {wxT("a")});
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvString();
    p.RecvValue<uint32_t>();
    // One entry, its fields in key order.
    p.RecvString();                // CAPTION
    p.RecvValue<uint32_t>();       // GUI_TYPE
    p.RecvValue<double>();         // MAX_VALUE
    p.RecvValue<double>();         // MIN_VALUE
    p.RecvString();                // NAME
    uint32_t l_nTotal = p.RecvValue<uint32_t>();
    uint64_t l_nNames = p.RecvValue<uint64_t>();
    if (l_nNames) p.RecvFrame(l_nNames * 2);
    p.RecvFrame(l_nTotal);         // POSSIBLE_VALUES
    p.RecvString();                // VALUE
  });
  EXPECT_EQ(l_cSession.Client().SendSimulatorSetting(wxT("euler"), &l_cSettings), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Code(21), StringFrame("euler"), Le<uint32_t>(1), StringFrame("Steps"),
                       Le<uint32_t>(2), Le(100.0), Le(1.0), StringFrame("steps"),
                       Le<uint32_t>(1), Le<uint64_t>(1), Hex("01 00"), Text("a"),
                       StringFrame("10")})));
}

TEST(ClientRequest22, ReceiveSimulatorSettingSendsTheNameAndReceivesTheSettings) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvString();
    p.SendValue<uint32_t>(1);
    p.SendString("Order");
    p.SendValue<uint32_t>(3);
    p.SendValue(5.0);
    p.SendValue(1.0);
    p.SendString("order");
    p.SendValue<uint32_t>(2);
    p.SendValue<uint64_t>(2);
    p.SendFrame(Hex("01 00 01 00"));
    p.SendFrame(Text("xy"));
    p.SendString("4");
  });
  SimulatorAttribute l_cSettings;
  l_cSettings.AddAttribute(wxT("old"), wxT("Old"), wxT("0"), 0, 0.0, 0.0);
  l_cSettings.AddAttribute(wxT("old2"), wxT("Old2"), wxT("0"), 0, 0.0, 0.0);
  EXPECT_EQ(l_cSession.Client().ReceiveSimulatorSetting(wxT("rk"), &l_cSettings), 1u);
  ASSERT_EQ(l_cSettings.size(), 1u);
  wxString l_sName, l_sCaption, l_sValue;
  unsigned int l_nGui = 0;
  double l_dMin = 0, l_dMax = 0;
  ASSERT_TRUE(l_cSettings.GetAttribute(0, l_sName, l_sCaption, l_sValue, l_nGui, l_dMin, l_dMax));
  EXPECT_EQ(l_sName, wxT("order"));
  EXPECT_EQ(l_sCaption, wxT("Order"));
  EXPECT_EQ(l_sValue, wxT("4"));
  EXPECT_EQ(l_nGui, 3u);
  EXPECT_EQ(l_dMin, 1.0);
  EXPECT_EQ(l_dMax, 5.0);
  EXPECT_EQ(l_cSettings.GetPossibleValues(0), (std::vector<wxString>{wxT("x"), wxT("y")}));
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(22), StringFrame("rk"), Acks(14)})));
}

TEST(ClientRequest23, UpdateResultMatrixInfoSendsLengthAndPackedRows) {
  ResultMatrixInfo l_cInfo(2);
  l_cInfo.SetRowInfo(0, 7, RM_ROW_TYPE_TRANSITION);
  l_cInfo.SetRowInfo(1, 9, RM_ROW_TYPE_OBSERVER);
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    uint64_t l_nLength = p.RecvValue<uint64_t>();
    p.RecvFrame(l_nLength);
  });
  EXPECT_EQ(l_cSession.Client().UpdateResultMatrixInfo(&l_cInfo), 1u);
  const Bytes l_aPacked = Cat({Le<uint32_t>(2), Le<uint32_t>(2), Le<int32_t>(7), Le<int32_t>(9),
                               Le<uint32_t>(2), Le<int32_t>(1), Le<int32_t>(3)});
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Code(23), Le<uint64_t>(l_aPacked.size()), l_aPacked})));
}

// Requests 25 to 36.

TEST(ClientRequest25And33, ErrorAndLogMessagesAreOneString) {
  for (int32_t l_nCode : {25, 33}) {
    SCOPED_TRACE(l_nCode);
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.SendString("went wrong");
    });
    wxString l_sMessage;
    const unsigned int l_nResult = l_nCode == 25
                                       ? l_cSession.Client().ReceiveErrorMessage(l_sMessage)
                                       : l_cSession.Client().ReadLogMessage(l_sMessage);
    EXPECT_EQ(l_nResult, 1u);
    EXPECT_EQ(l_sMessage, wxT("went wrong"));
    EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(l_nCode), Acks(2)})));
  }
}

TEST(ClientRequest26, ChanageSimulatorSpeedSendsFourBytes) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvValue<uint32_t>();
  });
  EXPECT_EQ(l_cSession.Client().ChanageSimulatorSpeed(250), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(26), Le<uint32_t>(250)})));
}

TEST(ClientRequest27And28, SteeredPositionsAreACountAndOneArrayFrame) {
  for (int32_t l_nCode : {27, 28}) {
    SCOPED_TRACE(l_nCode);
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      uint64_t l_nCount = p.RecvValue<uint64_t>();
      p.RecvFrame(l_nCount * 8);
    });
    const std::vector<unsigned long long> l_an = {3, 5};
    const unsigned int l_nResult = l_nCode == 27
                                       ? l_cSession.Client().SendSteeredParamPositions(l_an)
                                       : l_cSession.Client().SendSteeredPlacePositions(l_an);
    EXPECT_EQ(l_nResult, 1u);
    EXPECT_EQ(ToHex(l_cSession.FromClient()),
              ToHex(Cat({Code(l_nCode), Le<uint64_t>(2), Le<uint64_t>(3), Le<uint64_t>(5)})));
  }
}

TEST(ClientRequest27And28, NoPositionsIsTheCountZeroAlone) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvValue<uint64_t>();
    p.RecvValue<int32_t>();  // the next request's code
  });
  EXPECT_EQ(l_cSession.Client().SendSteeredPlacePositions({}), 1u);
  EXPECT_EQ(l_cSession.Client().ResetMarkingValues(), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(28), Le<uint64_t>(0), Code(32)})));
}

TEST(ClientRequest29And30, ReceiveSteeredPositionsReadsCountAndValues) {
  for (int32_t l_nCode : {29, 30}) {
    SCOPED_TRACE(l_nCode);
    ClientSession l_cSession([](RawPeer& p) {
      p.RecvValue<int32_t>();
      p.SendValue<uint64_t>(3);
      p.SendFrame(Cat({Le<uint64_t>(4), Le<uint64_t>(1), Le<uint64_t>(9)}));
      p.RecvValue<int32_t>();
      p.SendValue<uint64_t>(0);
    });
    std::vector<unsigned long long> l_an = {77};
    auto l_fRead = [&] {
      return l_nCode == 29 ? l_cSession.Client().ReceiveSteeredParamPositions(l_an)
                           : l_cSession.Client().ReceiveSteeredPlacePositions(l_an);
    };
    EXPECT_EQ(l_fRead(), 1u);
    EXPECT_EQ(l_an, (std::vector<unsigned long long>{4, 1, 9}));
    EXPECT_EQ(l_fRead(), 1u);
    EXPECT_TRUE(l_an.empty());
    EXPECT_EQ(ToHex(l_cSession.FromClient()),
              ToHex(Cat({Code(l_nCode), Acks(2), Code(l_nCode), Acks(1)})));
  }
}

TEST(ClientRequest29And30, ACountNoFrameCanCarryIsFailure) {
  LogCapture l_cLog;
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.SendValue<uint64_t>(0x20000000ull);  // 4 GiB of positions
  });
  std::vector<unsigned long long> l_an = {1};
  EXPECT_EQ(l_cSession.Client().ReceiveSteeredParamPositions(l_an), FAILURE);
  EXPECT_TRUE(l_an.empty());
  EXPECT_EQ(l_cLog.Texts(), (std::vector<std::string>{"Error: cannot allocate memory"}));
}

TEST(ClientRequest31And32, ResetsAreTheCodeAlone) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
  });
  EXPECT_EQ(l_cSession.Client().ResetParameterValues(), 1u);
  EXPECT_EQ(l_cSession.Client().ResetMarkingValues(), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(31), Code(32)})));
}

TEST(ClientRequest34, WriteCurrentSimulatorNameSendsTwoStrings) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvString();
    p.RecvString();
  });
  EXPECT_EQ(l_cSession.Client().WriteCurrentSimulatorName(wxT("ODE"), wxT("euler")), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Code(34), StringFrame("ODE"), StringFrame("euler")})));
}

TEST(ClientRequest34, AFailedFirstNameDoesNotStopTheSecond) {
  // The first name's count is never acknowledged (it fails after the
  // socket's own one-second timeout, within the request's deadline of the
  // client's ten seconds); the second name follows and its result counts.
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.Read(8);
    p.RecvString();
  });
  l_cSession.Client().GetClientSocket()->SetTimeout(1);
  EXPECT_EQ(l_cSession.Client().WriteCurrentSimulatorName(wxT("ODE"), wxT("euler")), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()),
            ToHex(Cat({Code(34), Le<uint64_t>(3), StringFrame("euler")})));
}

TEST(ClientRequest35, WriteSimulatorStateSendsFourBytes) {
  ClientSession l_cSession([](RawPeer& p) {
    p.RecvValue<int32_t>();
    p.RecvValue<int32_t>();
  });
  EXPECT_EQ(l_cSession.Client().WriteSimulatorState(-1), 1u);
  EXPECT_EQ(ToHex(l_cSession.FromClient()), ToHex(Cat({Code(35), Le<int32_t>(-1)})));
}

TEST(ClientRequest36, WriteModelStatisticsSendsTheStatesAttributeList) {
  ModelRuntimeState l_cState;
  l_cState.SetAttributeValue(wxT("SIMULATOR_SPEED"), 4);
  l_cState.SetAttributeValue(wxT("ERROR_STATE"), 1);
  const Bytes l_aExpected = PackedAttributes(l_cState);
  Bytes l_aBlock;
  ClientSession l_cSession([&](RawPeer& p) {
    p.RecvValue<int32_t>();
    RecvBlockInto(p, &l_aBlock);
  });
  EXPECT_EQ(l_cSession.Client().WriteModelStatistics(l_cState), 1u);
  const Bytes l_aFromClient = l_cSession.FromClient();
  EXPECT_EQ(ToHex(l_aBlock), ToHex(l_aExpected));
  EXPECT_EQ(ToHex(Bytes(l_aFromClient.begin(), l_aFromClient.begin() + 12)),
            ToHex(Cat({Code(36), Le<uint64_t>(l_aExpected.size())})));
  EXPECT_EQ(l_cState.GetClientSocket(), l_cSession.Client().GetClientSocket());
}

// Failure rows.

namespace {

// One request with its results when the code frame fails on a client that
// is not connected (the transfer's 2), when it fails on a connection whose
// server has gone (a socket error, 3, after which the socket counts as not
// connected, so that frames sent anyway give 2), and when the code went
// through and the server then stopped sending (the request's next frame
// meets the end of the stream: 3, and 2 for frames after it).
struct FailureRow {
  const char* name;
  std::function<unsigned int(SteeringClient&)> op;
  unsigned int notConnected;
  unsigned int serverGone;
  unsigned int payloadLost;
};

std::vector<FailureRow> FailureRows() {
  static std::vector<std::vector<double> > s_aad = {{1.0}};
  static std::vector<double> s_ad;
  static std::vector<unsigned long long> s_an;
  static std::vector<wxString> s_as;
  static std::vector<QU_SimulatorCategory> s_ac;
  static wxString s_s1, s_s2;
  static double s_d1, s_d2, s_d3;
  static int s_n;
  static ModelRuntimeState s_cState;
  static SimulatorAttribute s_cSettings;
  static ResultMatrixInfo s_cInfo(1);
  const unsigned int F = FAILURE;
  return {
      {"Initialize", [](SteeringClient& c) { return c.Initialize(1); }, 2, 3, 3},
      {"CMD_Pause", [](SteeringClient& c) { return c.CMD_Pause(); }, F, F, F},
      {"CMD_Resume", [](SteeringClient& c) { return c.CMD_Resume(); }, F, F, F},
      {"CMD_Stop", [](SteeringClient& c) { return c.CMD_Stop(); }, F, F, F},
      {"Send_CMD", [](SteeringClient& c) { return c.Send_CMD(CMD_STOP); }, F, F, F},
      {"Send_CMD value", [](SteeringClient& c) { return c.Send_CMD(CMD_STOP, 1.0); }, F, F, F},
      {"CMD_Start", [](SteeringClient& c) { return c.CMD_Start(wxT("s"), 0, 1, 1); }, 2, 2, 2},
      {"CMD_Restart", [](SteeringClient& c) { return c.CMD_Restart(wxT("s"), 0, 1, 1); }, 2, 2,
       2},
      {"GetRuningModelNames", [](SteeringClient& c) { return c.GetRuningModelNames(s_as); }, F,
       F, 3},
      {"ReadResultMatrix", [](SteeringClient& c) { return c.ReadResultMatrix(s_aad); }, 0, 0, 3},
      {"ReadRateMatrix", [](SteeringClient& c) { return c.ReadRateMatrix(s_aad); }, 0, 0, 3},
      // The matrix send reports success whatever its frames did.
      {"WriteResultMatrix", [](SteeringClient& c) { return c.WriteResultMatrix(s_aad); }, 0, 0,
       1},
      {"_ChangeCurrentModel", [](SteeringClient& c) { return c._ChangeCurrentModel(0); }, F, F,
       F},
      {"ReadSimulatorState", [](SteeringClient& c) { return c.ReadSimulatorState(s_n); }, F, F,
       3},
      {"ReadSimulationInterval",
       [](SteeringClient& c) { return c.ReadSimulationInterval(s_d1, s_d2, s_d3); }, F, F, F},
      // The simulator lists report success whatever their frames did.
      {"ReadAvailableSimulators",
       [](SteeringClient& c) { return c.ReadAvailableSimulators(s_ac); }, F, F, 1},
      {"WriteAvailableSimulators",
       [](SteeringClient& c) { return c.WriteAvailableSimulators(TwoCategories()); }, F, F, 1},
      {"ReadCurrentSimulatorName",
       [](SteeringClient& c) { return c.ReadCurrentSimulatorName(s_s1, s_s2); }, F, F, 2},
      {"ReadModelViews", [](SteeringClient& c) { return c.ReadModelViews(); }, F, F, 3},
      {"WriteModelViews", [](SteeringClient& c) { return c.WriteModelViews(); }, F, F, 2},
      {"ReadModelStatistics", [](SteeringClient& c) { return c.ReadModelStatistics(s_cState); },
       F, F, 3},
      {"ChangeCurrentParameterValues",
       [](SteeringClient& c) { return c.ChangeCurrentParameterValues(0, 1.0); }, F, F, 3},
      {"ChangeCurrentPlaceValues",
       [](SteeringClient& c) { return c.ChangeCurrentPlaceValues(0, 1.0); }, F, F, 3},
      {"ReadCurrentParameterValues",
       [](SteeringClient& c) { return c.ReadCurrentParameterValues(s_ad); }, 2, 3, F},
      {"ReadCurrentPlaceValues", [](SteeringClient& c) { return c.ReadCurrentPlaceValues(s_ad); },
       2, 3, F},
      {"RemoveModel", [](SteeringClient& c) { return c.RemoveModel(wxT("m"), s_n); }, 2, 3, 3},
      {"SendSimulatorSetting",
       [](SteeringClient& c) { return c.SendSimulatorSetting(wxT("s"), &s_cSettings); }, 2, 3, 3},
      {"ReceiveSimulatorSetting",
       [](SteeringClient& c) { return c.ReceiveSimulatorSetting(wxT("s"), &s_cSettings); }, 2, 3,
       3},
      {"UpdateResultMatrixInfo", [](SteeringClient& c) { return c.UpdateResultMatrixInfo(&s_cInfo); },
       2, 3, 3},
      {"ReceiveErrorMessage", [](SteeringClient& c) { return c.ReceiveErrorMessage(s_s1); }, 2, 3,
       3},
      {"ChanageSimulatorSpeed", [](SteeringClient& c) { return c.ChanageSimulatorSpeed(1); }, 2,
       3, 3},
      {"SendSteeredParamPositions",
       [](SteeringClient& c) { return c.SendSteeredParamPositions({1}); }, 2, 3, 3},
      {"SendSteeredPlacePositions",
       [](SteeringClient& c) { return c.SendSteeredPlacePositions({1}); }, 2, 3, 3},
      {"ReceiveSteeredParamPositions",
       [](SteeringClient& c) { return c.ReceiveSteeredParamPositions(s_an); }, 2, 3, F},
      {"ReceiveSteeredPlacePositions",
       [](SteeringClient& c) { return c.ReceiveSteeredPlacePositions(s_an); }, 2, 3, F},
      // Nothing follows the code of the resets.
      {"ResetParameterValues", [](SteeringClient& c) { return c.ResetParameterValues(); }, 2, 3,
       1},
      {"ResetMarkingValues", [](SteeringClient& c) { return c.ResetMarkingValues(); }, 2, 3, 1},
      {"ReadLogMessage", [](SteeringClient& c) { return c.ReadLogMessage(s_s1); }, 2, 3, 3},
      {"WriteCurrentSimulatorName",
       [](SteeringClient& c) { return c.WriteCurrentSimulatorName(wxT("a"), wxT("b")); }, F, F,
       2},
      {"WriteSimulatorState", [](SteeringClient& c) { return c.WriteSimulatorState(1); }, F, F,
       3},
      {"WriteModelStatistics", [](SteeringClient& c) { return c.WriteModelStatistics(s_cState); },
       F, F, 3},
  };
}

}  // namespace

TEST(ClientFailure, ACodeFrameOnAClientThatIsNotConnected) {
  for (const FailureRow& l_cRow : FailureRows()) {
    SCOPED_TRACE(l_cRow.name);
    ClientSession l_cSession([](RawPeer& p) { p.WaitForClose(5000); });
    l_cSession.Client().DisConnectFromServer();
    EXPECT_EQ(l_cRow.op(l_cSession.Client()), l_cRow.notConnected);
    // Nothing reached the wire.
    EXPECT_TRUE(l_cSession.FromClient().empty());
    EXPECT_EQ(l_cSession.Client().GetModel(), nullptr);
  }
}

TEST(ClientFailure, ACodeFrameToAServerThatHasGone) {
  for (const FailureRow& l_cRow : FailureRows()) {
    SCOPED_TRACE(l_cRow.name);
    ClientSession l_cSession([](RawPeer& p) { p.Close(); });
    l_cSession.Server().Join();
    EXPECT_EQ(l_cRow.op(l_cSession.Client()), l_cRow.serverGone);
  }
}

TEST(ClientFailure, APayloadFrameAfterTheServerStoppedSending) {
  // The server takes the request code and shuts its sending side: the
  // request's next frame fails. The client is registered so that the model
  // rows have a model.
  for (const FailureRow& l_cRow : FailureRows()) {
    if (std::string(l_cRow.name) == "Initialize") continue;
    SCOPED_TRACE(l_cRow.name);
    Model l_cModel(NULL, wxT("m"), 1, 1);
    RegisteredSession l_cSession(l_cModel, [](RawPeer& p) {
      p.RecvValue<int32_t>();
      ::shutdown(p.Fd(), SHUT_WR);
    });
    EXPECT_EQ(l_cRow.op(l_cSession.Client()), l_cRow.payloadLost);
    EXPECT_EQ(l_cSession.Client().GetModel(), &l_cModel);
  }
}
