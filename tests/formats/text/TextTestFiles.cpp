// SPDX-License-Identifier: Apache-2.0

#include "tests/formats/text/TextTestFiles.hpp"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "datamodel/memcore/Cache.hpp"

namespace Formats::TextTests {

std::string writeText(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.flush();
  EXPECT_TRUE(file.good()) << path;
  return path;
}

std::string readText(const std::string& path) {
  const std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::shared_ptr<const InputFile> openFile(const std::string& path) {
  const auto file = InputFile::open(path);
  EXPECT_TRUE(file.ok()) << file.error();
  return file.ok() ? *file : nullptr;
}

MemCore::StrongPtr<Fiber::Field> TestCloud::field(const std::string& name) const {
  auto found = grid->getCartesianRepresentation("")->findField(name);
  EXPECT_TRUE(bool(found)) << name;
  return found;
}

bool TestCloud::hasNote(const std::string& text) const {
  return std::any_of(summary.notes.begin(), summary.notes.end(),
                     [&](const std::string& note) { return note.find(text) != std::string::npos; });
}

std::size_t TestCloud::fragmentCount() const { return field("Positions")->getFragmentIDs().size(); }

TestCloud readCloud(const std::vector<std::string>& files, const TextCloudOptions& options) {
  TestCloud cloud;
  cloud.bundle = Fiber::BundlePtr(new Fiber::Bundle);
  const auto added = addTextCloud(*cloud.bundle, files, options);
  EXPECT_TRUE(added.ok()) << added.error();
  if (!added) return cloud;
  cloud.summary = *added;
  cloud.grid =
      cloud.bundle->slices().find(options.cloud.time)->second->findGrid(options.cloud.gridName);
  return cloud;
}

std::string failureOf(const std::vector<std::string>& files, const TextCloudOptions& options) {
  Fiber::Bundle bundle;
  const auto added = addTextCloud(bundle, files, options);
  EXPECT_FALSE(added.ok());
  EXPECT_TRUE(bundle.slices().empty());
  return added.ok() ? std::string() : added.error();
}

std::string failureOfText(std::string_view text, const TextCloudOptions& options) {
  const TempDir folder;
  const std::string prefix = folder / "";
  const std::string failure = failureOf({writeText(folder / "a.xyz", text)}, options);
  EXPECT_TRUE(failure.starts_with(prefix)) << failure;
  return failure.starts_with(prefix) ? failure.substr(prefix.size()) : failure;
}

CacheBudget::CacheBudget(std::uint64_t bytes) : before_(MemCore::Cache::MemCache()->budget()) {
  MemCore::Cache::MemCache()->clear();
  MemCore::Cache::MemCache()->setBudget(bytes);
}

CacheBudget::~CacheBudget() {
  MemCore::Cache::MemCache()->clear();
  MemCore::Cache::MemCache()->setBudget(before_);
}

}  // namespace Formats::TextTests
