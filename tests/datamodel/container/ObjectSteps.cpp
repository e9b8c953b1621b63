// SPDX-License-Identifier: Apache-2.0

#include "tests/datamodel/container/ObjectSteps.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace Fiber::Container {

namespace {

std::string differenceOf(const ObjectDataset& a, const ObjectDataset& b) {
  if (a.value.type != b.value.type) return "type";
  if (a.value.extents != b.value.extents) return "extents";
  if (a.value.bytes != b.value.bytes) return "values";
  if (a.attributes != b.attributes) return "attributes";
  if (a.storage != b.storage) return "storage";
  if (a.filter != b.filter) return "filters";
  if (a.storage == ObjectDataset::Storage::kPiece && a.address != b.address) return "address";
  if (a.storage == ObjectDataset::Storage::kChunks && a.chunkCounts != b.chunkCounts) {
    return "chunk extents";
  }
  return "";
}

/// Compares the entries of two maps by name.
template <class Map>
std::string differenceOfAll(const Map& a, const Map& b) {
  if (a.size() != b.size()) return "number of members";
  for (const auto& [name, item] : a) {
    if (!b.contains(name)) return name + " is missing";
    const std::string difference = differenceOf(item, b.at(name));
    if (!difference.empty()) return name + ": " + difference;
  }
  return "";
}

}  // namespace

void writeObjects(const std::string& path, const std::function<void(OutputFile&)>& fill) {
  const FileDescriptor descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  auto output = OutputFile::begin(descriptor.get(), path);
  ASSERT_TRUE(output.ok()) << output.error();
  fill(*output);
  const auto finished = output->finish();
  ASSERT_TRUE(finished.ok()) << finished.error();
}

ObjectFile openObjects(const std::string& path, bool byLibrary) {
  auto file = byLibrary ? ObjectFile::openByLibrary(path) : ObjectFile::open(path);
  if (!file.ok()) {
    ADD_FAILURE() << file.error();
    return {};
  }
  EXPECT_EQ(file->isLibrarys(), byLibrary);
  return std::move(file).value();
}

std::string differenceOf(const ObjectGroup& a, const ObjectGroup& b) {
  if (a.attributes != b.attributes) return "attributes";
  const std::string datasets = differenceOfAll(a.datasets, b.datasets);
  return datasets.empty() ? differenceOfAll(a.groups, b.groups) : datasets;
}

}  // namespace Fiber::Container
