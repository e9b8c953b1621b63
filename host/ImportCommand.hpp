// SPDX-License-Identifier: Apache-2.0
//
// ImportCommand: "refragment import", a bundle file with the points of LAS or LAZ files.

#pragma once

#include "host/Session.hpp"

namespace Host {

ExitCode runImport(const ImportOptions& options, Session& session);

}  // namespace Host
