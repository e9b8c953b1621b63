// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextFragment.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

#include "formats/cloud/ColumnTypes.hpp"

namespace Formats {

using Eagle::PhysicalSpace;
using MemCore::Chunk;
using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

/// Grows by positions, which are all finite.
class GrowingBox {
 public:
  void add(std::span<const PhysicalSpace::point> points) {
    for (const PhysicalSpace::point& p : points) {
      low_ = {std::min(low_.x, p.x), std::min(low_.y, p.y), std::min(low_.z, p.z)};
      high_ = {std::max(high_.x, p.x), std::max(high_.y, p.y), std::max(high_.z, p.z)};
    }
  }
  StrongPtr<Eagle::BoundingBox> box() const {
    if (!(low_.x <= high_.x)) return nullptr;
    return MemCore::makeStrong<Eagle::BoundingBox>(low_, high_);
  }

 private:
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();
  PhysicalSpace::point low_{kInfinity, kInfinity, kInfinity};
  PhysicalSpace::point high_{-kInfinity, -kInfinity, -kInfinity};
};

/// One field's values of a type known only at run time, growing.
class GrowingColumn {
 public:
  GrowingColumn(ElementType type, std::size_t expectedRows) : type_(type) {
    withElementType(type_, [&](auto identity) {
      const auto chunk = MemCore::makeStrong<Chunk<typename decltype(identity)::type>>();
      chunk->reserve(expectedRows);
      chunk_ = chunk;
    });
  }

  /// Appends values as RowBlock holds them. Integers that do not fit lose their upper bits.
  void append(std::span<const std::uint64_t> slots) {
    withElementType(type_, [&](auto identity) {
      using T = typename decltype(identity)::type;
      T* to = static_cast<Chunk<T>&>(*chunk_).grow(slots.size());
      for (const std::uint64_t slot : slots) {
        if constexpr (std::is_floating_point_v<T>) {
          *to++ = static_cast<T>(std::bit_cast<double>(slot));
        } else {
          *to++ = static_cast<T>(slot);
        }
      }
    });
  }

  StrongPtr<Fiber::MemBase> array() const {
    return withElementType(type_, [this](auto identity) -> StrongPtr<Fiber::MemBase> {
      using T = typename decltype(identity)::type;
      return Fiber::makeArray(MemCore::chunkCast<T>(chunk_));
    });
  }

 private:
  ElementType type_;
  StrongPtr<MemCore::ChunkBase> chunk_;
};

/// All columns of a fragment, growing block by block.
class GrowingFragment {
 public:
  GrowingFragment(const TextFile& file, std::size_t expectedRows)
      : positions_(MemCore::makeStrong<Chunk<PhysicalSpace::point>>()) {
    positions_->reserve(expectedRows);
    std::vector<ElementType> types(file.fieldCount);
    for (const PlannedColumn& column : file.columns) {
      if (column.kind == ColumnRole::Kind::Field) types[column.field] = column.type;
    }
    for (const ElementType type : types) fields_.emplace_back(type, expectedRows);
  }

  void append(const RowBlock& block) {
    const auto points = std::span(block.positions).first(block.rowCount);
    positions_->append(points);
    box_.add(points);
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      fields_[i].append({block.slots(i), block.rowCount});
    }
  }

  std::size_t rowCount() const { return positions_->size(); }
  StrongPtr<Eagle::BoundingBox> box() const { return box_.box(); }
  DecodedHandle fragment() const {
    std::vector<StrongPtr<Fiber::MemBase>> columns{Fiber::makeArray(positions_)};
    for (const GrowingColumn& field : fields_) columns.push_back(field.array());
    return MemCore::makeStrong<DecodedFragment>(std::move(columns));
  }

 private:
  StrongPtr<Chunk<PhysicalSpace::point>> positions_;
  std::vector<GrowingColumn> fields_;
  GrowingBox box_;
};

bool allFit(const TextFile& file, std::span<const ColumnFacts> facts) {
  for (std::size_t i = 0; i < facts.size(); ++i) {
    const PlannedColumn& column = file.columns[i];
    if (column.kind == ColumnRole::Kind::Field && !facts[i].fit(column.type)) return false;
  }
  return true;
}

/// Parses all pieces of a range. Errors: unreadable bytes.
Outcome<std::optional<LineFailure>> parsePieces(LinePieces& pieces, RowParser& parser,
                                                RowBlock& block, GrowingFragment& fragment) {
  while (true) {
    const auto piece = pieces.next();
    if (!piece) return piece.failure();
    if (piece->empty()) return std::optional<LineFailure>();
    std::string_view lines = *piece;
    while (!lines.empty()) {
      block.rowCount = 0;
      auto failure = parser.parse(lines, block);
      fragment.append(block);
      if (failure) return failure;
    }
  }
}

}  // namespace

Outcome<ParsedLines> parseLines(const TextFile& file, const ByteRange& range,
                                std::uint64_t expectedRows) {
  LinePieces pieces(*file.bytes, range);
  RowParser parser(file.format, file.columns);
  RowBlock block(file.fieldCount);
  GrowingFragment fragment(file, static_cast<std::size_t>(expectedRows));
  auto failure = parsePieces(pieces, parser, block, fragment);
  if (!failure) return failure.failure();
  ParsedLines parsed;
  parsed.lineFailure = std::move(*failure);
  parsed.facts.assign(parser.facts().begin(), parser.facts().end());
  parsed.rowCount = fragment.rowCount();
  parsed.lineCount = parser.lineCount();
  parsed.box = fragment.box();
  if (!parsed.lineFailure && allFit(file, parsed.facts)) parsed.fragment = fragment.fragment();
  return parsed;
}

std::string describeLine(const TextFile& file, std::uint64_t firstLine,
                         const LineFailure& failure) {
  return fmt::format("{}:{}: {}", file.path(), firstLine + failure.line, failure.text);
}

Outcome<ParsedLines> TextFragmentSource::survey(std::uint64_t expectedRows) {
  Outcome<ParsedLines> parsed = parseLines(*file_, range_, expectedRows);
  if (!parsed) return parsed;
  rowCount_ = parsed->rowCount;
  if (parsed->fragment && rowCount_ != 0) adopt(parsed->fragment);
  parsed->fragment = nullptr;
  return parsed;
}

StrongPtr<TextFragmentSource> TextFragmentSource::forPlan(
    std::shared_ptr<const TextFile> file) const {
  if (const auto present = decodedIfPresent()) MemCore::Cache::MemCache()->remove(*present);
  auto other = MemCore::makeStrong<TextFragmentSource>(std::move(file), range_);
  other->rowCount_ = rowCount_;
  other->firstLine_ = firstLine_;
  return other;
}

Outcome<DecodedHandle> TextFragmentSource::decode() {
  const Outcome<ParsedLines> parsed = parseLines(*file_, range_, rowCount_);
  if (!parsed) return parsed.failure();
  if (parsed->lineFailure) return Failure{describeLine(*file_, firstLine_, *parsed->lineFailure)};
  if (parsed->rowCount != rowCount_ || !parsed->fragment) {
    return Failure{
        fmt::format("{}: has changed since it was opened, found {} rows in bytes {} to "
                    "{}, expected {} of the same kind",
                    file_->path(), parsed->rowCount, range_.begin, range_.end, rowCount_)};
  }
  return parsed->fragment;
}

}  // namespace Formats
