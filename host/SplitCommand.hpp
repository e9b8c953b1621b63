// SPDX-License-Identifier: Apache-2.0
//
// SplitCommand: "refragment split", cuts a cloud into tiles. Everything is checked before the first
// byte is written; the run then works from inside the output directory, because the operation makes
// its folder relative to the working directory.
//
//   openJob -> planJob -> occupyPlace -> runOperation -> conclude

#pragma once

#include "host/Session.hpp"

namespace Host {

ExitCode runSplit(const SplitOptions& asked, Session& session);

}  // namespace Host
