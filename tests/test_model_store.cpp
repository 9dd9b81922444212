// SPDX-License-Identifier: MIT
// SteeringModelStore: snapshots that are handed out without a copy and never
// change under their reader, results published a column at a time, and the
// bounds on what clients can make the store keep.
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringhandler.h"
#include "quor/steeringmodelstore.h"

using namespace quor;

namespace {

Model* SmallModel(const wxString& p_sName) {
  Model* l_pcModel = new Model(NULL, p_sName, 2, 3);
  l_pcModel->SetPlaceNames({wxT("A"), wxT("B"), wxT("C")});
  l_pcModel->SetTransitionNames({wxT("t1"), wxT("t2")});
  l_pcModel->SetAttributeValue(wxT("PARAMETER_NAMES"), std::vector<wxString>{wxT("k")});
  l_pcModel->SetCurrentParameterValues({0.5});
  l_pcModel->SetInitialParameterValues({0.5});
  l_pcModel->AddModelView(new ModelView(wxT("marking"), NULL));
  return l_pcModel;
}

double Parameter(const Model& p_cModel) {
  return const_cast<Model&>(p_cModel)
      .FindValue<AttributeVectorDouble>(keys::CURRENT_PARAM_VALUES, std::vector<double>())
      .at(0);
}

// Matrices.

TEST(StoreSnapshots, AMatrixIsHandedOutWithoutACopyUntilItChanges) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  l_cStore.SetResultMatrix(l_nId, SteeringMatrix{{1, 2}, {3, 4}});
  const SteeringMatrixSnapshot l_pcFirst = l_cStore.ShareResultMatrix(l_nId);
  const SteeringMatrixSnapshot l_pcSecond = l_cStore.ShareResultMatrix(l_nId);
  EXPECT_EQ(l_pcFirst.get(), l_pcSecond.get());
  EXPECT_EQ(*l_pcFirst, (SteeringMatrix{{1, 2}, {3, 4}}));
  // A reader's snapshot stays as it was; the store moves on.
  ASSERT_TRUE(l_cStore.AppendOutputPoint(l_nId, {5, 6}, {}));
  EXPECT_EQ(*l_pcFirst, (SteeringMatrix{{1, 2}, {3, 4}}));
  EXPECT_EQ(*l_cStore.ShareResultMatrix(l_nId), (SteeringMatrix{{1, 2, 5}, {3, 4, 6}}));
  EXPECT_EQ(l_cStore.GetResultMatrix(l_nId), (SteeringMatrix{{1, 2, 5}, {3, 4, 6}}));
}

TEST(StoreSnapshots, AppendingAColumnWhileNobodyReadsChangesTheMatrixInPlace) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  ASSERT_TRUE(l_cStore.AppendOutputPoint(l_nId, {1, 2, 3}, {0.1, 0.2}));
  const SteeringMatrix* l_pcMatrix = l_cStore.ShareResultMatrix(l_nId).get();
  const SteeringMatrix* l_pcRates = l_cStore.ShareRateMatrix(l_nId).get();
  for (int l_nPoint = 0; l_nPoint < 100; ++l_nPoint)
    ASSERT_TRUE(l_cStore.AppendOutputPoint(l_nId, {1, 2, 3}, {0.1, 0.2}));
  // The same matrix object, grown by a column per point.
  const SteeringMatrixSnapshot l_pcNow = l_cStore.ShareResultMatrix(l_nId);
  EXPECT_EQ(l_pcNow.get(), l_pcMatrix);
  EXPECT_EQ(l_cStore.ShareRateMatrix(l_nId).get(), l_pcRates);
  ASSERT_EQ(l_pcNow->size(), 3u);
  EXPECT_EQ((*l_pcNow)[2], std::vector<double>(101, 3.0));
  EXPECT_EQ(*l_cStore.ShareRateMatrix(l_nId),
            (SteeringMatrix{std::vector<double>(101, 0.1), std::vector<double>(101, 0.2)}));
}

TEST(StoreSnapshots, AColumnThatDoesNotFitChangesNothing) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  ASSERT_TRUE(l_cStore.AppendOutputPoint(l_nId, {1, 2}, {7}));
  EXPECT_FALSE(l_cStore.AppendOutputPoint(l_nId, {1, 2, 3}, {7}));
  EXPECT_FALSE(l_cStore.AppendOutputPoint(l_nId, {1, 2}, {7, 8}));
  EXPECT_FALSE(l_cStore.AppendOutputPoint(SteeringModelStore::NO_MODEL, {1}, {}));
  EXPECT_EQ(l_cStore.GetResultMatrix(l_nId), (SteeringMatrix{{1}, {2}}));
  EXPECT_EQ(l_cStore.GetRateMatrix(l_nId), (SteeringMatrix{{7}}));
}

