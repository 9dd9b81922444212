// SPDX-License-Identifier: MIT
// Public names of the library: attribute keys, the simulator and error
// states, result codes, and the lookup that never inserts.
#include <gtest/gtest.h>

#include "quor/attributeVector.h"
#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/simulatorState.h"
#include "quor/steeringvector.h"

using namespace quor;

TEST(FindAttribute, MissingKeyInsertsNothing) {
  Model l_cModel(NULL, wxT("m"), 1, 2);
  const size_t l_nBefore = l_cModel.GetAttributeList()->size();
  EXPECT_EQ(l_cModel.FindAttribute(wxT("NO_SUCH_KEY")), nullptr);
  EXPECT_EQ(l_cModel.FindAttribute<AttributeInt>(wxT("NO_SUCH_KEY")), nullptr);
  EXPECT_EQ((l_cModel.FindValue<AttributeInt, int>(wxT("NO_SUCH_KEY"), 42)), 42);
  EXPECT_EQ(l_cModel.GetAttributeList()->size(), l_nBefore);
  EXPECT_EQ(l_cModel.GetAttributeList()->count(wxT("NO_SUCH_KEY")), 0u);
}

TEST(FindAttribute, MistypedKeyGivesNullAndChangesNothing) {
  Model l_cModel(NULL, wxT("m"), 1, 2);
  const size_t l_nBefore = l_cModel.GetAttributeList()->size();
  // MODEL_NAME is a plain string attribute, not a double.
  EXPECT_EQ(l_cModel.FindAttribute<AttributeDouble>(keys::MODEL_NAME), nullptr);
  EXPECT_EQ((l_cModel.FindValue<AttributeDouble, double>(keys::MODEL_NAME, -1.5)), -1.5);
  EXPECT_EQ(l_cModel.GetAttributeValueString(keys::MODEL_NAME), wxT("m"));
  EXPECT_EQ(l_cModel.GetAttributeList()->size(), l_nBefore);
}

TEST(FindAttribute, FindsAttributesOfTheirClass) {
  Model l_cModel(NULL, wxT("m"), 1, 2);
  AttributeVectorDouble* l_pcMarking = l_cModel.FindAttribute<AttributeVectorDouble>(keys::INITIAL_MARKING);
  ASSERT_NE(l_pcMarking, nullptr);
  EXPECT_EQ(l_pcMarking->GetValue().size(), 2u);
  EXPECT_EQ((l_cModel.FindValue<AttributeDouble, double>(keys::END_OUTPUT_POINT, 0.0)), 100.0);
}

TEST(Keys, ModelSchemaUsesTheNamedKeys) {
  Model l_cModel(NULL, wxT("m"), 0, 0);
  for (const wxChar* l_sKey :
       {keys::MODEL_TYPE, keys::MODEL_NAME, keys::NET_TYPE, keys::PLACE_COUNT, keys::TRANSITION_COUNT,
        keys::PLACE_NAMES, keys::TRANSITION_NAMES, keys::TRANSITION_FUNCTIONS, keys::PARAMETER_NAMES,
        keys::PLACE_TYPES, keys::TRANSITION_TYPES, keys::TRANSITION_CONNECTION, keys::INITIAL_MARKING,
        keys::CURRENT_MARKING, keys::INITIAL_PARAM_VALUES, keys::CURRENT_PARAM_VALUES,
        keys::STEERED_PARAM, keys::STEERED_PLACES, keys::START_OUTPUT_POINT, keys::END_OUTPUT_POINT,
        keys::SAMPLE_POINT_SIZE, keys::CURRENT_ACTIVE_VIEW})
    EXPECT_NE(l_cModel.FindAttribute(l_sKey), nullptr) << wxString(l_sKey);
  EXPECT_EQ(l_cModel.GetAttributeList()->size(), 22u);
}

TEST(Keys, RuntimeStateAndViewSchemasUseTheNamedKeys) {
  ModelRuntimeState l_cState;
  for (const wxChar* l_sKey :
       {keys::SIMULATOR_STATE, keys::SIMULATOR_RUNTIME, keys::SIMULATOR_PROGRESS, keys::ERROR_STATE,
        keys::SIMULATOR_CATEGORY, keys::CURRENT_SIMULATOR_ALGORITHM, keys::SIMULATOR_SPEED})
    EXPECT_NE(l_cState.FindAttribute(l_sKey), nullptr) << wxString(l_sKey);
  ModelView l_cView(wxT("v"), NULL);
  EXPECT_NE(l_cView.FindAttribute(keys::LEGEND_VERTICAl_POSITION), nullptr);
  EXPECT_NE(l_cView.FindAttribute(keys::CURVE_INFO), nullptr);
}

TEST(SimulatorState, NamesAndValues) {
  EXPECT_STREQ(SimulatorStateName(SIMULATOR_IDLE), "idle");
  EXPECT_STREQ(SimulatorStateName(SIMULATOR_RUNNING), "running");
  EXPECT_STREQ(SimulatorStateName(SIMULATOR_PAUSED), "paused");
  EXPECT_STREQ(SimulatorStateName(SIMULATOR_STOPPED), "stopped");
  EXPECT_STREQ(SimulatorStateName(SIMULATOR_FINISHED), "finished");
  EXPECT_STREQ(SimulatorStateName(SIMULATOR_FAILED), "failed");
  EXPECT_STREQ(SimulatorStateName(6), "unknown");
  EXPECT_STREQ(SimulatorStateName(-1), "unknown");
  EXPECT_EQ(SIMULATOR_FAILED, 5);
  EXPECT_STREQ(SimulatorErrorStateName(SIMULATOR_ERROR_REFUSED), "refused");
  int l_nState = -1;
  EXPECT_TRUE(ParseSimulatorState("Paused", &l_nState));
  EXPECT_EQ(l_nState, SIMULATOR_PAUSED);
  EXPECT_FALSE(ParseSimulatorState("sleeping", &l_nState));
  EXPECT_TRUE(IsRunActive(SIMULATOR_PAUSED));
  EXPECT_FALSE(IsRunActive(SIMULATOR_FINISHED));
}

TEST(ResultName, NamesEveryLibraryCode) {
  EXPECT_EQ(TRANSFER_NOT_CONNECTED, 2u);
  EXPECT_EQ(TRANSFER_SOCKET_ERROR, 3u);
  EXPECT_EQ(TRANSFER_SHORT_WRITE, 4u);
  EXPECT_EQ(ResultName(SUCCESS), wxT("success"));
  EXPECT_EQ(ResultName(FAILURE), wxT("failure"));
  EXPECT_EQ(ResultName(VERSION_MISMATCH), wxT("version mismatch"));
  EXPECT_EQ(ResultName(TRANSFER_SOCKET_ERROR), wxT("socket error"));
  EXPECT_EQ(ResultName(77), wxT("result 77"));
}
