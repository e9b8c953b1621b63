// SPDX-License-Identifier: Apache-2.0

#include "host/InputLoader.hpp"

#include "formats/cloud/PointCloudReader.hpp"

namespace Host {

namespace {

Result<LoadedInput> loadBundles(const std::vector<std::string>& files) {
  const auto parameters =
      MemCore::makeStrong<MemCore::LoaderParameters>(MemCore::LoaderParameters{files, false});
  bool ok = false;
  std::string failure;
  LoadedInput input;
  input.bundle = Fiber::Bundle::load(ok, parameters, nullptr, &failure);
  if (!ok || !input.bundle) return failedStop(failure);
  input.lateNotes = [] { return std::vector<std::string>(); };
  return input;
}

Result<LoadedInput> loadClouds(const std::vector<std::string>& files, const CloudPlace& place) {
  LoadedInput input;
  input.bundle = Fiber::BundlePtr(new Fiber::Bundle);
  Formats::CloudOptions options;
  options.gridName = place.grid;
  options.time = place.time;
  options.keepOrder = place.keepOrder;
  const auto summary = Formats::addPointCloud(*input.bundle, files, options);
  if (!summary.ok()) return summary.failure();
  input.notes = summary->notes;
  input.lateNotes = [cloud = *summary] { return cloud.lateNotes(); };
  return input;
}

}  // namespace

Result<LoadedInput> loadInput(const ResolvedInput& input, const CloudPlace& place) {
  return input.kind == InputKind::Bundles ? loadBundles(input.files)
                                          : loadClouds(input.files, place);
}

Result<LoadedInput> loadBundle(const std::string& file) { return loadBundles({file}); }

Result<LoadedInput> openInput(const std::vector<std::string>& names) {
  const auto resolved = resolveInput(names);
  if (!resolved.ok()) return resolved.stop();
  return loadInput(*resolved, {});
}

}  // namespace Host
