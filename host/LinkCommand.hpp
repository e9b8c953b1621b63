// SPDX-License-Identifier: Apache-2.0
//
// LinkCommand: "refragment link", a bundle over tile files that were written earlier. The operation
// ends the process where files do not go together: everything is checked before it is called.
//
//   openTiles -> checkTogether -> linkTiles

#pragma once

#include "host/Session.hpp"

namespace Host {

ExitCode runLink(const LinkOptions& options, Session& session);

}  // namespace Host
