// SPDX-License-Identifier: Apache-2.0

#include "operation/ReadFailures.hpp"

namespace LidarLib {

namespace {

std::string failureOf(const Fiber::CreatorHandle& creator) {
  return creator ? creator->failure() : std::string();
}

}  // namespace

std::string readFailure(const Fiber::Field& field) {
  for (const Fiber::FragmentHandle& fragment : field.getFragmentIDs()) {
    std::string failure = failureOf(field.getCreator(fragment));
    if (!failure.empty()) return failure;
  }
  return std::string();
}

std::string readFailure(const Fiber::Field& field, const FragmentSet& fragments) {
  for (const Fiber::FragmentHandle& fragment : fragments) {
    std::string failure = failureOf(field.getCreator(field.getFragmentID(fragment->name())));
    if (!failure.empty()) return failure;
  }
  return std::string();
}

}  // namespace LidarLib
