// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BundleWriter.hpp"

#include <fmt/format.h>

#include "datamodel/container/AttributeTable.hpp"
#include "datamodel/container/AttributeValues.hpp"
#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/TableBuilder.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

class BundleWriter {
 public:
  BundleWriter(BundlePlan& plan, const WriteTarget& target, const SaveProgress& progress,
               OutputFile output)
      : plan_(plan), target_(target), progress_(progress), output_(std::move(output)) {
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

  Outcome<WriteResult> writeSlice(PlannedSlice& slice) {
    setNumber(output_.root().make(slice.group).attributes, kTimeAttribute, slice.time);
    for (PlannedGrid& grid : slice.grids) {
      auto result = writeGrid(grid);
      if (!result.ok() || *result == WriteResult::kMustRestart) return result;
    }
    return WriteResult::kWritten;
  }

  Outcome<WriteResult> writeGrid(PlannedGrid& grid) {
    ObjectGroup& group = output_.root().make(grid.group);
    StoredAttributes attributes;
    addAttributes(attributes, grid.grid->attributes(), kGridWords, 0);
    writePropertyBits(group.attributes, grid.grid->propertyBits);
    auto done = writeAttributes(output_, {group.attributes, group, kLargeAttributes}, attributes);
    if (!done.ok()) return within(fmt::format("{}: {}", grid.group, done.error()));
    for (PlannedSkeleton& skeleton : grid.skeletons) {
      auto result = writeSkeleton(skeleton);
      if (!result.ok() || *result == WriteResult::kMustRestart) return result;
    }
    return WriteResult::kWritten;
  }

  Outcome<WriteResult> writeSkeleton(PlannedSkeleton& skeleton) {
    ObjectGroup& group = output_.root().make(skeleton.group);
    setNumber<std::int32_t>(group.attributes, kDimensionAttribute, skeleton.id.dimension);
    setNumber<std::int32_t>(group.attributes, kRefinementAttribute, skeleton.id.refinement);
    for (PlannedRepresentation& representation : skeleton.representations) {
      auto result = writeRepresentation(representation);
      if (!result.ok() || *result == WriteResult::kMustRestart) return result;
    }
    return WriteResult::kWritten;
  }

  Outcome<WriteResult> writeRepresentation(PlannedRepresentation& representation) {
    RepresentationEncoder encoder(representation, target_.kind, target_.sizes);
    RepresentationWriter writer(output_, representation, encoder);
    bool hasBegun = false;
    while (!hasBegun || !encoder.isFinished()) {
      EncodedBatch batch;
      if (!encoder.isFinished()) {
        Outcome<void> appended;
        auto next = encoder.next([&] { appended = writer.appendChunks(); });
        if (!appended.ok()) return appended.failure();
        if (!next.ok()) return within(next.error());
        batch = std::move(next).value();
      }
      if (encoder.mustRestart()) return WriteResult::kMustRestart;
      if (!hasBegun) {
        writer.begin();
        hasBegun = true;
      }
      if (auto done = writer.write(std::move(batch)); !done.ok()) return done.failure();
      if (!mayContinue(encoder.doneCount())) return within("saving was interrupted");
    }
    done_ += encoder.totalCount();
    const TableToWrite table = planTable(representation, encoder, plan_.file);
    if (auto done = writer.finish(table); !done.ok()) return done.failure();
    return WriteResult::kWritten;
  }

  bool mayContinue(std::uint64_t done) const {
    return !progress_ || progress_(done_ + done, total_);
  }

  Outcome<void> finish() {
    ObjectValues& attributes = output_.root().attributes;
    setText(attributes, kFormatAttribute, kFormatName);
    setNumber(attributes, kVersionAttribute, kFormatVersion);
    setNumber(attributes, kContentIdAttribute, output_.contents().value());
    return output_.finish();
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
  auto output = OutputFile::begin(target.descriptor, plan.file);
  if (!output.ok()) return output.failure();
  return BundleWriter(plan, target, progress, std::move(output).value()).write();
}

}  // namespace Fiber::Container
