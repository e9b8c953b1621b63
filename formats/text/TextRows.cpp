// SPDX-License-Identifier: Apache-2.0

#include "formats/text/TextRows.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "datamodel/eagle/PhysicalSpace.hpp"
#include "formats/text/NumberText.hpp"

namespace Formats {

using Eagle::PhysicalSpace;
using MemCore::Chunk;
using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Writes the part of a row that one column has.
class ColumnWriter {
 public:
  virtual ~ColumnWriter() = default;
  virtual char* write(char* to, std::size_t row) const = 0;
  /// The longest that one part may become.
  virtual std::size_t mostChars() const { return kMostNumberChars; }

 protected:
  ColumnWriter() = default;
  ColumnWriter(const ColumnWriter&) = default;
  ColumnWriter& operator=(const ColumnWriter&) = default;
};
using ColumnWriterPtr = std::unique_ptr<ColumnWriter>;

template <class T>
class NumberWriter final : public ColumnWriter {
 public:
  NumberWriter(std::span<const T> values, const TextColumn& column, const RowStyle& style)
      : values_(values), decimals_(column.decimals[0]), isRounded_(style.isRounded) {}

  char* write(char* to, std::size_t row) const override {
    if constexpr (std::is_same_v<T, double>) {
      return writeNumber(to, values_[row], decimals_, isRounded_);
    } else {
      return writeShortest(to, values_[row]);
    }
  }

 private:
  std::span<const T> values_;
  std::uint8_t decimals_;
  bool isRounded_;
};

class PositionWriter final : public ColumnWriter {
 public:
  PositionWriter(std::span<const PhysicalSpace::point> values, const TextColumn& column,
                 const RowStyle& style)
      : values_(values),
        decimals_(column.decimals),
        delimiter_(characterOf(style.delimiter)),
        isRounded_(style.isRounded) {}

  char* write(char* to, std::size_t row) const override {
    const PhysicalSpace::point& p = values_[row];
    to = writeNumber(to, p.x, decimals_[0], isRounded_);
    *to++ = delimiter_;
    to = writeNumber(to, p.y, decimals_[1], isRounded_);
    *to++ = delimiter_;
    return writeNumber(to, p.z, decimals_[2], isRounded_);
  }
  std::size_t mostChars() const override { return 3 * (kMostNumberChars + 1); }

 private:
  std::span<const PhysicalSpace::point> values_;
  Decimals decimals_;
  char delimiter_;
  bool isRounded_;
};

/// The writer of a column whose elements are of type T; null when they are not.
template <class Writer, class T>
ColumnWriterPtr writerIf(const TextColumn& column, const RowStyle& style) {
  const auto chunk = MemCore::chunkCast<T>(column.values->elements());
  if (!chunk) return nullptr;
  return std::make_unique<Writer>(std::span<const T>(*chunk), column, style);
}

template <class... Types>
ColumnWriterPtr numberWriter(const TextColumn& column, const RowStyle& style) {
  ColumnWriterPtr writer;
  ((writer = writer ? std::move(writer) : writerIf<NumberWriter<Types>, Types>(column, style)),
   ...);
  return writer;
}

bool isPositions(const TextColumn& column) {
  return column.values && column.values->elements() &&
         column.values->elements()->elementType() == typeid(PhysicalSpace::point);
}

Outcome<ColumnWriterPtr> writerOf(const TextColumn& column, const RowStyle& style) {
  if (!column.values || !column.values->elements() || column.values->size().rank() != 1) {
    return Failure{fmt::format("field {}: cannot be written as text, expected one value per point",
                               column.name)};
  }
  ColumnWriterPtr writer =
      isPositions(column)
          ? writerIf<PositionWriter, PhysicalSpace::point>(column, style)
          : numberWriter<std::uint8_t, std::int8_t, std::uint16_t, std::int16_t, std::uint32_t,
                         std::int32_t, std::uint64_t, std::int64_t, float, double>(column, style);
  if (writer) return writer;
  return Failure{fmt::format("field {}: cannot be written as text, expected numbers", column.name)};
}

/// The names of fields that a reader would take for the positions get a number.
std::string columnName(const TextColumn& column) {
  std::string name = column.name;
  for (char& c : name) {
    const auto code = static_cast<unsigned char>(c);
    if (code <= 0x20 || code == 0x7F || c == ',' || c == ';' || c == '"') c = '_';
  }
  const bool isAxis = name.size() == 1 && std::string("xyzXYZ").find(name) != std::string::npos;
  return isAxis ? name + "_2" : name;
}

/// The fewest decimals that a number is a multiple of; unknown beyond those that surveys use.
std::uint8_t decimalsOfStep(double step) {
  constexpr std::uint8_t kMostOfSurveys = 12;
  constexpr double kTolerance = 1e-6;
  for (std::uint8_t decimals = 0; decimals <= kMostOfSurveys; ++decimals) {
    const double steps = std::abs(step) * kPowersOfTen[decimals];
    if (std::isfinite(steps) && std::abs(steps - std::round(steps)) <= kTolerance &&
        (std::round(steps) != 0.0 || step == 0.0)) {
      return decimals;
    }
  }
  return kUnknownDecimals;
}

/// A row at a time into text.
std::string formatAll(std::span<const ColumnWriterPtr> writers, char delimiter,
                      std::size_t rowCount,
                      const std::optional<std::span<const std::uint32_t>>& rows) {
  std::size_t mostChars = 1;
  for (const auto& writer : writers) mostChars += writer->mostChars() + 1;
  std::vector<char> row(mostChars);
  constexpr std::size_t kUsualChars = 12;
  std::string text;
  text.reserve(rowCount * (writers.size() + 2) * kUsualChars);
  for (std::size_t i = 0; i < rowCount; ++i) {
    const std::size_t source = rows ? (*rows)[i] : i;
    char* to = row.data();
    for (const auto& writer : writers) {
      if (to != row.data()) *to++ = delimiter;
      to = writer->write(to, source);
    }
    *to++ = '\n';
    text.append(row.data(), to);
  }
  return text;
}

}  // namespace

