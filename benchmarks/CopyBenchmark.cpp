// SPDX-License-Identifier: Apache-2.0
//
// How close is the copy of a field into a tile to a plain gather loop? One thread, all in memory.
// The floor gathers with the same list of indices into new memory, as the tile needs it; the ratio
// is the share of its speed: floor time over measured time. The allocator is set as the program
// sets it, so that both sides get the memory of the repetition before, up to 32 MB at once.
//
//   indices     in runs of some hundred, as a tile meets flight lines, and scattered
//   elements    of 1, 2, 8 and 24 bytes, and rows of waveforms
//
// Lines "without the rest" tell what the gather within the copy takes alone: the copy also makes
// the tile's field and finds the range of its values.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>

#include "assembly/FieldCopy.hpp"
#include "benchmarks/Program.hpp"
#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/memcore/Allocator.hpp"
#include "datamodel/memcore/Cache.hpp"

namespace Benchmarks {

namespace {

using Eagle::PhysicalSpace;
using MemCore::Outcome;
using MemCore::StrongPtr;

const Goal kCopy{"5b", Bound::AtLeast, 0.6};

/// About a quarter of all indices, ascending: runs of some hundred, or one by one.
StrongPtr<Fiber::IndexList> pick(std::size_t count, bool isScattered) {
  std::mt19937_64 random(2);
  auto list = MemCore::makeStrong<Fiber::IndexList>();
  std::size_t i = 0;
  while (i < count) {
    const std::size_t run = isScattered ? 1 : 50 + random() % 200;
    for (std::size_t r = 0; r < run && i < count; ++r) list->push_back(static_cast<unsigned>(i++));
    i += isScattered ? 1 + random() % 5 : 3 * (50 + random() % 200);
  }
  return list;
}

/// A cloud of one fragment with one field beside its positions, and an empty tile for it.
template <class T>
class CopyScene {
 public:
  CopyScene(std::size_t points, std::uint64_t samples, StrongPtr<Fiber::IndexList> list)
      : samples_(samples), list_(std::move(list)) {
    const auto grid = (*bundle_[0.0])["points"];
    vertices_ = grid->makeCartesianRepresentation(3, "", 0);
    const auto positions = MemCore::makeStrong<MemCore::Chunk<PhysicalSpace::point>>(points);
    vertices_->makeField(id("Positions"), nullptr,
                         Fiber::makeArray<PhysicalSpace::point>(positions));
    field_ = MemCore::makeStrong<Fiber::Field>(vertices_->fragments());
    field_->setPersistentData(values(points), fragment(), nullptr, "");
  }

  /// The tile's values by the copy of the operation; returns how many.
  Outcome<std::uint64_t> copy() const {
    LidarLib::FieldCopy job;
    job.inputPositions = vertices_->findField("Positions");
    job.selection.pointCount = static_cast<std::uint32_t>(list_->size());
    job.selection.indexLists =
        MemCore::makeStrong<MemCore::Chunk<StrongPtr<Fiber::IndexList>>>(1, list_);
    job.outputGrid = MemCore::makeStrong<Fiber::Grid>("tile");
    job.fragments = {fragment()};
    job.waveformLengths = {static_cast<std::uint32_t>(samples_), 0};
    const auto space = MemCore::makeStrong<Fiber::BaseSpace>(Fiber::kCartesianChart);
    LidarLib::copyFieldIntoTile(job, space, Fiber::FieldID{fieldName()}, field_);
    const auto made = job.outputGrid->getCartesianRepresentation("")->findField(fieldName());
    const auto creator = made ? made->getFirstCreator() : nullptr;
    const auto data = creator ? creator->data() : nullptr;
    if (!data) return MemCore::Failure{"nothing was copied"};
    return checked(reinterpret_cast<const T*>(data->elements()->bytes()),
                   data->size().elementCount());
  }

  /// The same by a plain loop into fresh memory.
  Outcome<std::uint64_t> gather() const {
    const std::uint64_t row = rowLength();
    const std::uint64_t count = list_->size() * row;
    const auto output = std::make_unique_for_overwrite<T[]>(count);
    const T* input = values_->data();
    T* at = output.get();
    if (row == 1) {
      for (const unsigned index : *list_) *at++ = input[index];
    } else {
      for (const unsigned index : *list_) at = std::copy_n(input + index * row, row, at);
    }
    return checked(output.get(), count);
  }

  /// The gather within the copy, without the rest; none for waveforms.
  Outcome<std::uint64_t> gatherAsTheCopyDoes() const {
    const auto output = MemCore::Chunk<T>::uninitialised(list_->size());
    if (!Fiber::CreateIndirection(output, values_, nullptr, list_.get(),
                                  {0, list_->size(), 0, 0, 1})) {
      return MemCore::Failure{"nothing was copied"};
    }
    return checked(output->data(), output->size());
  }

