// SPDX-License-Identifier: Apache-2.0
//
// SyntheticBeam: a laser beam as a half-line, the common coin between the aircraft that sends it
// and the scene that it hits. Units: metres, x east, y north, z up, from the middle of the survey.

#pragma once

namespace Synth {

/// A location or a direction.
struct Vector3 {
  double x = 0;
  double y = 0;
  double z = 0;
};

/// Requires: `direction` has length 1 and points downwards.
struct Beam {
  Vector3 origin;
  Vector3 direction;

  /// The place at this distance from the origin.
  Vector3 at(double range) const {
    return {origin.x + range * direction.x, origin.y + range * direction.y,
            origin.z + range * direction.z};
  }

  /// Distance at which the beam comes down to this height.
  double rangeAtHeight(double height) const { return (height - origin.z) / direction.z; }
};

}  // namespace Synth
