// SPDX-License-Identifier: Apache-2.0
//
// ExitCode: what the program's exit status says. Scripts rely on the numbers.

#pragma once

namespace Host {

enum class ExitCode {
  Done = 0,
  Failed = 1,       ///< nothing usable was made
  Usage = 2,        ///< the command line makes no sense; nothing was touched
  Differs = 3,      ///< everything ran, but point totals do not add up
  TilesFailed = 4,  ///< some tiles could not be written; running again goes on with them
  Cancelled = 130,  ///< interrupted; running again goes on where it stopped
};

}  // namespace Host
