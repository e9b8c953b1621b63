// SPDX-License-Identifier: Apache-2.0
//
// SplitFixture: a split run into a folder of its own, and the reading back of what it wrote.

#pragma once

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "operation/RefragmentAndSplit.hpp"
#include "tests/support/CloudBuilder.hpp"
#include "tests/support/ConsoleCapture.hpp"
#include "tests/support/TempDir.hpp"

namespace LidarLib::TestSupport {

/// Answers a fixed yes or no and remembers what it was told.
class RecordingProgress : public MemCore::LoaderProgress {
 public:
  explicit RecordingProgress(bool answer) : answer_(answer) {}
  bool report(const std::string& text, std::uint64_t current, std::uint64_t total) override;
  std::vector<std::string> calls;  ///< "text current/total"

 private:
  bool answer_;
  std::mutex mutex_;
};

/// Works inside a temporary folder, with the output bundle "out.f5" and its tiles under "out/".
class SplitFixture : public ::testing::Test {
 protected:
  SplitFixture();
  ~SplitFixture() override;

  /// An operation on a bundle, with edge length 10 along x and y and one layer of tiles.
  void prepare(RefragmentAndSplit& operation, const Fiber::BundlePtr& input) const;
  /// The names of the tile files there are.
  std::set<std::string> tileFiles() const;
  std::string readFile(const std::string& name) const;
  /// Loads a bundle file of the folder. Fails the test when it cannot be loaded.
  Fiber::BundlePtr load(const std::string& name) const;

  TempDir folder;
  ConsoleCapture console;

 private:
  std::filesystem::path former_;
};

/// The values of a one-dimensional field of a grid, fragment after fragment.
template <class T>
std::vector<T> fieldValues(const Fiber::Grid& grid, const std::string& name) {
  std::vector<T> values;
  const auto field = grid.getCartesianRepresentation("")->findField(name);
  if (!field) return values;
  for (const auto& id : field->getFragmentIDs()) {
    const auto data = MemCore::handleCast<Fiber::MemArray<1, T>>(field->getData(id));
    if (data) values.insert(values.end(), data->span().begin(), data->span().end());
  }
  return values;
}

}  // namespace LidarLib::TestSupport
