// SPDX-License-Identifier: Apache-2.0

#include "operation/RefragmentAndSplit.hpp"

#include <fmt/format.h>

#include "datamodel/memcore/Text.hpp"

namespace LidarLib {

using MemCore::formatFixed;

namespace {

template <class Vector>
std::string bracedVector(const Vector& v) {
  return fmt::format("{{{},{},{}}}", formatFixed(v[0]), formatFixed(v[1]), formatFixed(v[2]));
}

std::string pointLine(const std::string& label, const PointHandle& handle) {
  return handle && !handle->empty() ? label + bracedVector((*handle)[0]) + " " : std::string();
}

}  // namespace

RefragmentAndSplit::~RefragmentAndSplit() = default;

std::string RefragmentAndSplit::printSecondary() {
  std::string report;
  report += "\nFragmentLength: " + bracedVector(FragmentLength) + " ";
  report += "\nNormalizedOverlap: " + formatFixed(NormalizedOverlap) + " ";
  // Deliberate: the blank stands before the colon.
  report += "\nMinPointNumber :" + std::to_string(MinPointNumber) + " ";
  report += pointLine("\nHave start point:", StartPoint);
  report += pointLine("\nHave end point:", EndPoint);
  if (UpdateLinkedFiles) report += "\nUpdate linked files! ";
  return report;
}

}  // namespace LidarLib
