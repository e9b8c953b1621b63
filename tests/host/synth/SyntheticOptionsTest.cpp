// SPDX-License-Identifier: Apache-2.0

#include "host/synth/SyntheticOptions.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace Synth {
namespace {

template <class Change>
std::string textAfter(const Change& change) {
  SurveyOptions options;
  change(options);
  const auto checked = checkOptions(options);
  return checked ? "" : checked.error();
}

TEST(SurveyOptions, DefaultsAreInRange) {
  EXPECT_EQ(textAfter([](SurveyOptions&) {}), "");
}

TEST(SurveyOptions, OutOfRangeIsToldWithTheValue) {
  EXPECT_EQ(
      textAfter([](SurveyOptions& o) { o.flightLines = 0; }),
      "synthetic survey: number of flight lines is out of range, found 0, expected 1 to 1000");
  EXPECT_EQ(textAfter([](SurveyOptions& o) { o.pointCount = 0; }),
            "synthetic survey: number of points is out of range, found 0, expected 1 to "
            "1000000000000");
  EXPECT_NE(textAfter([](SurveyOptions& o) { o.samplesPerPacket = 7; }), "");
  EXPECT_NE(textAfter([](SurveyOptions& o) { o.waveformNoise = 101; }), "");
  EXPECT_NE(textAfter([](SurveyOptions& o) { o.threadCount = -1; }), "");
}

TEST(SurveyOptions, NotANumberIsRefused) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(textAfter([&](SurveyOptions& o) { o.pulsesPerSquareMetre = nan; }), "");
  EXPECT_NE(textAfter([&](SurveyOptions& o) { o.rangeNoiseMetres = nan; }), "");
}

}  // namespace
}  // namespace Synth
