// SPDX-License-Identifier: Apache-2.0
//
// InfoCommand: "refragment info", what a split would produce.

#pragma once

#include "host/Session.hpp"

namespace Host {

/// Writes nothing but its result. Done when every selected grid can be split, else failed.
ExitCode runInfo(const InfoOptions& options, Session& session);

}  // namespace Host
