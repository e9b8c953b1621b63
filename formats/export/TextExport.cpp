// SPDX-License-Identifier: Apache-2.0

#include "formats/export/TextExport.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <optional>

#include "datamodel/container/ParallelTexts.hpp"
#include "formats/las/ExceptionEdge.hpp"
#include "formats/text/TextWriter.hpp"

namespace Formats {

using Fiber::Container::parallelTexts;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::uint64_t kBatchPoints = 800'000;
constexpr std::size_t kBlockPoints = 20'000;
constexpr std::uint64_t kBytesOfPoint = 64;  ///< about, to judge what is worth threads

/// Rows that are made together.
struct Block {
  const FragmentColumns* fragment = nullptr;
  std::size_t first = 0;
  std::size_t count = 0;
  std::string packed;
};

/// One export in progress.
class Exporter {
 public:
  explicit Exporter(const TextExportJob& job) : job_(job) {
    needs_.fields = job.fields;
    needs_.fields.insert(needs_.fields.end(), job.choosesBy.begin(), job.choosesBy.end());
  }

  Outcome<PointFileResult> run() {
    if (auto begun = begin(); !begun) return begun.failure();
    for (auto rest = job_.fragments; !rest.empty();) {
      const std::size_t count = batchSize(rest, kBatchPoints);
      if (auto done = exportBatch(rest.first(count)); !done) return done.failure();
      rest = rest.subspan(count);
      const std::size_t done = job_.fragments.size() - rest.size();
      if (job_.listener && !job_.listener(done)) return Failure{kExportStopped};
    }
    if (result_.points == 0 && job_.skipsEmpty) return std::move(result_);
    if (auto done = writer_->publish(job_.isDurable); !done) return done.failure();
    result_.isWritten = true;
    return std::move(result_);
  }

 private:
  Outcome<void> begin() {
    TextWriterOptions options;
    options.isRounded = job_.isRounded;
    auto writer = TextWriter::create(job_.path, options);
    if (!writer) return writer.failure();
    writer_.emplace(std::move(*writer));
    const auto header = writer_->pack(writer_->header(columnsOf(nullptr)));
    return header ? writer_->append(*header) : Outcome<void>(header.failure());
  }

  /// The columns of a fragment, or, for the header, those of no points.
  std::vector<TextColumn> columnsOf(const FragmentColumns* fragment) const {
    const ExportSource& source = *job_.source;
    std::vector<TextColumn> columns;
    static const auto kNoPoints =
        MemCore::makeStrong<PositionArray>(std::array<std::uint64_t, 1>{0});
    const MemCore::StrongPtr<Fiber::MemBase> positions =
        fragment == nullptr ? kNoPoints : fragment->positions;
    columns.push_back({"Positions", positions, decimalsOf(source.positions->properties())});
    for (const std::size_t number : job_.fields) {
      const ExportField& field = source.fields[number];
      columns.push_back({field.name, fragment == nullptr ? nullptr : fragment->fields[number],
                         decimalsOf(field.field->properties())});
    }
    return columns;
  }

  Outcome<void> exportBatch(std::span<const ExportFragment> fragments) {
    const auto loaded = loadFragments(*job_.source, fragments, needs_, job_.choose);
    if (!loaded) return loaded.failure();
    std::vector<Block> blocks = cut(*loaded);
    const auto made = parallelTexts(blocks.size(), blocks.size() * kBlockPoints * kBytesOfPoint,
                                    [&](std::size_t i) { return make(blocks[i]); });
    if (!made) return made.failure();
    for (const Block& block : blocks) {
      if (auto done = writer_->append(block.packed); !done) return done;
      result_.points += block.count;
    }
    return {};
  }

  static std::vector<Block> cut(const std::vector<FragmentColumns>& loaded) {
    std::vector<Block> blocks;
    for (const FragmentColumns& fragment : loaded) {
      const std::size_t count = fragment.choice.countOf(*fragment.fragment);
      for (std::size_t first = 0; first < count; first += kBlockPoints) {
        blocks.push_back({&fragment, first, std::min(kBlockPoints, count - first), {}});
      }
    }
    return blocks;
  }

  Outcome<void> make(Block& block) const {
    std::vector<std::uint32_t> rows(block.count);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      rows[i] = static_cast<std::uint32_t>(chosenRow(*block.fragment, block.first + i));
    }
    const auto columns = columnsOf(block.fragment);
    const bool isWhole = std::all_of(columns.begin(), columns.end(),
                                     [](const TextColumn& column) { return bool(column.values); });
    if (!isWhole) {
      return Failure{fmt::format("{}: fragment {} lacks a field", job_.path,
                                 block.fragment->fragment->id->name())};
    }
    auto text = formatRows(columns, writer_->style(), std::span<const std::uint32_t>(rows));
    if (!text) return Failure{fmt::format("{}: {}", job_.path, text.error())};
    auto packed = writer_->pack(std::move(*text));
    if (!packed) return packed.failure();
    block.packed = std::move(*packed);
    return {};
  }

  const TextExportJob& job_;
  ColumnNeeds needs_;
  std::optional<TextWriter> writer_;
  PointFileResult result_;
};

}  // namespace

Outcome<PointFileResult> exportText(const TextExportJob& job) {
  return withoutExceptions(job.path, [&] { return Exporter(job).run(); });
}

}  // namespace Formats
