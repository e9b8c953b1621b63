// SPDX-License-Identifier: Apache-2.0

#include "tests/operation/SplitFixture.hpp"

#include <fstream>
#include <iterator>

namespace LidarLib::TestSupport {

namespace fs = std::filesystem;

bool RecordingProgress::report(const std::string& text, std::uint64_t current,
                               std::uint64_t total) {
  const std::lock_guard lock(mutex_);
  calls.push_back(text + " " + std::to_string(current) + "/" + std::to_string(total));
  return answer_;
}

SplitFixture::SplitFixture() : former_(fs::current_path()) { fs::current_path(folder.path()); }

SplitFixture::~SplitFixture() { fs::current_path(former_); }

void SplitFixture::prepare(RefragmentAndSplit& operation, const Fiber::BundlePtr& input) const {
  operation.inputBundle = input;
  operation.outputDirectory = folder.path().string();
  operation.outputFileName = folder / "out.f5";
  operation.FragmentLength = {{10.0, 10.0, 0.0}};
}

std::set<std::string> SplitFixture::tileFiles() const {
  std::set<std::string> names;
  if (!fs::exists(folder.path() / "out")) return names;
  for (const auto& entry : fs::directory_iterator(folder.path() / "out")) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

std::string SplitFixture::readFile(const std::string& name) const {
  std::ifstream stream(folder.path() / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

Fiber::BundlePtr SplitFixture::load(const std::string& name) const {
  bool ok = false;
  std::string failure;
  const auto parameters = MemCore::makeStrong<MemCore::LoaderParameters>(
      MemCore::LoaderParameters{{folder / name}, false});
  auto bundle = Fiber::Bundle::load(ok, parameters, nullptr, &failure);
  EXPECT_TRUE(ok) << failure;
  return bundle;
}

}  // namespace LidarLib::TestSupport
