// SPDX-License-Identifier: Apache-2.0

#include "assembly/FieldCopy.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <list>
#include <optional>
#include <unordered_set>
#include <vector>

#include "assembly/FillingArray.hpp"
#include "datamodel/memcore/Console.hpp"

namespace LidarLib {

using Fiber::CreatorHandle;
using Fiber::DynamicSize;
using Fiber::FragmentHandle;
using Fiber::IndexList;
using Fiber::MemBase;
using Fiber::PointPart;
using MemCore::Console;
using MemCore::StrongPtr;

namespace {

constexpr int kSpaceDimension = 3;

std::uint64_t lengthOf(const DynamicSize& size) { return size.rank() == 1 ? size[0] : 0; }

/// Length of the positions of an input fragment; 0 when they are absent or no list of points.
std::uint64_t positionsLength(const FieldCopy& copy, const FragmentHandle& fragment) {
  const CreatorHandle creator =
      copy.inputPositions ? copy.inputPositions->getCreator(fragment) : nullptr;
  const auto size = creator ? Fiber::getSize(*creator) : std::nullopt;
  return size ? lengthOf(*size) : 0;
}

/// Element type and extents of an array, for messages: "uint16[100x5]".
std::string describe(const MemBase& array) {
  const auto type = array.type();
  return fmt::format("{}[{}]", type ? type->name() : "unknown type",
                     fmt::join(array.size().extents(), "x"));
}

/// The elements of one input fragment on their way into the tile.
struct FragmentElements {
  FragmentHandle fragment;
  StrongPtr<IndexList> points;
  DynamicSize size;
  StrongPtr<MemBase> data;
};

/// One field of the tile while it is being filled. One class of some length: each way of copying
/// (parts, points, samples) moves the same array, its filled end and its warnings.
class TileField {
 public:
  TileField(const FieldCopy& copy, StrongPtr<Fiber::Representation> representation,
            const std::string& name, const Fiber::Field& source);
  /// A copy that ends early leaves nothing in the tile's array that memory held before.
  ~TileField() {
    if (filling_) filling_->fillRest();
  }
  TileField(const TileField&) = delete;
  TileField& operator=(const TileField&) = delete;

  /// Adds the selected points of one input fragment, gathered in `part` if that is there, or skips
  /// the fragment.
  void append(const FragmentHandle& fragment, const StrongPtr<IndexList>& points,
              const PointPart* part);
  /// Says on the console what was skipped, and refreshes the value range of what was written.
  void finish();

 private:
  void adopt(const StrongPtr<Fiber::Field>& output);
  StrongPtr<Fiber::Field> makeOutput() const;
  bool appendPart(Fiber::CreativeArrayBase& creator, const PointPart& part);
  bool hasPositionsLength(const FragmentHandle& fragment, const DynamicSize& size);
  StrongPtr<MemBase> newArray(const StrongPtr<Fiber::FiberTypeBase>& type, const DynamicSize& size);
  StrongPtr<MemBase> newArray(const FragmentElements& input);
  void dropNewArray();
  std::optional<std::uint32_t> copyInto(MemBase& output, const FragmentElements& input);
  template <class CopyPiece>
  bool copyInPieces(std::uint64_t points, std::uint64_t elementsPerPoint, CopyPiece copyPiece);
  std::optional<std::uint32_t> copyPoints(MemBase& output, const FragmentElements& input);
  std::optional<std::uint32_t> copySamples(MemBase& output, const FragmentElements& input);
  std::optional<std::uint32_t> gatherSamples(MemBase& output, const FragmentElements& input);
  void store(const StrongPtr<MemBase>& made);
  void warnSkipped(const FragmentElements& input, const std::string& found);

