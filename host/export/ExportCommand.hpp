// SPDX-License-Identifier: Apache-2.0
//
// ExportCommand: refragment export, which writes the points of a bundle as LAS or LAZ files.

#pragma once

#include "host/Session.hpp"

namespace Host {

ExitCode runExport(const ExportOptions& options, Session& session);

}  // namespace Host
