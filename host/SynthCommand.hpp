// SPDX-License-Identifier: Apache-2.0
//
// SynthCommand: "refragment synth", a made-up survey.

#pragma once

#include "host/Session.hpp"

namespace Host {

ExitCode runSynth(const SynthOptions& options, Session& session);

}  // namespace Host
