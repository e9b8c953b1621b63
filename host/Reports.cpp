// SPDX-License-Identifier: Apache-2.0

#include "host/Reports.hpp"

#include <algorithm>

namespace Host {

std::uint64_t inputPoints(const SplitReport& report) {
  std::uint64_t sum = 0;
  for (const PointBalance& balance : report.balances) sum += balance.input;
  return sum;
}

std::uint64_t outputPoints(const SplitReport& report) {
  std::uint64_t sum = 0;
  for (const PointBalance& balance : report.balances) sum += balance.output;
  return sum;
}

bool differs(const SplitReport& report) {
  if (!report.isCompared) return false;
  return std::any_of(report.balances.begin(), report.balances.end(),
                     [](const PointBalance& b) { return b.output != b.expected(); });
}

}  // namespace Host
