// SPDX-License-Identifier: Apache-2.0

#include "host/export/TileOwnership.hpp"

#include <fmt/format.h>

#include "planning/TilingAttributes.hpp"

namespace Host {

using Eagle::PhysicalSpace;
using MemCore::makeStrong;

namespace {

constexpr const char* kOriginAttribute = "TilingOrigin";

using PointChunk = MemCore::Chunk<PhysicalSpace::point>;

MemCore::StrongPtr<PointChunk> pointsOf(const Fiber::Grid& grid, const std::string& name) {
  return MemCore::chunkCast<PhysicalSpace::point>(grid.attributes().getAttribute(name));
}

double overlapOf(const Fiber::Grid& grid) {
  const auto overlap =
      MemCore::chunkCast<double>(grid.attributes().getAttribute(LidarLib::kOverlapAttribute));
  return overlap && !overlap->empty() ? (*overlap)[0] : 0.0;
}

}  // namespace

void keepTilingOrigin(Fiber::Grid& grid, const LidarLib::TilingLayout& layout) {
  const auto& length = layout.fragmentLength;
  const auto& corner = layout.origin;
  const PhysicalSpace::point origin{corner[0], corner[1], corner[2]};
  const PhysicalSpace::point lengths{length[0], length[1], length[2]};
  grid.attributes().setAttribute(
      kOriginAttribute,
      makeStrong<PointChunk>(std::initializer_list<PhysicalSpace::point>{origin, lengths}));
}

std::optional<TilingPlace> tilingPlaceOf(const Fiber::Grid& grid) {
  const auto kept = pointsOf(grid, kOriginAttribute);
  const auto lengths = pointsOf(grid, LidarLib::kFragLengthAttribute);
  // A split by other hosts copies the attribute of a former tiling; its lengths give it away.
  if (!kept || kept->size() != 2 || !lengths || lengths->empty()) return std::nullopt;
  const PhysicalSpace::point& length = (*kept)[1];
  if (length != (*lengths)[0]) return std::nullopt;
  const PhysicalSpace::point& origin = (*kept)[0];
  return TilingPlace{{origin.x, origin.y, origin.z}, {length.x, length.y, length.z}};
}

Result<std::optional<TileOwnership>> TileOwnership::of(const Fiber::Grid& grid) {
  if (!(overlapOf(grid) > 0.0)) return std::optional<TileOwnership>();
  const auto place = tilingPlaceOf(grid);
  if (!place) {
    return failedStop(fmt::format(
        "grid {}: its tiles overlap, and it does not tell where the tiling begins; --overlap keep "
        "writes the points of the margins as often as they occur",
        grid.name()));
  }
  const PhysicalSpace::point corner{place->origin[0], place->origin[1], place->origin[2]};
  TileOwnership ownership;
  ownership.layout_.globalBox = makeStrong<Eagle::BoundingBox>(corner, corner);
  ownership.layout_.origin = place->origin;
  ownership.layout_.fragmentLength = place->length;
  return std::optional<TileOwnership>(std::move(ownership));
}

std::vector<std::uint32_t> TileOwnership::ownedRows(const LidarLib::PositionArray& points,
                                                    const Fiber::MultiIndex<3>& tile) const {
  const auto box = LidarLib::tileBox(tile, layout_, 0.0);
  const auto rows = LidarLib::selectPointsInBox(points, *box, tile);
  return {rows->begin(), rows->end()};
}

}  // namespace Host
