// SPDX-License-Identifier: Apache-2.0
//
// The input survey: decides whether a grid can be tiled at all, notes whether it carries full
// waveforms, and settles its global bounding box, the box that the tiling covers.

#pragma once

#include <string>

#include "datamodel/fiber/Grid.hpp"

namespace LidarLib {

/// Empty, or a chunk holding one point.
using PointHandle = MemCore::StrongPtr<MemCore::Chunk<Eagle::PhysicalSpace::point>>;

/// Result of a survey. An empty `positions` handle means that the survey failed; all else is then
/// empty too.
struct GridSurvey {
  bool hasWaveforms = false;
  MemCore::StrongPtr<Eagle::BoundingBox> globalBox;
  MemCore::StrongPtr<Fiber::Representation> representation;
  MemCore::StrongPtr<Fiber::Field> positions;
};

/// Surveys one input grid. `startPoint` and `endPoint` replace the corners of the data's box.
/// Errors: an empty survey, and `message` is assigned the reason. Writes no output.
GridSurvey surveyGrid(Fiber::Grid& grid, const PointHandle& startPoint, const PointHandle& endPoint,
                      std::string& message);

/// The box to tile: that of the data, with corners replaced where points are given; with both
/// given the data are not read. Empty when there is no box or an edge is negative (the latter is
/// said on the console).
MemCore::StrongPtr<Eagle::BoundingBox> computeGridBox(
    const PointHandle& startPoint, const PointHandle& endPoint,
    const MemCore::StrongPtr<Fiber::Field>& positions);

}  // namespace LidarLib
