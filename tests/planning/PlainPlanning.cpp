// SPDX-License-Identifier: Apache-2.0

#include "tests/planning/PlainPlanning.hpp"

#include <emmintrin.h>

#include <cmath>
#include <cstdio>

namespace LidarLib::TestSupport {

using MemCore::StrongPtr;

namespace {

std::string f(double value) {
  std::array<char, 400> text{};
  std::snprintf(text.data(), text.size(), "%f", value);
  return text.data();
}

template <class V>
std::string vec(const V& v) {
  return f(v[0]) + " x " + f(v[1]) + " x " + f(v[2]);
}

int plainCell(double v) {
  if (v < 0) return 0;
  if (v >= 200) return 199;
  return std::isnan(v) ? 0 : static_cast<int>(v);
}

double plainDensity(const StrongPtr<Fiber::Field>& positions) {
  std::vector<std::vector<unsigned char>> cells(200, std::vector<unsigned char>(200, 0));
  StrongPtr<Eagle::BoundingBox> box;
  Fiber::expandBoundingBox(positions, box);
  if (!box) return std::nan("");
  const double sx = 199 / (box->max().x - box->min().x);
  const double sy = 199 / (box->max().y - box->min().y);
  for (const auto& id : positions->getFragmentIDs()) {
    const auto creator = positions->getCreator(id);
    if (!creator) continue;
    const auto size = Fiber::getSize(*creator);
    double n = size ? 1.0 : 0.0;
    for (std::size_t d = 0; size && d < size->rank(); ++d) n *= static_cast<double>((*size)[d]);
    StrongPtr<Eagle::BoundingBox> own;
    Fiber::ExpandBBox(own, *creator, Fiber::DataCreationMode::KnownOrCreate);
    if (!own) continue;
    const double d = n / ((own->max().x - own->min().x) * (own->max().y - own->min().y));
    const int ix1 = plainCell((own->max().x - box->min().x) * sx);
    const int iy1 = plainCell((own->max().y - box->min().y) * sy);
    for (int ix = plainCell((own->min().x - box->min().x) * sx); ix < ix1; ++ix) {
      for (int iy = plainCell((own->min().y - box->min().y) * sy); iy < iy1; ++iy) {
        auto& cell = cells[static_cast<std::size_t>(ix)][static_cast<std::size_t>(iy)];
        cell = static_cast<unsigned char>(processorInt32(cell + d) & 255);
      }
    }
  }
  double sum = 0;
  double nonZero = 0;
  for (const auto& column : cells) {
    for (const unsigned char cell : column) {
      sum += cell;
      nonZero += cell == 0 ? 0 : 1;
    }
  }
  return sum / nonZero;
}

void plainEstimate(PlainTiling& tiling, double density, bool hasWaveforms) {
  if (!(density > 0)) return;
  const double area = 5000000 / density;
  double l = std::sqrt(area);
  std::string note;
  if (hasWaveforms) {
    l = l * 0.5;
    note = "Have FWFs! Fragment length / 2.0!";
  }
  double stored = l - std::floor(l) < 0.5 ? std::floor(l) : std::floor(l) + 1;
  if (l < 1) {
    tiling.console += "Warning: Estimated Fraglength < 1!\n";
    stored = l = 1;
  } else if (l > 10000) {
    tiling.console += "Warning: Estimated Fraglength > 10000!\n";
    stored = l = 10000;
  }
  tiling.length[0] = tiling.length[1] = stored;
  tiling.console += "New Fraglength=" + f(l) + " estimated density [points/m2]=" + f(density) +
                    " (TargetSize=5000000) Area " + f(area) + " " + note + "\n";
  tiling.info += "Based on estimated point density[points/m2]: " + f(density) +
                 " the new fragment length is: " + vec(tiling.length) + "\n";
}

std::uint64_t plainCount(double quotient) {
  if (quotient >= 0x1p63 || std::isnan(quotient)) return ~std::uint64_t{0};
  const auto count = static_cast<std::uint64_t>(processorInt64(quotient));
  return count == 0 ? 1 : count;
}

StrongPtr<Eagle::BoundingBox> plainTileBox(const std::array<std::uint64_t, 3>& q,
                                           const TilingLayout& layout, double overlap) {
  Eagle::PhysicalSpace::point low;
  Eagle::PhysicalSpace::point high;
  for (std::size_t a = 0; a < 3; ++a) {
    const double m = layout.globalBox->min()[a];
    const double l = layout.fragmentLength[a];
    low[a] = static_cast<double>(q[a]) * l + m;
    high[a] = static_cast<double>(q[a] + 1) * l + m;
    if (overlap > 0) {
      low[a] -= overlap * l;
      high[a] += overlap * l;
    }
  }
  return MemCore::makeStrong<Eagle::BoundingBox>(low, high);
}

bool plainOverlap(const Eagle::BoundingBox& tile, double epsilon, const Eagle::BoundingBox& f) {
  for (std::size_t a = 0; a < 3; ++a) {
    if (tile.max()[a] + epsilon < f.min()[a]) return false;
    if (f.max()[a] < tile.min()[a] - epsilon) return false;
  }
  return true;
}

}  // namespace

std::int32_t processorInt32(double value) { return _mm_cvttsd_si32(_mm_set_sd(value)); }
std::int64_t processorInt64(double value) { return _mm_cvttsd_si64(_mm_set_sd(value)); }

PlainTiling plainTiling(const Eagle::BoundingBox& globalBox, const std::array<double, 3>& length,
                        const StrongPtr<Fiber::Field>& positions, bool hasWaveforms) {
  PlainTiling tiling;
  tiling.length = length;
  if (length[0] <= 0 || length[1] <= 0) {
    plainEstimate(tiling, plainDensity(positions), hasWaveforms);
  } else {
    tiling.info += "Fragment Length: " + vec(length) + "\n";
  }
  std::array<double, 3> d{};
  for (std::size_t a = 0; a < 3; ++a) d[a] = globalBox.max()[a] - globalBox.min()[a];
  tiling.info += "Input Global Bounding Box: Min: " + vec(globalBox.min()) +
                 " Max: " + vec(globalBox.max()) + "\n";
  tiling.info += "Input Diagonal of Global Box: " + vec(d) + "\n";
  for (std::size_t a = 0; a < 3; ++a) {
    if (tiling.length[a] == 0) continue;
    tiling.counts[a] = plainCount(std::ceil(d[a] / tiling.length[a]));
  }
  const auto& n = tiling.counts;
  tiling.info += "Number of Out-Fragments: " + std::to_string(n[0]) + " x " + std::to_string(n[1]) +
                 " x " + std::to_string(n[2]) + "\n";
  __extension__ using Wide = unsigned __int128;
  const Wide limit = 50000000;
  const bool isOver = n[0] > limit || n[1] > limit || n[2] > limit || Wide{n[0]} * n[1] > limit ||
                      Wide{n[0]} * n[1] * n[2] > limit;
  if (n[0] * n[1] * n[2] == 0) {
    tiling.message = "Number of fragments is zero!";
  } else if (isOver) {
    tiling.message = "Number of fragments is over 50 Million!";
  }
  if (!tiling.message.empty()) return tiling;
  for (std::size_t a = 0; a < 3; ++a) {
    if (tiling.length[a] == 0) tiling.length[a] = d[a];
  }
  if (tiling.length[2] <= 0) tiling.length[2] = 1;
  tiling.tiledMin = globalBox.min();
  for (std::size_t a = 0; a < 3; ++a) {
    tiling.tiledMax[a] = tiling.tiledMin[a] + static_cast<double>(n[a]) * tiling.length[a];
  }
  return tiling;
}

PlainMapping plainMapping(const TilingLayout& layout, const Fiber::FragmentedUniformGrid3D& view,
                          double normalizedOverlap,
                          const std::vector<Fiber::FragmentHandle>& fragmentIDs,
                          const StrongPtr<Fiber::Field>& positions) {
  PlainMapping mapping;
  std::vector<TileEntry> tiles;
  for (std::uint64_t k = 0; k < layout.nz; ++k) {
    for (std::uint64_t j = 0; j < layout.ny; ++j) {
      for (std::uint64_t i = 0; i < layout.nx; ++i) {
        tiles.emplace_back(view.fragmentAt({{i, j, k}}),
                           plainTileBox({i, j, k}, layout, normalizedOverlap));
      }
    }
  }
  std::vector<FragmentEntry> fragments;
  for (const auto& id : fragmentIDs) {
    fragments.push_back(fragmentBox(id, positions, mapping.inputPointTotal));
  }
  const auto& first = *tiles.front().second;
  const double dx = first.max().x - first.min().x;
  const double dy = first.max().y - first.min().y;
  const double dz = first.max().z - first.min().z;
  const double epsilon = 0.001 * std::sqrt(dx * dx + dy * dy + dz * dz);
  for (const TileEntry& tile : tiles) {
    FragmentSet touching;
    for (const FragmentEntry& fragment : fragments) {
      if (!fragment.second || !plainOverlap(*tile.second, epsilon, *fragment.second)) continue;
      if (touching.count(fragment.first) == 0) touching.insert(fragment.first);
    }
    if (!touching.empty()) ++mapping.tilesWithData;
    mapping.tileCells.emplace_back(std::move(touching), tile.first);
  }
  return mapping;
}

}  // namespace LidarLib::TestSupport
