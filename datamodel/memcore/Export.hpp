// SPDX-License-Identifier: Apache-2.0
//
// Marks what the shared libraries export; everything else stays hidden.

#pragma once

/// Exported by libFiberModel.
#define FIBER_API __attribute__((visibility("default")))
/// Exported by libLidarLib.
#define LIDARLIB_API __attribute__((visibility("default")))