  bool hasWaveforms() const { return samples_ > 0; }
  std::uint64_t bytes() const { return list_->size() * rowLength() * sizeof(T); }

 private:
  std::string fieldName() const { return samples_ > 0 ? "Waveforms" : "Values"; }
  std::uint64_t rowLength() const { return samples_ > 0 ? samples_ : 1; }
  StrongPtr<Fiber::FieldID> id(const char* name) const { return vertices_->makeFieldID(name); }
  Fiber::FragmentHandle fragment() const { return vertices_->fragments()->all().front(); }

  StrongPtr<Fiber::MemBase> values(std::size_t points) {
    values_ = MemCore::makeStrong<MemCore::Chunk<T>>(points * rowLength());
    auto* bytes = reinterpret_cast<unsigned char*>(values_->data());
    for (std::size_t i = 0; i < values_->byteCount(); ++i)
      bytes[i] = static_cast<unsigned char>(i % 61);
    if (samples_ == 0) return Fiber::makeArray<T>(values_);
    return MemCore::makeStrong<Fiber::MemArray<2, T>>(
        std::array<std::uint64_t, 2>{samples_, points}, values_);
  }

  /// The first and the last value tell whether the right ones came; that costs no time.
  Outcome<std::uint64_t> checked(const T* output, std::uint64_t count) const {
    const std::uint64_t row = rowLength();
    const unsigned last = (*list_)[list_->size() - 1];
    const bool isRight = count == list_->size() * row &&
                         output[0] == values_->data()[(*list_)[0] * row] &&
                         output[count - 1] == values_->data()[last * row + row - 1];
    if (!isRight) return MemCore::Failure{"wrong values"};
    return count;
  }

  std::uint64_t samples_;  ///< per point; 0: no waveforms
  StrongPtr<Fiber::IndexList> list_;
  mutable Fiber::Bundle bundle_;
  StrongPtr<Fiber::Representation> vertices_;
  StrongPtr<Fiber::Field> field_;
  StrongPtr<MemCore::Chunk<T>> values_;
};

/// Adds a line whose ratio is the share of the floor's speed.
template <class T>
void compare(Bench& bench, const Goal& goal, const std::string& name, const CopyScene<T>& scene,
             const MeasuredWork& work) {
  const auto compared = compareInTurn(
      bench.repetitions, inThisProcess([&] { return scene.gather(); }), inThisProcess(work));
  if (!compared.ok()) return bench.report.fail(name + ": " + compared.error());
  Finding finding = findingOf(goal, name, *compared);
  finding.ratio = compared->floor.seconds / compared->work.seconds;
  finding.figures = {
      {"GB per s", static_cast<double>(scene.bytes()) / compared->work.seconds / 1e9}};
  bench.report.add(finding);
}

template <class T>
void copy(Bench& bench, const std::string& name, const CopyScene<T>& scene) {
  compare(bench, kCopy, name, scene, [&] { return scene.copy(); });
  if (scene.hasWaveforms()) return;
  compare(bench, {}, name + ", without the rest", scene,
          [&] { return scene.gatherAsTheCopyDoes(); });
}

void copyAll(Bench& bench, std::size_t count) {
  bench.report.say(fmt::format("copying a quarter of {} elements", count));
  constexpr std::uint64_t kSamples = 64;
  for (const bool isScattered : {false, true}) {
    const auto list = pick(count, isScattered);
    const auto rows = pick(count / kSamples, isScattered);
    const char* order = isScattered ? "scattered" : "runs";
    copy(bench, fmt::format("field copy, 1 byte, {}", order),
         CopyScene<std::uint8_t>(count, 0, list));
    copy(bench, fmt::format("field copy, 2 bytes, {}", order),
         CopyScene<std::uint16_t>(count, 0, list));
    copy(bench, fmt::format("field copy, 8 bytes, {}", order), CopyScene<double>(count, 0, list));
    copy(bench, fmt::format("field copy, 24 bytes, {}", order),
         CopyScene<PhysicalSpace::point>(count, 0, list));
    copy(bench, fmt::format("field copy, waveforms of {} samples, {}", kSamples, order),
         CopyScene<std::uint16_t>(count / kSamples, kSamples, rows));
  }
}

}  // namespace

}  // namespace Benchmarks

int main(int argc, char** argv) {
  Benchmarks::Program program("copy_benchmark",
                              "Measures the copy of fields against a plain gather loop");
  std::size_t elements = 10'000'000;
  program.flags()
      .add_option("--elements", elements, "Numbers of the input field")
      ->check(CLI::PositiveNumber);
  MemCore::fitAllocator(MemCore::Cache::MemCache()->budget());
  return program.run(argc, argv, [&](Benchmarks::Bench& bench) {
    Benchmarks::copyAll(bench, bench.isSmoke ? 50'000 : elements);
  });
}
