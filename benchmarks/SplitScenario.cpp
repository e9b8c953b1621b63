// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/SplitScenario.hpp"

#include <omp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "benchmarks/BundlePoints.hpp"
#include "datamodel/memcore/Allocator.hpp"
#include "datamodel/memcore/Console.hpp"
#include "formats/cloud/PointCloudReader.hpp"
#include "operation/RefragmentAndSplit.hpp"

namespace Benchmarks {

namespace {

constexpr const char* kOutput = "/out.f5";

/// Splits the file; returns what the reader of the cloud knows of it.
MemCore::Outcome<Formats::CloudSummary> runSplit(const SplitJob& job) {
  omp_set_num_threads(job.threads);
  const MemCore::ConsoleRedirection quiet([](const std::string&) {});
  Fiber::StorageTransformations storage;
  storage.kind = job.storage;
  storage.durable = false;
  Fiber::StorageTransformations::setDefaults(storage);
  const auto cache = MemCore::Cache::MemCache();
  if (job.memoryBytes != 0) cache->setBudget(job.memoryBytes);
  MemCore::fitAllocator(cache->budget());

  LidarLib::RefragmentAndSplit operation;
  operation.inputBundle = Fiber::BundlePtr(new Fiber::Bundle);
  Formats::CloudOptions options;
  options.spillFolder = job.folder;
  auto cloud = Formats::addPointCloud(*operation.inputBundle, {job.input}, options);
  if (!cloud.ok()) return cloud.failure();
  if (::chdir(job.folder.c_str()) != 0) return MemCore::Failure{job.folder + ": no such folder"};
  operation.outputDirectory = job.folder;
  operation.outputFileName = job.folder + kOutput;
  operation.FragmentLength = {{job.edgeLength, job.edgeLength, 0.0}};
  operation.NormalizedOverlap = job.overlap;
  if (!operation.Run() || !operation.messages.empty()) {
    return MemCore::Failure{operation.messages.empty() ? "split failed"
                                                       : operation.messages.front()};
  }
  return cloud;
}

}  // namespace

MemCore::Outcome<std::uint64_t> splitFile(const SplitJob& job) {
  const auto cloud = runSplit(job);
  if (!cloud.ok()) return cloud.failure();
  return pointsOfBundle(job.folder + kOutput);
}

MemCore::Outcome<std::uint64_t> countDecodes(const SplitJob& job) {
  const auto cloud = runSplit(job);
  if (!cloud.ok()) return cloud.failure();
  return cloud->decodedChunks();
}

}  // namespace Benchmarks
