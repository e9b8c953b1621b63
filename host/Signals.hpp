// SPDX-License-Identifier: Apache-2.0
//
// Signals: turns the first Ctrl-C (SIGINT) or SIGTERM into a wish that long steps ask about, so
// that they end between two tiles. A second one ends the process as usual.

#pragma once

namespace Host {

/// From now on the first SIGINT or SIGTERM is noted instead of ending the process, and a file that
/// grows beyond the user's limit is a failed write instead of the end.
void noteStopSignals();

/// Whether the user has asked to stop. Threads: any.
bool stopRequested();

}  // namespace Host