TEST(StoreSnapshots, AMatrixSetWholeIsMovedInAndAnUnknownModelReadsEmpty) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  SteeringMatrix l_aadRates{{1, 2, 3}};
  const double* l_pValues = l_aadRates[0].data();
  l_cStore.SetRateMatrix(l_nId, std::move(l_aadRates));
  EXPECT_EQ(l_cStore.ShareRateMatrix(l_nId)->at(0).data(), l_pValues);
  EXPECT_EQ(l_cStore.ShareResultMatrix(SteeringModelStore::NO_MODEL), nullptr);
  EXPECT_TRUE(l_cStore.GetResultMatrix(SteeringModelStore::NO_MODEL).empty());
}

TEST(StoreSnapshots, ReadersAndAPublisherAtOnceEachSeeAWholeMatrix) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  const int POINTS = 2000;
  std::thread l_cPublisher([&] {
    for (int l_nPoint = 0; l_nPoint < POINTS; ++l_nPoint)
      l_cStore.AppendOutputPoint(l_nId, {double(l_nPoint), double(-l_nPoint)}, {});
  });
  size_t l_nBroken = 0;
  for (int l_nRead = 0; l_nRead < 500; ++l_nRead) {
    const SteeringMatrixSnapshot l_pcMatrix = l_cStore.ShareResultMatrix(l_nId);
    if (l_pcMatrix->empty()) continue;
    const std::vector<double>& l_adFirst = (*l_pcMatrix)[0];
    const std::vector<double>& l_adSecond = (*l_pcMatrix)[1];
    if (l_adFirst.size() != l_adSecond.size()) ++l_nBroken;
    for (size_t i = 0; i < l_adFirst.size(); ++i)
      if (l_adFirst[i] != double(i) || l_adSecond[i] != -double(i)) ++l_nBroken;
  }
  l_cPublisher.join();
  EXPECT_EQ(l_nBroken, 0u);
  EXPECT_EQ(l_cStore.ShareResultMatrix(l_nId)->at(0).size(), size_t(POINTS));
}

// Models.

TEST(StoreSnapshots, AModelIsHandedOutWithoutACopyAndAChangeLeavesTheSnapshot) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  const ModelSnapshot l_pcFirst = l_cStore.ShareModel(l_nId);
  EXPECT_EQ(l_cStore.ShareModel(l_nId).get(), l_pcFirst.get());
  ASSERT_TRUE(l_cStore.WithModel(l_nId, [](Model& p_rModel) { p_rModel.SetParameterValue(0, 9.0); }));
  EXPECT_EQ(Parameter(*l_pcFirst), 0.5);
  const ModelSnapshot l_pcSecond = l_cStore.ShareModel(l_nId);
  EXPECT_NE(l_pcSecond.get(), l_pcFirst.get());
  EXPECT_EQ(Parameter(*l_pcSecond), 9.0);
  EXPECT_EQ(l_cStore.GetParameterValues(l_nId), std::vector<double>{9.0});
  EXPECT_EQ(const_cast<Model&>(*l_pcSecond).GetModelViews()->size(), 1u);
}

TEST(StoreSnapshots, AChangeWhileNobodyHoldsTheModelWorksInPlace) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  const Model* l_pcBefore = l_cStore.ShareModel(l_nId).get();
  ASSERT_TRUE(l_cStore.WithModel(l_nId, [](Model& p_rModel) { p_rModel.SetParameterValue(0, 2.0); }));
  EXPECT_EQ(l_cStore.ShareModel(l_nId).get(), l_pcBefore);
  // A read costs no copy either, held snapshot or not.
  const ModelSnapshot l_pcHeld = l_cStore.ShareModel(l_nId);
  EXPECT_TRUE(l_cStore.ReadModel(l_nId, [](Model&) {}));
  EXPECT_EQ(l_cStore.ShareModel(l_nId).get(), l_pcHeld.get());
}

TEST(StoreSnapshots, ACopiedModelIsTheCallersAlone) {
  SteeringModelStore l_cStore;
  const int l_nId = l_cStore.AddModel(SmallModel(wxT("m")));
  std::unique_ptr<Model> l_pcCopy(l_cStore.CopyModel(l_nId));
  ASSERT_NE(l_pcCopy, nullptr);
  EXPECT_NE(l_pcCopy.get(), l_cStore.ShareModel(l_nId).get());
  EXPECT_EQ(l_pcCopy->GetModelName(), wxT("m"));
  EXPECT_EQ(Parameter(*l_pcCopy), 0.5);
  EXPECT_EQ(l_cStore.CopyModel(SteeringModelStore::NO_MODEL), nullptr);
}

// What clients can make the store keep.