  const FieldCopy& copy_;
  const StrongPtr<Fiber::Representation> representation_;
  const std::string name_;
  const Fiber::Field& source_;
  const std::uint32_t waveformLength_;
  StrongPtr<Fiber::Field> output_;  ///< empty until the field exists
  FragmentHandle fragment_;         ///< the tile's fragment in it
  CreatorHandle creator_;
  StrongPtr<MemBase> data_;  ///< the tile's array; empty until the first values arrive
  /// The same array, or what may become it; absent when it has been there before, and for the rare
  /// ones that begin with zeros. Filled up to offset_.
  std::optional<FillingArray> filling_;
  std::uint32_t offset_ = 0;  ///< next output element; wraps
  std::vector<std::string> warnings_;
};

TileField::TileField(const FieldCopy& copy, StrongPtr<Fiber::Representation> representation,
                     const std::string& name, const Fiber::Field& source)
    : copy_(copy),
      representation_(std::move(representation)),
      name_(name),
      source_(source),
      waveformLength_(waveformLengthOf(name, copy.waveformLengths)) {
  if (const auto present = representation_->findField(name)) adopt(present);
}

/// Takes a field as the output, with what an earlier copy has stored for the tile.
void TileField::adopt(const StrongPtr<Fiber::Field>& output) {
  output_ = output;
  output_->properties() = source_.properties();
  output_->propertyBits = source_.propertyBits;
  fragment_ = copy_.templateField ? copy_.outputFragment
                                  : output_->makeFragmentID(Fiber::tileIndexText(copy_.tileIndex));
  creator_ = output_->getCreator(fragment_);
  data_ = creator_ ? creator_->data() : nullptr;
}

StrongPtr<Fiber::Field> TileField::makeOutput() const {
  if (!copy_.templateField) return Fiber::FieldProxy(representation_, name_);
  StrongPtr<Fiber::Field> made = copy_.templateField->emptyCopy();
  representation_->setField(name_, made);
  return made;
}

void TileField::append(const FragmentHandle& fragment, const StrongPtr<IndexList>& points,
                       const PointPart* part) {
  const CreatorHandle creator = source_.getCreator(source_.getFragmentID(fragment->name()));
  const auto size = creator ? Fiber::getSize(*creator) : std::nullopt;
  if (!size) return;
  if (size->rank() == 2 ? waveformLength_ == 0 : !hasPositionsLength(fragment, *size)) return;
  if (part != nullptr && size->rank() == 1 && appendPart(*creator, *part)) return;
  const FragmentElements input{fragment, points, *size, creator->data()};
  if (!input.data || !input.data->elements()) return;

  const StrongPtr<MemBase> output = data_ ? data_ : newArray(input);
  if (!output) return;
  const auto added = copyInto(*output, input);
  if (!added) return dropNewArray();
  if (!data_) store(output);
  if (creator_) creator_->touch();
  offset_ += *added;
}

/// Has the creator write its elements at the part's points straight into the tile's array; false
/// when that cannot be done.
bool TileField::appendPart(Fiber::CreativeArrayBase& creator, const PointPart& part) {
  const auto type = creator.facts().type;
  if (!type || (data_ && data_->type() != type)) return false;
  const StrongPtr<MemBase> output = data_ ? data_ : newArray(type, {copy_.selection.pointCount});
  if (!output || !output->elements()) return false;
  const std::uint64_t count = part.points().size();
  MemCore::ChunkBase& elements = *output->elements();
  const std::size_t width = elements.elementSize();
  if (!elements.isPlain() || offset_ > elements.size() || count > elements.size() - offset_ ||
      !creator.copyPart(part, {elements.bytes() + offset_ * width, count * width})) {
    dropNewArray();
    return false;
  }
  if (filling_) filling_->noteFilled(count);
  if (!data_) store(output);
  if (creator_) creator_->touch();
  offset_ += static_cast<std::uint32_t>(count);
  return true;
}

bool TileField::hasPositionsLength(const FragmentHandle& fragment, const DynamicSize& size) {
  const std::uint64_t own = lengthOf(size);
  const std::uint64_t expected = positionsLength(copy_, fragment);
  if (own == expected) return true;
  warnings_.push_back(
      fmt::format(" Warning! Different Data Size: Field: {} Size: {} BUT Positions have:{} -> SKIP "
                  "THIS FIELD",
                  name_, own, expected));
  return false;
}

/// An array at its final size, to become the tile's; empty when it cannot be made.
StrongPtr<MemBase> TileField::newArray(const StrongPtr<Fiber::FiberTypeBase>& type,
                                       const DynamicSize& size) {
  filling_ = FillingArray::make(type, size);
  if (filling_) return filling_->array();
  return type ? MemBase::create(type, size, type->type()) : nullptr;
}

/// The same for the elements of a fragment; empty, after a message, when it cannot be made.
StrongPtr<MemBase> TileField::newArray(const FragmentElements& input) {
  const std::uint64_t pointCount = copy_.selection.pointCount;
  DynamicSize size;
  if (input.size.rank() == 1) {
    size = {pointCount};
  } else if (input.size.rank() == 2) {
    size = {waveformLength_, pointCount};
  } else {
    warnings_.emplace_back("Warning! Dim is not 1D or 2D!");
    return nullptr;
  }
  auto made = newArray(input.data->type(), size);
  if (!made) warnSkipped(input, "no array can be made, expected a registered element type");
  return made;
}

/// Forgets an array into which nothing was copied.
void TileField::dropNewArray() {
  if (!data_) filling_.reset();
}

/// Returns how many output elements were written; nothing, after a message, when none was.
std::optional<std::uint32_t> TileField::copyInto(MemBase& output, const FragmentElements& input) {
  std::optional<std::uint32_t> written;
  if (input.data->size() == input.size) {
    written = input.size.rank() == 2 ? copySamples(output, input) : copyPoints(output, input);
  }
  if (!written) {
    warnSkipped(input, fmt::format("does not fit the tile, expected {} from element {}",
                                   describe(output), offset_));
  }
  return written;
}

/// Copies so many points by way of copyPiece(first, count). An array that is being filled takes
/// them in pieces, and a piece that fails leaves no more in it than will be written again; any
/// other takes them all or none.
template <class CopyPiece>
bool TileField::copyInPieces(std::uint64_t points, std::uint64_t elementsPerPoint,
                             CopyPiece copyPiece) {
  if (!filling_) return copyPiece(0, points);
  const std::uint64_t pointsPerPiece =
      std::max<std::uint64_t>(filling_->pieceElements() / elementsPerPoint, 1);
  FillingArray filled = *filling_;
  for (std::uint64_t first = 0; first < points; first += pointsPerPiece) {
    const std::uint64_t count = std::min(pointsPerPiece, points - first);
    if (!copyPiece(first, count)) return false;
    filled.noteFilled(count * elementsPerPoint);
  }
  filling_ = filled;
  return true;
}

std::optional<std::uint32_t> TileField::copyPoints(MemBase& output, const FragmentElements& input) {
  const std::uint64_t points = input.points->size();
  const bool isCopied = copyInPieces(points, 1, [&](std::uint64_t first, std::uint64_t count) {
    return Fiber::CreateIndirection(output.elements(), input.data->elements(), nullptr,
                                    input.points.get(), {first, count, offset_, 0, 1});
  });
  return isCopied ? std::optional(static_cast<std::uint32_t>(points)) : std::nullopt;
}

std::optional<std::uint32_t> TileField::copySamples(MemBase& output,
                                                    const FragmentElements& input) {
  const std::span<const unsigned int> points = std::as_const(*input.points).span();
  const MemCore::ChunkBase& samples = *input.data->elements();
  if (!fitsIndices({points, input.size[0], waveformLength_, offset_}, samples.size())) {
    return gatherSamples(output, input);
  }
  const bool isCopied =
      copyInPieces(points.size(), waveformLength_, [&](std::uint64_t first, std::uint64_t count) {
        const auto offset = static_cast<std::uint32_t>(offset_ + first * waveformLength_);
        return copyWaveforms(
            *output.elements(), samples,
            {points.subspan(first, count), input.size[0], waveformLength_, offset});
      });
  if (!isCopied) return std::nullopt;
  return static_cast<std::uint32_t>(points.size() * waveformLength_);
}

/// The way for fragments whose sample indices wrap.
std::optional<std::uint32_t> TileField::gatherSamples(MemBase& output,
                                                      const FragmentElements& input) {
  const WaveformIndices indices =
      expandWaveformIndices(input.points, input.size[0], name_, copy_.waveformLengths);
  const std::uint64_t count = indices.samples->size();
  if (!Fiber::CreateIndirection(output.elements(), input.data->elements(), nullptr,
                                indices.samples.get(), {0, count, offset_, 0, 1})) {
    return std::nullopt;
  }
  if (indices.padding) {
    const std::size_t bytes = output.elements()->elementSize();
    std::byte* block = output.elements()->bytes() + offset_ * bytes;
    for (const unsigned int p : *indices.padding) std::memset(block + p * bytes, 0, bytes);
  }
  if (filling_) filling_->noteFilled(count);
  return static_cast<std::uint32_t>(count);
}

/// Registers the array, filled for the first time, as the tile's data.
void TileField::store(const StrongPtr<MemBase>& made) {
  if (!output_) adopt(makeOutput());
  creator_ = output_->setPersistentData(made, fragment_, MemCore::Cache::MemCache(), "");
  data_ = made;
}

void TileField::warnSkipped(const FragmentElements& input, const std::string& found) {
  warnings_.push_back(fmt::format(" Warning! Field: {} Fragment: {}: {} {} -> SKIP THIS FRAGMENT",
                                  name_, input.fragment->name(), describe(*input.data), found));
}

void TileField::finish() {
  for (const std::string& warning : warnings_) Console() << warning;
  if (!output_) return;
  if (filling_) {
    filling_->fillRest();
    if (creator_ && filling_->range()) creator_->rememberRange(*filling_->range());
  }
  Fiber::getRange(*output_, fragment_, false, false);
}

using TileFields = std::list<TileField>;

/// Begins the copy of one input field; adds nothing for a field that is not wanted or has no place
/// in the output.
void beginField(const FieldCopy& copy, const MemCore::WeakPtr<Fiber::BaseSpace>& space,
                const Fiber::FieldID& id, const StrongPtr<Fiber::Field>& field,
                TileFields& fields) {
  if (copy.operation != nullptr && !copy.operation->UseThisField(id.name)) return;
  const auto chart = space.lock();
  if (!chart || !field || !copy.outputGrid || !copy.selection.indexLists) return;
  const auto representation =
      copy.outputGrid->makeCartesianRepresentation(kSpaceDimension, chart->name(), 0);
  if (representation) fields.emplace_back(copy, representation, id.name, *field);
}

/// The selected points of one fragment, gathered for all its fields; empty where the fields' whole
/// arrays have to be asked. Errors: they cannot be read.
MemCore::Outcome<StrongPtr<PointPart>> gatherPart(Fiber::CreativeArrayBase& positions,
                                                  const IndexList& points) {
  const auto reader = positions.partReader();
  const auto indices = points.span();
  const bool canBePart =
      reader && indices.back() < reader->pointCount() &&
      std::adjacent_find(indices.begin(), indices.end(), std::greater_equal<>()) == indices.end();
  return canBePart ? reader->gather(indices) : StrongPtr<PointPart>();
}

/// Adds the selected points of one fragment, gathered already in `part` if that is there, to all
/// fields. Without a creator of positions, or when they cannot be read, the fragment is skipped.
void appendFragment(const FieldCopy& copy, const FragmentHandle& fragment,
                    const StrongPtr<IndexList>& points, StrongPtr<PointPart> part,
                    TileFields& fields) {
  const CreatorHandle positions =
      copy.inputPositions ? copy.inputPositions->getCreator(fragment) : nullptr;
  if (positions && !part) {
    const auto gathered = gatherPart(*positions, *points);
    if (!gathered) return positions->rememberFailure(gathered.error());
    part = *gathered;
  }
  for (TileField& field : fields) field.append(fragment, points, part.get());
}

/// Fills fields from the selected points of every input fragment, in the order of the selection.
void fillFields(const FieldCopy& copy, TileFields& fields) {
  if (fields.empty()) return;
  const auto& lists = *copy.selection.indexLists;
  const auto& parts = copy.selection.parts;
  std::size_t k = 0;
  for (const FragmentHandle& fragment : copy.fragments) {
    if (k == lists.size()) break;
    const std::size_t at = k++;
    const StrongPtr<IndexList>& points = lists[at];
    if (!fragment || !points || points->empty()) continue;
    appendFragment(copy, fragment, points, at < parts.size() ? parts[at] : nullptr, fields);
  }
  for (TileField& field : fields) field.finish();
}

}  // namespace

bool copyFieldIntoTile(const FieldCopy& copy, const MemCore::WeakPtr<Fiber::BaseSpace>& space,
                       const Fiber::FieldID& id, const StrongPtr<Fiber::Field>& field) {
  TileFields one;
  beginField(copy, space, id, field, one);
  fillFields(copy, one);
  return true;
}

void copyFieldsIntoTile(const FieldCopy& copy, Fiber::Skeleton& vertices) {
  TileFields fields;
  std::unordered_set<unsigned long long> visited;
  vertices.iterate_fields(
      [&](const MemCore::WeakPtr<Fiber::BaseSpace>& space, Fiber::Representation&,
          const Fiber::FieldID& id, const StrongPtr<Fiber::Field>& field) {
        beginField(copy, space, id, field, fields);
        return true;
      },
      visited);
  fillFields(copy, fields);
}

}  // namespace LidarLib
