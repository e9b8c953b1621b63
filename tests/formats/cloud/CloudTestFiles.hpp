// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the cloud reader share: made-up LAS files, clouds read from files, and plain
// readers of fields that serve as the judges of the fast ones.

#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "formats/cloud/CloudGrid.hpp"
#include "formats/cloud/PointCloudReader.hpp"
#include "formats/las/LasWriter.hpp"
#include "tests/formats/LasTestFiles.hpp"
#include "tests/support/TempDir.hpp"

namespace Formats {

/// Options of a made-up file: LAS 1.4, scale 0.01, with descriptors of these extra bytes.
LasWriterOptions lasOptions(std::uint8_t pointFormat,
                            const std::vector<ExtraBytesDescriptor>& extraBytes = {});

/// Writes a file of whole records; fails the test when that fails. Returns the path.
std::string writeLas(const std::string& path, const LasWriterOptions& options,
                     std::span<const std::byte> records);
/// A file of random points without extra bytes.
std::string writeSurvey(const std::string& path, std::uint8_t pointFormat, std::size_t points,
                        std::uint64_t seed = 1);

/// A grid made from files, with the bundle that holds it.
struct TestCloud {
  Fiber::BundlePtr bundle;
  MemCore::StrongPtr<Fiber::Grid> grid;
  CloudSummary summary;

  MemCore::StrongPtr<Fiber::Field> field(const std::string& name) const;
  std::vector<Fiber::FragmentHandle> fragments() const;
  /// The box of all positions; empty when there are none.
  MemCore::StrongPtr<Eagle::BoundingBox> box() const;
  bool hasNote(const std::string& text) const;
};

/// Adds the files to a new bundle; fails the test when that fails.
TestCloud readCloud(const std::vector<std::string>& files, const CloudOptions& options = {});
/// The failure of adding the files to a new bundle; fails the test when it succeeds.
std::string failureOf(const std::vector<std::string>& files, const CloudOptions& options = {});

/// A grid over a file that stays in the test's hands, so that decoded chunks can be counted.
struct TestGrid {
  std::shared_ptr<LasFile> file;
  MemCore::StrongPtr<Fiber::Grid> grid;
  CloudSummary summary;

  MemCore::StrongPtr<Fiber::Field> field(const std::string& name) const;
};
TestGrid gridOver(const std::shared_ptr<LasFile>& file, std::uint64_t fragmentPoints);

/// All elements of a field, fragment after fragment, as bytes. Fails the test when data are
/// missing.
std::vector<std::byte> bytesOf(const Fiber::Field& field);
/// The same as values.
template <class T>
std::vector<T> valuesOf(const Fiber::Field& field) {
  const std::vector<std::byte> bytes = bytesOf(field);
  std::vector<T> values(bytes.size() / sizeof(T));
  std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::byte*>(values.data()));
  return values;
}

/// One field of records, taken value by value.
std::vector<std::byte> plainColumn(std::span<const std::byte> records, std::size_t recordBytes,
                                   const PointField& field);
/// Positions of records, one by one.
std::vector<Eagle::PhysicalSpace::point> plainPositions(std::span<const std::byte> records,
                                                        const LasHeader& header);

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

}  // namespace Formats
