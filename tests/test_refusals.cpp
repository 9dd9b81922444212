// SPDX-License-Identifier: MIT
// Refusals a client can read: every refusal of a connection is kept until
// that connection reads its error message, oldest first, one per line.
#include <gtest/gtest.h>

#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorState.h"
#include "quor/steeringhandler.h"

using namespace quor;

TEST(Refusals, ThreeRefusalsAreReadBackInOrderThenTheQueueIsEmpty) {
  SteeringHandler l_cHandler;
  l_cHandler.GetStore().SetCurrentModel(1, l_cHandler.GetStore().AddModel(new Model(NULL, wxT("m"), 0, 0)));
  l_cHandler.Refuse(1, wxT("start refused: a run is going on"));
  l_cHandler.Refuse(1, wxT("pause refused: no run is going on"));
  l_cHandler.Refuse(1, wxT("speed 5 refused"));
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(1),
            wxT("start refused: a run is going on\npause refused: no run is going on\nspeed 5 refused"));
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(1), wxT(""));
}

TEST(Refusals, BelongToTheConnectionThatWasRefused) {
  SteeringHandler l_cHandler;
  const int l_nModel = l_cHandler.GetStore().AddModel(new Model(NULL, wxT("m"), 0, 0));
  l_cHandler.GetStore().SetCurrentModel(1, l_nModel);
  l_cHandler.GetStore().SetCurrentModel(2, l_nModel);
  l_cHandler.Refuse(1, wxT("one"));
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(2), wxT(""));
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(1), wxT("one"));
}

TEST(Refusals, MarkTheModelsErrorStateAsRefused) {
  SteeringHandler l_cHandler;
  const int l_nModel = l_cHandler.GetStore().AddModel(new Model(NULL, wxT("m"), 0, 0));
  l_cHandler.GetStore().SetCurrentModel(1, l_nModel);
  l_cHandler.Refuse(1, wxT("no"));
  ModelRuntimeState l_cState;
  l_cHandler.GetStore().GetRuntimeState(l_nModel, l_cState);
  EXPECT_EQ(l_cState.GetAttributeValueInt(keys::ERROR_STATE), SIMULATOR_ERROR_REFUSED);
}

TEST(Refusals, WithoutRefusalsTheModelsErrorMessageIsRead) {
  SteeringHandler l_cHandler;
  const int l_nModel = l_cHandler.GetStore().AddModel(new Model(NULL, wxT("m"), 0, 0));
  l_cHandler.GetStore().SetCurrentModel(1, l_nModel);
  l_cHandler.GetStore().SetErrorMessage(l_nModel, wxT("step size too small"));
  l_cHandler.Refuse(1, wxT("refused"));
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(1), wxT("refused"));
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(1), wxT("step size too small"));
}

TEST(Refusals, TheQueueIsBoundedAndEachRefusalIsOneLine) {
  SteeringModelStore l_cStore;
  for (size_t i = 0; i < SteeringModelStore::MAX_QUEUED_REFUSALS + 10; ++i)
    l_cStore.AddRefusal(7, wxString::Format(wxT("r%zu"), i));
  l_cStore.AddRefusal(7, wxString(wxT('x'), 5000) + wxT("\nsecond line"));
  const std::vector<wxString> l_asQueue = l_cStore.TakeRefusals(7);
  ASSERT_EQ(l_asQueue.size(), SteeringModelStore::MAX_QUEUED_REFUSALS);
  EXPECT_EQ(l_asQueue.front(), wxT("r11"));
  EXPECT_EQ(l_asQueue.back().length(), SteeringModelStore::MAX_REFUSAL_LENGTH);
  EXPECT_EQ(l_asQueue.back().Find(wxT('\n')), wxNOT_FOUND);
  EXPECT_TRUE(l_cStore.TakeRefusals(7).empty());
}

TEST(Refusals, AreForgottenWithTheConnection) {
  SteeringModelStore l_cStore;
  l_cStore.AddRefusal(3, wxT("x"));
  l_cStore.ForgetConnection(3);
  EXPECT_TRUE(l_cStore.TakeRefusals(3).empty());
}
