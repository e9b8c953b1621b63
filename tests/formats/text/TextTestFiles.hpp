// SPDX-License-Identifier: Apache-2.0
//
// What the tests of text files share: files of given bytes, and clouds read from them.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "formats/las/InputFile.hpp"
#include "formats/text/TextCloudReader.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats::TextTests {

using LidarLib::TestSupport::TempDir;

/// Writes a file; fails the test when that fails. Returns the path.
std::string writeText(const std::string& path, std::string_view text);
/// The bytes of a file; fails the test when there is none.
std::string readText(const std::string& path);
/// Opens a file; fails the test when that fails.
std::shared_ptr<const InputFile> openFile(const std::string& path);

/// A grid made from files, with the bundle that holds it.
struct TestCloud {
  Fiber::BundlePtr bundle;
  MemCore::StrongPtr<Fiber::Grid> grid;
  TextCloudSummary summary;

  MemCore::StrongPtr<Fiber::Field> field(const std::string& name) const;
  /// Whether any note contains the text.
  bool hasNote(const std::string& text) const;
  /// The number of fragments of the positions.
  std::size_t fragmentCount() const;
};

/// Adds the files to a new bundle; fails the test when that fails.
TestCloud readCloud(const std::vector<std::string>& files, const TextCloudOptions& options = {});
/// The failure of adding the files to a new bundle; fails the test when it succeeds.
std::string failureOf(const std::vector<std::string>& files, const TextCloudOptions& options = {});
/// The failure of a file of this text, without the path of its folder in front.
std::string failureOfText(std::string_view text, const TextCloudOptions& options = {});

/// All elements of a field, fragment after fragment. Fails the test when data are missing or of
/// another type.
template <class T>
std::vector<T> valuesOf(const Fiber::Field& field) {
  std::vector<T> values;
  for (const auto& id : field.getFragmentIDs()) {
    const auto creator = field.getCreator(id);
    const auto data = creator ? creator->data() : nullptr;
    const auto chunk = data ? MemCore::chunkCast<T>(data->elements()) : nullptr;
    EXPECT_TRUE(bool(chunk)) << (creator ? creator->failure() : "no creator");
    if (chunk) values.insert(values.end(), chunk->begin(), chunk->end());
  }
  return values;
}

using Points = std::vector<Eagle::PhysicalSpace::point>;

/// Another budget of the process's cache, which is emptied before and after.
class CacheBudget {
 public:
  explicit CacheBudget(std::uint64_t bytes);
  ~CacheBudget();
  CacheBudget(const CacheBudget&) = delete;
  CacheBudget& operator=(const CacheBudget&) = delete;

 private:
  std::uint64_t before_;
};

}  // namespace Formats::TextTests
