// SPDX-License-Identifier: Apache-2.0

#include "formats/catalog/FootprintProjector.hpp"

#include <fmt/format.h>
#include <proj.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

namespace Formats {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// Points on each edge of an outline, one of the corners included.
constexpr int kStepsPerEdge = 20;
constexpr double kHalfTurnDegrees = 180.0;

struct ContextDeleter {
  void operator()(PJ_CONTEXT* context) const { proj_context_destroy(context); }
};
struct ObjectDeleter {
  void operator()(PJ* object) const { proj_destroy(object); }
};
using ContextHandle = std::unique_ptr<PJ_CONTEXT, ContextDeleter>;
using ObjectHandle = std::unique_ptr<PJ, ObjectDeleter>;

ContextHandle makeContext() {
  ContextHandle context(proj_context_create());
  if (!context) return context;
  // Failures are told by our own texts; the level alone does not silence a missing database.
  proj_log_func(context.get(), nullptr, [](void*, int, const char*) {});
  proj_context_set_enable_network(context.get(), 0);
  return context;
}

ObjectHandle makeSystem(PJ_CONTEXT* context, const CoordinateSystem& system) {
  if (!system.wkt.empty()) {
    // Warnings about the grammar of old texts are of no use to anyone.
    const char* options[] = {"STRICT=NO", nullptr};
    return ObjectHandle(
        proj_create_from_wkt(context, system.wkt.c_str(), options, nullptr, nullptr));
  }
  const std::string horizontal = fmt::format("EPSG:{}", system.epsg.value_or(0));
  if (system.heightEpsg) {
    // The oldest keys number heights in a way of their own, which no register knows.
    const std::string both = fmt::format("{}+{}", horizontal, *system.heightEpsg);
    if (ObjectHandle made(proj_create(context, both.c_str())); made) return made;
  }
  return ObjectHandle(proj_create(context, horizontal.c_str()));
}

/// The horizontal part of a system that has heights, too; otherwise empty.
ObjectHandle horizontalPart(PJ_CONTEXT* context, const PJ* system) {
  if (proj_get_type(system) != PJ_TYPE_COMPOUND_CRS) return nullptr;
  return ObjectHandle(proj_crs_get_sub_crs(context, system, 0));
}

std::string wkt2Of(PJ_CONTEXT* context, const PJ* system) {
  const char* options[] = {"MULTILINE=NO", nullptr};
  const char* text = proj_as_wkt(context, system, PJ_WKT2_2019, options);
  return text == nullptr ? std::string() : std::string(text);
}

std::optional<int> epsgOf(const PJ* system) {
  const char* authority = proj_get_id_auth_name(system, 0);
  const char* code = proj_get_id_code(system, 0);
  if (authority == nullptr || code == nullptr || std::string_view(authority) != "EPSG") return {};
  const std::string_view digits(code);
  int number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool isNumber = error == std::errc() && end == digits.data() + digits.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

std::string nameOf(const CoordinateSystem& system) {
  return system.wkt.empty() ? fmt::format("EPSG:{}", system.epsg.value_or(0)) : "the given WKT";
}

Failure unusable(const CoordinateSystem& system, const char* what) {
  return Failure{fmt::format("coordinate system: {}, found {}", what, nameOf(system))};
}

/// The outline of a box, counterclockwise, kStepsPerEdge points from each corner on.
std::vector<PJ_COORD> outlineOf(const std::array<double, 3>& minimum,
                                const std::array<double, 3>& maximum) {
  constexpr double kNoTime = std::numeric_limits<double>::infinity();
  const std::array<std::array<double, 2>, 5> corners{{{minimum[0], minimum[1]},
                                                      {maximum[0], minimum[1]},
                                                      {maximum[0], maximum[1]},
                                                      {minimum[0], maximum[1]},
                                                      {minimum[0], minimum[1]}}};
  std::vector<PJ_COORD> outline;
  for (std::size_t edge = 0; edge < 4; ++edge) {
    for (int step = 0; step < kStepsPerEdge; ++step) {
      const double share = static_cast<double>(step) / kStepsPerEdge;
      const auto between = [&](std::size_t axis) {
        return std::lerp(corners[edge][axis], corners[edge + 1][axis], share);
      };
      outline.push_back(proj_coord(between(0), between(1), 0.0, kNoTime));
    }
  }
  return outline;
}

/// Twice the area; negative where the corners go clockwise.
double signedArea(const std::array<std::array<double, 2>, 4>& corners) {
  double area = 0;
  for (std::size_t at = 0; at < corners.size(); ++at) {
    const auto& from = corners[at];
    const auto& to = corners[(at + 1) % corners.size()];
    area += from[0] * to[1] - to[0] * from[1];
  }
  return area;
}

}  // namespace

struct FootprintProjector::Machine {
  ContextHandle context;
  ObjectHandle toGlobe;
};

FootprintProjector::FootprintProjector(std::unique_ptr<Machine> machine)
    : machine_(std::move(machine)) {}
FootprintProjector::FootprintProjector(FootprintProjector&&) noexcept = default;
FootprintProjector& FootprintProjector::operator=(FootprintProjector&&) noexcept = default;
FootprintProjector::~FootprintProjector() = default;

Outcome<FootprintProjector> FootprintProjector::make(const CoordinateSystem& system) {
  auto machine = std::make_unique<Machine>();
  machine->context = makeContext();
  PJ_CONTEXT* context = machine->context.get();
  const ObjectHandle globe(context == nullptr ? nullptr : proj_create(context, "EPSG:4326"));
  if (!globe) return Failure{"coordinate systems: PROJ finds no database, expected proj.db"};
  const ObjectHandle whole = makeSystem(context, system);
  if (!whole) return unusable(system, "not known to PROJ");
  const ObjectHandle horizontal = horizontalPart(context, whole.get());
  const PJ* source = horizontal ? horizontal.get() : whole.get();
  if (proj_get_type(source) == PJ_TYPE_GEOCENTRIC_CRS) {
    return unusable(system, "has no horizontal axes");
  }
  const ObjectHandle made(
      proj_create_crs_to_crs_from_pj(context, source, globe.get(), nullptr, nullptr));
  if (!made) return unusable(system, "has no known place on the globe");
  // Points of LAS files have x to the east and y to the north, whatever the system's axes.
  machine->toGlobe.reset(proj_normalize_for_visualization(context, made.get()));
  if (!machine->toGlobe) return unusable(system, "has no known place on the globe");
  FootprintProjector projector(std::move(machine));
  projector.wkt2_ = wkt2Of(context, whole.get());
  projector.epsg_ = epsgOf(whole.get());
  return projector;
}

std::optional<Footprint> FootprintProjector::project(const std::array<double, 3>& minimum,
                                                     const std::array<double, 3>& maximum) const {
  std::vector<PJ_COORD> outline = outlineOf(minimum, maximum);
  // What cannot be transformed becomes infinite, which says more than the error code.
  proj_trans_array(machine_->toGlobe.get(), PJ_FWD, outline.size(), outline.data());
  const auto& start = outline.front().xy;
  Footprint footprint{{}, start.x, start.y, start.x, start.y};
  for (std::size_t at = 0; at < outline.size(); ++at) {
    const auto& [x, y] = outline[at].xy;
    if (!std::isfinite(x) || !std::isfinite(y)) return std::nullopt;
    footprint.west = std::min(footprint.west, x);
    footprint.south = std::min(footprint.south, y);
    footprint.east = std::max(footprint.east, x);
    footprint.north = std::max(footprint.north, y);
    if (at % kStepsPerEdge == 0) footprint.corners[at / kStepsPerEdge] = {x, y};
  }
  if (footprint.east - footprint.west > kHalfTurnDegrees) return std::nullopt;
  if (signedArea(footprint.corners) < 0) {
    std::reverse(footprint.corners.begin(), footprint.corners.end());
  }
  return footprint;
}

}  // namespace Formats
