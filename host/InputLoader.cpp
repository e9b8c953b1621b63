// SPDX-License-Identifier: Apache-2.0

#include "host/InputLoader.hpp"

#include "formats/cloud/PointCloudReader.hpp"
#include "formats/text/TextCloudReader.hpp"

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
  options.spillFolder = place.spillFolder;
  const auto summary = Formats::addPointCloud(*input.bundle, files, options);
  if (!summary.ok()) return summary.failure();
  input.notes = summary->notes;
  input.lateNotes = [cloud = *summary] { return cloud.lateNotes(); };
  return input;
}

Result<LoadedInput> loadText(const std::vector<std::string>& files, const CloudPlace& place) {
  if (place.keepOrder) {
    return usageStop("--keep-order: " + files.front() + " is text, expected .las or .laz files");
  }
  LoadedInput input;
  input.bundle = Fiber::BundlePtr(new Fiber::Bundle);
  Formats::TextCloudOptions options;
  options.cloud.gridName = place.grid;
  options.cloud.time = place.time;
  options.columns = place.columns;
  const auto summary = Formats::addTextCloud(*input.bundle, files, options);
  if (!summary.ok()) return summary.failure();
  input.notes = summary->notes;
  input.lateNotes = [] { return std::vector<std::string>(); };
  return input;
}

}  // namespace

Result<LoadedInput> loadInput(const ResolvedInput& input, const CloudPlace& place) {
  if (input.kind == InputKind::TextClouds) return loadText(input.files, place);
  if (!place.columns.empty()) {
    return usageStop("--columns: " + input.files.front() +
                     " has no columns to name, expected .xyz, .txt or .csv files");
  }
  return input.kind == InputKind::Bundles ? loadBundles(input.files)
                                          : loadClouds(input.files, place);
}

Result<LoadedInput> loadBundle(const std::string& file) { return loadBundles({file}); }

Result<LoadedInput> openInput(const std::vector<std::string>& names, const CloudPlace& place) {
  const auto resolved = resolveInput(names);
  if (!resolved.ok()) return resolved.stop();
  return loadInput(*resolved, place);
}

}  // namespace Host