TEST(StoreLimits, UploadedModelsAreCappedAndTheApplicationsAreNot) {
  SteeringModelStore l_cStore;
  EXPECT_EQ(l_cStore.GetMaxUploadedModels(), SteeringModelStore::DEFAULT_MAX_UPLOADED_MODELS);
  EXPECT_EQ(SteeringModelStore::DEFAULT_MAX_UPLOADED_MODELS, 64u);
  l_cStore.SetMaxUploadedModels(2);
  wxString l_sRefusal;
  EXPECT_NE(l_cStore.AddUploadedModel(SmallModel(wxT("u1")), &l_sRefusal), SteeringModelStore::NO_MODEL);
  EXPECT_NE(l_cStore.AddUploadedModel(SmallModel(wxT("u2")), &l_sRefusal), SteeringModelStore::NO_MODEL);
  EXPECT_TRUE(l_sRefusal.empty());
  EXPECT_EQ(l_cStore.AddUploadedModel(SmallModel(wxT("u3")), &l_sRefusal), SteeringModelStore::NO_MODEL);
  EXPECT_EQ(l_sRefusal, wxT("upload refused: the limit of 2 uploaded models is reached"));
  EXPECT_NE(l_cStore.AddModel(SmallModel(wxT("own"))), SteeringModelStore::NO_MODEL);
  // A removed upload makes room.
  EXPECT_TRUE(l_cStore.RemoveModel(wxT("u1")));
  EXPECT_NE(l_cStore.AddUploadedModel(SmallModel(wxT("u4"))), SteeringModelStore::NO_MODEL);
  EXPECT_EQ(l_cStore.GetModelNames(),
            (std::vector<wxString>{wxT("u2"), wxT("own"), wxT("u4")}));
}

TEST(StoreLimits, AnUploadedCountMustBeBackedByTheListsTheModelCarries) {
  SteeringModelStore l_cStore;
  // As a library model is built: every count backed.
  EXPECT_NE(l_cStore.AddUploadedModel(new Model(NULL, wxT("honest"), 1000, 2000)),
            SteeringModelStore::NO_MODEL);
  wxString l_sRefusal;
  Model* l_pcPlaces = new Model(NULL, wxT("places"), 0, 0);
  l_pcPlaces->SetAttributeValue(wxT("PLACE_COUNT"), static_cast<unsigned long long>(1ull << 26));
  EXPECT_EQ(l_cStore.AddUploadedModel(l_pcPlaces, &l_sRefusal), SteeringModelStore::NO_MODEL);
  EXPECT_EQ(l_sRefusal, wxT("upload refused: the model announces 67108864 places but carries fewer"));
  Model* l_pcTransitions = new Model(NULL, wxT("transitions"), 0, 3);
  l_pcTransitions->SetAttributeValue(wxT("TRANSITION_COUNT"), static_cast<unsigned long long>(5));
  EXPECT_EQ(l_cStore.AddUploadedModel(l_pcTransitions, &l_sRefusal), SteeringModelStore::NO_MODEL);
  EXPECT_EQ(l_sRefusal, wxT("upload refused: the model announces 5 transitions but carries fewer"));
  EXPECT_EQ(l_cStore.GetModelNames(), std::vector<wxString>{wxT("honest")});
}

TEST(StoreLimits, TheHandlerRefusesAnUploadReadablyAndLeavesNoCurrentModel) {
  SteeringHandler l_cHandler;
  l_cHandler.GetStore().SetMaxUploadedModels(0);
  const int l_nOwn = l_cHandler.GetStore().AddModel(SmallModel(wxT("own")));
  l_cHandler.GetStore().SetCurrentModel(4, l_nOwn);
  l_cHandler.OnUploadModel(4, SmallModel(wxT("mine")));
  EXPECT_EQ(l_cHandler.CurrentModel(4), SteeringModelStore::NO_MODEL);
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(4),
            wxT("upload refused: the limit of 0 uploaded models is reached"));
  EXPECT_EQ(l_cHandler.GetStore().GetModelNames(), std::vector<wxString>{wxT("own")});
}

TEST(StoreLimits, SettingsAreKeptForABoundedNumberOfSimulators) {
  SteeringHandler l_cHandler;
  SimulatorAttribute l_cSettings;
  l_cSettings.AddAttribute(wxT("seed"), wxT("Seed"), wxT("1"), 1, 0.0, 10.0);
  for (size_t i = 0; i < SteeringModelStore::MAX_SIMULATOR_SETTINGS; ++i)
    ASSERT_TRUE(l_cHandler.GetStore().SetSimulatorSettings(wxString::Format(wxT("s%zu"), i),
                                                           l_cSettings));
  // A known name is replaced; a new one is refused.
  EXPECT_TRUE(l_cHandler.GetStore().SetSimulatorSettings(wxT("s0"), l_cSettings));
  l_cHandler.OnSendSimulatorSetting(2, wxT("one more"), l_cSettings);
  SimulatorAttribute l_cRead;
  EXPECT_FALSE(l_cHandler.GetStore().GetSimulatorSettings(wxT("one more"), l_cRead));
  EXPECT_EQ(l_cHandler.OnReceiveErrorMessage(2),
            wxT("settings refused: settings of 256 simulators are kept already"));
}

}  // namespace
