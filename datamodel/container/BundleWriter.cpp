// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BundleWriter.hpp"

#include <fmt/format.h>

#include "datamodel/container/FieldAttributes.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/TableBuilder.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

class BundleWriter {
 public:
  BundleWriter(BundlePlan& plan, const WriteTarget& target, const SaveProgress& progress)
      : plan_(plan), target_(target), progress_(progress) {
    output_.descriptor = target.descriptor;
    output_.name = plan.file;
    for (const PlannedSlice& slice : plan.slices) {
      for (const PlannedGrid& grid : slice.grids) {
        for (const PlannedSkeleton& skeleton : grid.skeletons) {
          for (const auto& representation : skeleton.representations) {
            for (const PlannedRow& row : representation.rows) total_ += row.link ? 0 : 1;
          }
        }
      }
    }
  }

  Outcome<WriteResult> write() {
    if (auto made = create(); !made.ok()) return made.failure();
    for (PlannedSlice& slice : plan_.slices) {
      auto result = writeSlice(slice);
      if (!result.ok() || *result == WriteResult::kMustRestart) return result;
    }
    if (auto done = finish(); !done.ok()) return done.failure();
    return WriteResult::kWritten;
  }

 private:
  Failure within(const std::string& text) const {
    return Failure{fmt::format("{}: {}", plan_.file, text)};
  }

  Outcome<void> create() {
    const Hdf5Lock lock;
    const FileFormat format =
        target_.kind == StorageKind::Raw ? FileFormat::kRaw : FileFormat::kCompressed;
    auto file = ownHdf5<FileHandle>(H5Fcreate(target_.path.c_str(), H5F_ACC_TRUNC,
                                              fileCreation().get(), fileAccess(format).get()),
                                    fmt::format("{}: cannot be created", plan_.file));
    if (!file.ok()) return file.failure();
    output_.file = std::move(file).value();
    return {};
  }

  /// Makes a group and lets `describe` write its attributes.
  template <class Describe>
  Outcome<void> makeGroup(const std::string& path, const Describe& describe) {
    const Hdf5Lock lock;
    auto group =
        ownHdf5<GroupHandle>(H5Gcreate2(output_.file.get(), path.c_str(), linkCreation().get(),
                                        groupCreation().get(), H5P_DEFAULT),
                             fmt::format("{}: {} cannot be made", plan_.file, path));
    if (!group.ok()) return group.failure();
    Outcome<void> described = describe(group->get());
    if (!described.ok()) return within(fmt::format("{}: {}", path, described.error()));
    return group->close(fmt::format("{}: {} cannot be closed", plan_.file, path));
  }

  Outcome<WriteResult> writeSlice(PlannedSlice& slice) {
    auto made = makeGroup(
        slice.group, [&](hid_t group) { return writeNumber(group, kTimeAttribute, slice.time); });
    if (!made.ok()) return made.failure();
    for (PlannedGrid& grid : slice.grids) {
      auto result = writeGrid(grid);
      if (!result.ok() || *result == WriteResult::kMustRestart) return result;
    }
    return WriteResult::kWritten;
  }

  Outcome<WriteResult> writeGrid(PlannedGrid& grid) {
    auto made = makeGroup(grid.group, [&](hid_t group) {
      StoredAttributes attributes;
      addAttributes(attributes, grid.grid->attributes(), kGridWords, 0);
      auto done = writeAttributes({group, group, kLargeAttributes, kGridWords}, attributes);
      return done.ok() ? writePropertyBits(group, grid.grid->propertyBits) : done;
    });
    if (!made.ok()) return made.failure();
    for (PlannedSkeleton& skeleton : grid.skeletons) {
      auto result = writeSkeleton(skeleton);
      if (!result.ok() || *result == WriteResult::kMustRestart) return result;
    }
    return WriteResult::kWritten;
  }

  Outcome<WriteResult> writeSkeleton(PlannedSkeleton& skeleton) {
    auto made = makeGroup(skeleton.group, [&](hid_t group) {
      auto done = writeNumber<std::int32_t>(group, kDimensionAttribute, skeleton.id.dimension);
      if (!done.ok()) return done;
      return writeNumber<std::int32_t>(group, kRefinementAttribute, skeleton.id.refinement);
    });
    if (!made.ok()) return made.failure();
    for (PlannedRepresentation& representation : skeleton.representations) {
      auto result = writeRepresentation(representation);
      if (!result.ok() || *result == WriteResult::kMustRestart) return result;
    }
    return WriteResult::kWritten;
  }

  Outcome<WriteResult> writeRepresentation(PlannedRepresentation& representation) {
    RepresentationEncoder encoder(representation, target_.kind, target_.batchBytes);
    RepresentationWriter writer(output_, representation, encoder);
    bool hasBegun = false;
    while (!hasBegun || !encoder.isFinished()) {
      EncodedBatch batch;
      if (!encoder.isFinished()) {
        auto next = encoder.next();
        if (!next.ok()) return within(next.error());
        batch = std::move(next).value();
      }
      if (encoder.mustRestart()) return WriteResult::kMustRestart;
      if (!hasBegun) {
        if (auto begun = writer.begin(); !begun.ok()) return begun.failure();
        hasBegun = true;
      }
      if (auto done = writer.write(batch); !done.ok()) return done.failure();
      if (!mayContinue(encoder.doneCount())) return within("saving was interrupted");
    }
    done_ += encoder.totalCount();
    const TableContents table = buildTable(representation, encoder, plan_.file);
    if (auto done = writer.finish(table); !done.ok()) return done.failure();
    return WriteResult::kWritten;
  }

  bool mayContinue(std::uint64_t done) const {
    return !progress_ || progress_(done_ + done, total_);
  }

  Outcome<void> finish() {
    const Hdf5Lock lock;
    const hid_t root = output_.file.get();
    Outcome<void> done = writeText(root, kFormatAttribute, kFormatName);
    if (done.ok()) done = writeNumber(root, kVersionAttribute, kFormatVersion);
    if (done.ok()) done = writeNumber(root, kContentIdAttribute, output_.contents.value());
    if (!done.ok()) return within(done.error());
    return output_.file.close(fmt::format("{}: cannot be closed", plan_.file));
  }

  BundlePlan& plan_;
  const WriteTarget& target_;
  const SaveProgress& progress_;
  OutputFile output_;
  std::uint64_t done_ = 0;
  std::uint64_t total_ = 0;
};

}  // namespace

Outcome<WriteResult> writeBundle(BundlePlan& plan, const WriteTarget& target,
                                 const SaveProgress& progress) {
  return BundleWriter(plan, target, progress).write();
}

}  // namespace Fiber::Container
