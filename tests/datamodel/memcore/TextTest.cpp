// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Text.hpp"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <limits>
#include <locale>

namespace MemCore {
namespace {

struct CommaPunctuation : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

/// A process-wide locale with a decimal comma, for C++ always and for C where one is installed.
class CommaLocale {
 public:
  CommaLocale() : former_(std::locale::global(std::locale(std::locale(), new CommaPunctuation))) {
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "nl_NL.UTF-8"}) {
      if (std::setlocale(LC_NUMERIC, name) != nullptr) break;
    }
  }
  ~CommaLocale() {
    std::locale::global(former_);
    std::setlocale(LC_NUMERIC, "C");
  }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;

 private:
  std::locale former_;
};

TEST(FormatFixed, HasSixDecimals) {
  EXPECT_EQ(formatFixed(1.5), "1.500000");
  EXPECT_EQ(formatFixed(-0.0), "-0.000000");
  EXPECT_EQ(formatFixed(1e15), "1000000000000000.000000");
}

TEST(FormatFixed, RoundsAsPrintfDoes) {
  for (const double value : {2.0000005, -0.0000005, 1.0 / 3, 2.5e-7, 6.02e23, -1e300, 5e-324}) {
    char expected[400];
    std::snprintf(expected, sizeof expected, "%f", value);
    EXPECT_EQ(formatFixed(value), expected);
  }
}

TEST(FormatFixed, WritesWhatIsNoNumberAsPrintfDoes) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(formatFixed(infinity), "inf");
  EXPECT_EQ(formatFixed(-infinity), "-inf");
  EXPECT_EQ(formatFixed(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(FormatFixed, IgnoresADecimalCommaOfTheProcess) {
  const CommaLocale locale;
  EXPECT_EQ(formatFixed(1234567.25), "1234567.250000");
}

}  // namespace
}  // namespace MemCore
