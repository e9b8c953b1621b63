// SPDX-License-Identifier: Apache-2.0
//
// VerifyCommand: "refragment verify", whether everything that a bundle promises is there: every
// linked file, and in it every value, with the counts, boxes and ranges that the bundle tells.

#pragma once

#include "host/Session.hpp"

namespace Host {

ExitCode runVerify(const VerifyOptions& options, Session& session);

}  // namespace Host
