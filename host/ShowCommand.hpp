// SPDX-License-Identifier: Apache-2.0
//
// ShowCommand: "refragment show", what files hold.

#pragma once

#include "host/Session.hpp"

namespace Host {

ExitCode runShow(const ShowOptions& options, Session& session);

}  // namespace Host
