// SPDX-License-Identifier: Apache-2.0

#include "planning/InputSurvey.hpp"

#include "datamodel/memcore/Console.hpp"

namespace LidarLib {

using Eagle::BoundingBox;
using MemCore::makeStrong;
using MemCore::StrongPtr;

namespace {

const Eagle::PhysicalSpace::point* pointIn(const PointHandle& handle) {
  return handle && !handle->empty() ? handle->data() : nullptr;
}

/// Whether a creator's data may be something else than a plain list of elements. Known facts rule
/// that out without making the data: what is computed instead of stored has no element type, and a
/// raster has three extents.
bool mayBeRaster(const Fiber::CreativeArrayBase& creator) {
  const Fiber::ArrayFacts facts = creator.facts();
  return !facts.type || !facts.size || facts.size->rank() != 1;
}

bool isRaster(const Fiber::Field& positions) {
  const Fiber::CreatorHandle creator = positions.getFirstCreator();
  if (!creator || !mayBeRaster(*creator)) return false;
  return bool(MemCore::handleCast<Fiber::UniformCartesianArray>(creator->data()));
}

/// The box of the data with the corners that are given put in place; empty without data.
StrongPtr<BoundingBox> dataBox(const Eagle::PhysicalSpace::point* start,
                               const Eagle::PhysicalSpace::point* end,
                               const StrongPtr<Fiber::Field>& positions) {
  StrongPtr<BoundingBox> box;
  if (!Fiber::expandBoundingBox(positions, box)) return nullptr;
  if (start != nullptr) box->setMin(*start);
  if (end != nullptr) box->setMax(*end);
  if (start != nullptr || end != nullptr) box->updateBall();
  return box;
}

/// Deliberate: a difference that is not a number passes.
bool hasNegativeEdge(const BoundingBox& box) {
  const auto edge = box.diagonal();
  return edge[0] < 0.0 || edge[1] < 0.0 || edge[2] < 0.0;
}

}  // namespace

StrongPtr<BoundingBox> computeGridBox(const PointHandle& startPoint, const PointHandle& endPoint,
                                      const StrongPtr<Fiber::Field>& positions) {
  const auto* start = pointIn(startPoint);
  const auto* end = pointIn(endPoint);
  StrongPtr<BoundingBox> box = start != nullptr && end != nullptr
                                   ? makeStrong<BoundingBox>(*start, *end)
                                   : dataBox(start, end, positions);
  if (!box) return nullptr;
  if (hasNegativeEdge(*box)) {
    MemCore::Console() << "Length for bounding box is negative. Wrong input";
    return nullptr;
  }
  return box;
}

GridSurvey surveyGrid(Fiber::Grid& grid, const PointHandle& startPoint, const PointHandle& endPoint,
                      std::string& message) {
  const auto held = grid.handle();
  const auto chart = held->makeCartesianChart(Fiber::kCartesianChart, 0);
  const auto vertices = held->skeletons().findVertices(-1);
  const auto fail = [&message](const char* text) {
    message = text;
    return GridSurvey{};
  };

  GridSurvey survey;
  survey.positions = held->getField(chart, "Positions", vertices);
  if (!survey.positions) return fail("Warning: Some grid(s) have no input positions");
  if (isRaster(*survey.positions)) return fail("Error: This grid is a raster");
  survey.representation = held->getCartesianRepresentation("");
  if (!survey.representation) return fail("no input representation");
  const auto waveforms = held->getField(chart, "Waveforms", vertices);
  const auto waveformsHp = held->getField(chart, "Waveforms_hp", vertices);
  survey.hasWaveforms = waveforms || waveformsHp;
  survey.globalBox = computeGridBox(startPoint, endPoint, survey.positions);
  // Deliberate: the text ends there, no grid name follows.
  if (!survey.globalBox) return fail("no global bbox for");
  return survey;
}

}  // namespace LidarLib
