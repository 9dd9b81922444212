// SPDX-License-Identifier: MIT
// Nets, output grids and numbers as text.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "simcore/builtinModels.h"
#include "simcore/net.h"
#include "simcore/simulator.h"
#include "simcore/textNumbers.h"

using namespace quor::sim;

TEST(OutputGrid, CountsPointsIncludingTheEnd) {
  OutputGrid l_cGrid;
  EXPECT_EQ(l_cGrid.Count(), 101u);  // 0..100 step 1
  l_cGrid.start = 0.0;
  l_cGrid.end = 1.0;
  l_cGrid.step = 0.1;  // 10 intervals up to rounding
  EXPECT_EQ(l_cGrid.Count(), 11u);
  EXPECT_DOUBLE_EQ(l_cGrid.At(10), 1.0);
  l_cGrid.end = 1.05;  // not a whole number of steps: the end is not a point
  EXPECT_EQ(l_cGrid.Count(), 11u);
  l_cGrid.start = 2.0;
  l_cGrid.end = 2.0;
  EXPECT_EQ(l_cGrid.Count(), 1u);
  EXPECT_EQ(l_cGrid.At(0), 2.0);
  l_cGrid.start = -3.0;
  l_cGrid.end = 3.0;
  l_cGrid.step = 1.5;
  EXPECT_EQ(l_cGrid.Count(), 5u);
  EXPECT_EQ(l_cGrid.At(4), 3.0);
}

TEST(OutputGrid, RejectsUnusableGrids) {
  OutputGrid l_cGrid;
  l_cGrid.step = 0.0;
  EXPECT_NE(l_cGrid.Check().find("greater than 0"), std::string::npos);
  EXPECT_EQ(l_cGrid.Count(), 0u);
  l_cGrid.step = -1.0;
  EXPECT_FALSE(l_cGrid.Check().empty());
  l_cGrid.step = 1.0;
  l_cGrid.end = -1.0;
  EXPECT_NE(l_cGrid.Check().find("before it starts"), std::string::npos);
  l_cGrid.end = std::numeric_limits<double>::infinity();
  EXPECT_NE(l_cGrid.Check().find("finite"), std::string::npos);
  l_cGrid.end = 1e9;
  l_cGrid.step = 1e-3;
  EXPECT_NE(l_cGrid.Check().find("more than"), std::string::npos);
  l_cGrid.step = 1e3;
  EXPECT_EQ(l_cGrid.Check(), "");
}

TEST(Net, ValidateFindsProblems) {
  Net l_cNet = SirNet();
  EXPECT_EQ(l_cNet.Validate(), "");
  EXPECT_EQ(l_cNet.FindPlace("I"), 1u);
  EXPECT_EQ(l_cNet.FindTransition("recovery"), 1u);
  EXPECT_EQ(l_cNet.FindParameter("gamma"), 1u);
  EXPECT_EQ(l_cNet.FindPlace("X"), kNoIndex);

  Net l_cCopy = l_cNet;
  l_cCopy.places[2].id = "S";
  EXPECT_NE(l_cCopy.Validate().find("'S' is used twice"), std::string::npos);
  l_cCopy = l_cNet;
  l_cCopy.places[0].initialMarking = -1.0;
  EXPECT_NE(l_cCopy.Validate().find("place 'S'"), std::string::npos);
  l_cCopy = l_cNet;
  l_cCopy.parameters[0].value = std::nan("");
  EXPECT_NE(l_cCopy.Validate().find("parameter 'beta'"), std::string::npos);
  l_cCopy = l_cNet;
  l_cCopy.arcs[0].weight = -2.0;
  EXPECT_NE(l_cCopy.Validate().find("weight"), std::string::npos);
  l_cCopy = l_cNet;
  l_cCopy.arcs[0].place = 17;
  EXPECT_NE(l_cCopy.Validate().find("does not join"), std::string::npos);
  l_cCopy = l_cNet;
  l_cCopy.transitions[1].parameterName = "delta";
  EXPECT_NE(l_cCopy.Validate().find("unknown parameter 'delta'"), std::string::npos);
  EXPECT_THROW(l_cNet.AddInputArc("nowhere", "infection"), std::invalid_argument);
  EXPECT_THROW(l_cNet.AddOutputArc("infection", "nowhere"), std::invalid_argument);
}

TEST(Net, InitialStateAndCompiledArcs) {
  Net l_cNet = SirNet();
  NetState l_cState = l_cNet.InitialState();
  EXPECT_EQ(l_cState.time, 0.0);
  EXPECT_EQ(l_cState.marking, (std::vector<double>{990.0, 10.0, 0.0}));
  EXPECT_EQ(l_cState.parameters, (std::vector<double>{0.0003, 0.1}));
  std::unique_ptr<Simulator> l_pSimulator = CreateSimulator("continuous", l_cNet);
  ASSERT_TRUE(l_pSimulator);
  // infection: S + I -> 2 I changes S by -1 and I by +1 (one I consumed,
  // two produced).
  const CompiledTransition& l_rInfection = l_pSimulator->Compiled()[0];
  ASSERT_EQ(l_rInfection.inputs.size(), 2u);
  ASSERT_EQ(l_rInfection.change.size(), 2u);
  EXPECT_EQ(l_rInfection.change[0], (std::pair<std::size_t, double>(0, -1.0)));
  EXPECT_EQ(l_rInfection.change[1], (std::pair<std::size_t, double>(1, 1.0)));
  EXPECT_EQ(l_rInfection.parameter, 0u);
}

TEST(TextNumbers, ParseStrictlyAndFormatShortest) {
  double l_dValue = 0.0;
  EXPECT_TRUE(ParseDouble(" 0.25 ", l_dValue));
  EXPECT_EQ(l_dValue, 0.25);
  EXPECT_TRUE(ParseDouble("+3e-2", l_dValue));
  EXPECT_EQ(l_dValue, 0.03);
  EXPECT_TRUE(ParseDouble("-7", l_dValue));
  EXPECT_EQ(l_dValue, -7.0);
  l_dValue = 5.0;
  EXPECT_FALSE(ParseDouble("0,5", l_dValue));
  EXPECT_FALSE(ParseDouble("", l_dValue));
  EXPECT_FALSE(ParseDouble("1.0x", l_dValue));
  EXPECT_FALSE(ParseDouble("nan", l_dValue));
  EXPECT_FALSE(ParseDouble("1e999", l_dValue));
  EXPECT_FALSE(ParseDouble("+-1", l_dValue));
  EXPECT_EQ(l_dValue, 5.0);

  std::uint64_t l_nValue = 0;
  EXPECT_TRUE(ParseUInt64("18446744073709551615", l_nValue));
  EXPECT_EQ(l_nValue, 18446744073709551615ull);
  EXPECT_FALSE(ParseUInt64("-1", l_nValue));
  EXPECT_FALSE(ParseUInt64("1e3", l_nValue));
  EXPECT_FALSE(ParseUInt64("", l_nValue));

  EXPECT_EQ(FormatDouble(0.1), "0.1");
  EXPECT_EQ(FormatDouble(1e-9), "1e-09");
  EXPECT_EQ(FormatDouble(990.0), "990");
  double l_dThird = 1.0 / 3.0, l_dBack = 0.0;
  ASSERT_TRUE(ParseDouble(FormatDouble(l_dThird), l_dBack));
  EXPECT_EQ(l_dBack, l_dThird);
}
