// SPDX-License-Identifier: Apache-2.0

#include "host/OutsidePoints.hpp"

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

namespace Host {

using Eagle::BoundingBox;
using Eagle::PhysicalSpace;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

using Points = Fiber::MemArray<1, PhysicalSpace::point>;

/// Written so that NaN is never within.
bool isWithin(const PhysicalSpace::point& p, const BoundingBox& box) {
  return p.x >= box.min().x && p.x <= box.max().x && p.y >= box.min().y && p.y <= box.max().y &&
         p.z >= box.min().z && p.z <= box.max().z;
}

bool isDisjoint(const BoundingBox& a, const BoundingBox& b) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (a.max()[axis] < b.min()[axis] || b.max()[axis] < a.min()[axis]) return true;
  }
  return false;
}

Outcome<std::uint64_t> countInFragment(Fiber::CreativeArrayBase& creator, const BoundingBox& box) {
  const std::uint64_t all = Fiber::pointCountOf(creator);
  MemCore::StrongPtr<BoundingBox> own;
  if (all == 0) return all;
  if (Fiber::ExpandBBox(own, creator, Fiber::DataCreationMode::KnownOnly)) {
    if (isWithin(own->min(), box) && isWithin(own->max(), box)) return std::uint64_t{0};
    if (isDisjoint(*own, box)) return all;
  }
  const auto points = MemCore::handleCast<Points>(creator.data());
  if (!points) return Failure{creator.failure()};
  const auto span = points->span();
  return static_cast<std::uint64_t>(std::count_if(
      span.begin(), span.end(), [&](const PhysicalSpace::point& p) { return !isWithin(p, box); }));
}

/// The same with everything thrown turned into a text, for the body of a parallel loop.
Outcome<std::uint64_t> countSafely(Fiber::CreativeArrayBase& creator, const BoundingBox& box) {
  try {
    return countInFragment(creator, box);
  } catch (const std::exception& error) {
    return Failure{std::string("point data: cannot be read, found ") + error.what()};
  }
}

std::vector<Fiber::CreatorHandle> creatorsOf(const Fiber::Field& positions) {
  std::vector<Fiber::CreatorHandle> creators;
  for (const Fiber::FragmentHandle& id : positions.getFragmentIDs()) {
    if (auto creator = positions.getCreator(id)) creators.push_back(std::move(creator));
  }
  return creators;
}

}  // namespace

Outcome<std::uint64_t> countPointsOutside(const Fiber::Field& positions, const BoundingBox& box) {
  const auto creators = creatorsOf(positions);
  std::vector<Outcome<std::uint64_t>> counts(creators.size(), std::uint64_t{0});
#pragma omp parallel for schedule(dynamic, 1)
  for (std::size_t i = 0; i < creators.size(); ++i) counts[i] = countSafely(*creators[i], box);
  std::uint64_t total = 0;
  for (const auto& count : counts) {
    if (!count.ok()) return count;
    total += *count;
  }
  return total;
}

std::uint64_t countPoints(const Fiber::Field& positions) {
  std::uint64_t total = 0;
  for (const auto& creator : creatorsOf(positions)) total += Fiber::pointCountOf(*creator);
  return total;
}

}  // namespace Host
