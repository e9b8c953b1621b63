// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/BoundFile.hpp"

#include <unistd.h>

#include "datamodel/container/AtomicFile.hpp"
#include "datamodel/container/ElementTypes.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::makeStrong;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

/// Reads an array back from where it was spilled.
class SpilledCreator final : public CreativeArrayBase {
 public:
  SpilledCreator(ArrayFacts facts, std::shared_ptr<const SpillFile> file, std::uint64_t offsetBytes)
      : CreativeArrayBase(std::move(facts)), file_(std::move(file)), offsetBytes_(offsetBytes) {}

 protected:
  Outcome<StrongPtr<MemBase>> create() override {
    const ArrayFacts known = facts();
    const auto array = arrayToFill(known.type, *known.size);
    if (!array) return Failure{"no arrays of its type and rank"};
    MemCore::ChunkBase& elements = *array->elements();
    const auto filled = file_->read(offsetBytes_, {elements.bytes(), elements.byteCount()});
    if (!filled.ok()) return filled.failure();
    return array;
  }

 private:
  std::shared_ptr<const SpillFile> file_;
  std::uint64_t offsetBytes_;
};

}  // namespace

Outcome<std::shared_ptr<SpillFile>> SpillFile::make(const std::string& target) {
  // The atomic file proves that the folder takes the target and makes a name that is free; the
  // name is given up at once, so that not even a killed process leaves the file.
  auto named = AtomicFile::make(target);
  if (!named.ok()) return named.failure();
  FileDescriptor file(::dup(named->descriptor()));
  if (!file.ok()) return Failure{target + ": cannot be written: " + systemError(errno)};
  return std::make_shared<SpillFile>(target, std::move(file));
}

Outcome<std::uint64_t> SpillFile::append(std::span<const std::byte> bytes) {
  const std::uint64_t offset = sizeBytes_;
  if (auto written = writeAt(file_.get(), offset, bytes, target_); !written.ok()) {
    return written.failure();
  }
  sizeBytes_ += bytes.size();
  return offset;
}

Outcome<void> SpillFile::read(std::uint64_t offsetBytes, std::span<std::byte> bytes) const {
  return readAt(file_.get(), offsetBytes, bytes, target_);
}

Outcome<void> BoundFile::store(Field& field, const FragmentHandle& fragment) {
  const CreatorHandle creator = field.getCreator(fragment);
  const auto data = creator ? creator->dataIfPresent() : nullptr;
  if (!data || !data->elements() || !data->elements()->isPlain() || !data->type()) return {};
  ArrayFacts facts = creator->facts();
  facts.type = data->type();
  facts.size = data->size();
  const MemCore::ChunkBase& elements = *data->elements();
  const auto offset = spill_->append({elements.bytes(), elements.byteCount()});
  if (!offset.ok()) return offset.failure();
  const auto spilled = makeStrong<SpilledCreator>(std::move(facts), spill_, *offset);
  spilled->attributes() = creator->attributes();
  field.setCreator(fragment, spilled);
  return {};
}

Outcome<void> BoundFile::complete(Bundle& bundle) {
  return bundle.save(target_, nullptr, makeStrong<StorageTransformations>(options_));
}

}  // namespace Fiber::Container