Decimals decimalsOf(const MemCore::Attributes& properties) {
  Decimals decimals = kNoDecimals;
  const auto said = MemCore::chunkCast<std::uint64_t>(properties.getAttribute(kDecimalsProperty));
  if (said) {
    for (std::size_t i = 0; i < std::min(said->size(), decimals.size()); ++i) {
      if ((*said)[i] <= kMostDecimals) decimals[i] = static_cast<std::uint8_t>((*said)[i]);
    }
    return decimals;
  }
  const auto scale = MemCore::chunkCast<double>(properties.getAttribute("GridScale"));
  const auto offset = MemCore::chunkCast<double>(properties.getAttribute("GridOffset"));
  if (!scale || !offset || scale->size() != 3 || offset->size() != 3) return decimals;
  for (std::size_t i = 0; i < decimals.size(); ++i) {
    decimals[i] = std::max(decimalsOfStep((*scale)[i]), decimalsOfStep((*offset)[i]));
  }
  return decimals;
}

std::string headerLine(std::span<const TextColumn> columns, const RowStyle& style) {
  const char delimiter = characterOf(style.delimiter);
  std::string line;
  for (const TextColumn& column : columns) {
    if (!line.empty()) line += delimiter;
    if (isPositions(column)) {
      line += fmt::format("x{0}y{0}z", delimiter);
    } else {
      line += columnName(column);
    }
  }
  return line + '\n';
}

Outcome<std::string> formatRows(std::span<const TextColumn> columns, const RowStyle& style,
                                const std::optional<std::span<const std::uint32_t>>& rows) {
  if (columns.empty()) return Failure{"text: no fields given"};
  std::vector<ColumnWriterPtr> writers;
  for (const TextColumn& column : columns) {
    auto writer = writerOf(column, style);
    if (!writer) return writer.failure();
    writers.push_back(std::move(writer).value());
    const std::size_t first = columns.front().values->elements()->size();
    const std::size_t count = column.values->elements()->size();
    if (count == first) continue;
    return Failure{fmt::format("field {}: of another length than field {}, found {}, expected {}",
                               column.name, columns.front().name, count, first)};
  }
  const std::size_t count = columns.front().values->elements()->size();
  if (!rows) return formatAll(writers, characterOf(style.delimiter), count, rows);
  const auto outside =
      std::find_if(rows->begin(), rows->end(), [count](std::uint32_t row) { return row >= count; });
  if (outside != rows->end()) {
    return Failure{fmt::format("field {}: row is not there, found {}, expected below {}",
                               columns.front().name, *outside, count)};
  }
  return formatAll(writers, characterOf(style.delimiter), rows->size(), rows);
}

}  // namespace Formats
