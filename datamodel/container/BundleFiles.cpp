// SPDX-License-Identifier: Apache-2.0
//
// The bundle's own operations on files (declared in datamodel/fiber/Bundle.hpp): saving, loading
// and binding, put together from plan, writer, scan and model builder.

#include <fmt/format.h>

#include "datamodel/container/AtomicFile.hpp"
#include "datamodel/container/BoundFile.hpp"
#include "datamodel/container/BundlePlan.hpp"
#include "datamodel/container/BundleScan.hpp"
#include "datamodel/container/BundleWriter.hpp"
#include "datamodel/container/ModelBuilder.hpp"
#include "datamodel/container/ParallelTexts.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Fiber {

using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

Container::SaveProgress asker(const StrongPtr<MemCore::LoaderProgress>& progress) {
  if (!progress) return {};
  return [progress](std::uint64_t done, std::uint64_t total) {
    return progress->report("Saving", done, total);
  };
}

Outcome<void> savePlan(Container::BundlePlan& plan, const StorageTransformations& options,
                       const Container::SaveProgress& progress) {
  auto file = Container::AtomicFile::make(plan.file);
  if (!file.ok()) return file.failure();
  const Container::WriteTarget target{file->descriptor(), options.kind, {}};
  auto result = writeBundle(plan, target, progress);
  while (result.ok() && *result == Container::WriteResult::kMustRestart) {
    result = writeBundle(plan, target, progress);
  }
  if (!result.ok()) return result.failure();
  return file->commit(options.durable ? Container::Durability::kSynced
                                      : Container::Durability::kUnsynced);
}

/// Every creator of a bundle, with the field it belongs to.
struct FieldCreator {
  StrongPtr<Field> field;
  FragmentHandle fragment;
};

std::vector<FieldCreator> creatorsOf(const Bundle& bundle) {
  std::vector<FieldCreator> creators;
  for (const auto& [time, slice] : bundle.slices()) {
    for (const auto& [gridName, grid] : slice->grids()) {
      for (const auto& [id, skeleton] : grid->skeletons().all()) {
        for (const auto& [chart, entry] : skeleton->representations().all()) {
          for (const auto& [name, field] : entry.representation->fields()) {
            for (const FragmentHandle& fragment : field->getFragmentIDs()) {
              if (field->getCreator(fragment)) creators.push_back({field, fragment});
            }
          }
        }
      }
    }
  }
  return creators;
}

/// Reads all data of a bundle now, and keeps them: facts and attributes of the creators stay.
Outcome<void> readEverything(const Bundle& bundle) {
  const std::vector<FieldCreator> creators = creatorsOf(bundle);
  return Container::parallelTexts(creators.size(), Container::kWorthThreadsBytes,
                                  [&](std::size_t i) -> Outcome<void> {
                                    const auto& [field, fragment] = creators[i];
                                    const CreatorHandle stored = field->getCreator(fragment);
                                    const auto data = stored->data();
                                    if (!data) return Failure{stored->failure()};
                                    const auto kept = MemCore::makeStrong<MemoryCreator>(data);
                                    const ArrayFacts facts = stored->facts();
                                    if (facts.box) kept->rememberBox(facts.box);
                                    if (facts.range) kept->rememberRange(*facts.range);
                                    kept->attributes() = stored->attributes();
                                    field->setCreator(fragment, kept);
                                    return {};
                                  });
}

Outcome<void> loadFiles(const MemCore::LoaderParameters& parameters, Bundle& bundle) {
  if (parameters.files.empty()) return Failure{"bundle: no files to load"};
  for (const std::string& file : parameters.files) {
    auto scanned = Container::scanBundle(file);
    if (!scanned.ok()) return scanned.failure();
    const auto stored = std::make_shared<const Container::StoredBundle>(std::move(scanned).value());
    if (auto built = Container::buildModel(stored, bundle); !built.ok()) return built;
  }
  return parameters.eager ? readEverything(bundle) : Outcome<void>();
}

}  // namespace

Outcome<void> Bundle::save(const std::string& file,
                           const StrongPtr<MemCore::LoaderProgress>& progress,
                           const StrongPtr<StorageTransformations>& transformations) {
  const StorageTransformations options =
      transformations ? *transformations : StorageTransformations::defaults();
  try {
    auto plan = Container::planBundle(*this, file, options.linkFragments);
    if (!plan.ok()) return plan.failure();
    return savePlan(*plan, options, asker(progress));
  } catch (const std::exception& error) {
    return Failure{fmt::format("{}: cannot be saved, found \"{}\"", file, error.what())};
  }
}

Outcome<void> Bundle::bindToNew(const std::string& file,
                                const StrongPtr<StorageTransformations>& transformations) {
  StorageTransformations options =
      transformations ? *transformations : StorageTransformations::defaults();
  options.linkFragments = false;
  auto spill = Container::SpillFile::make(file);
  if (!spill.ok()) return spill.failure();
  binding = MemCore::makeStrong<Container::BoundFile>(file, options, *spill);
  return {};
}

BundlePtr Bundle::load(bool& ok, const StrongPtr<MemCore::LoaderParameters>& parameters,
                       const StrongPtr<Bundle>& into, std::string* failure) {
  BundlePtr bundle = into ? BundlePtr(into) : BundlePtr(new Bundle);
  Outcome<void> loaded = Failure{"bundle: no files to load"};
  try {
    if (parameters) loaded = loadFiles(*parameters, *bundle);
  } catch (const std::exception& error) {
    loaded = Failure{fmt::format("bundle: cannot be loaded, found \"{}\"", error.what())};
  }
  ok = loaded.ok();
  if (ok) return bundle;
  if (failure != nullptr) *failure = loaded.error();
  return BundlePtr();
}

}  // namespace Fiber
