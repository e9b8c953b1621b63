// SPDX-License-Identifier: Apache-2.0
//
// Terminal: what standard error is connected to, and what it can show.

#pragma once

namespace Host {

/// Properties of standard error, looked up once at start.
struct Terminal {
  bool isTerminal = false;  ///< somebody watches: a status line makes sense
  bool hasColour = false;   ///< NO_COLOR is not set and the terminal is not "dumb"
  int columns = 80;
};

/// Looks at standard error and the environment.
Terminal inspectTerminal();

}  // namespace Host
