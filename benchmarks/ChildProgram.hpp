// SPDX-License-Identifier: Apache-2.0
//
// Runs the program `refragment` and measures it from outside: wall time, and the peak of memory
// that the system counted.

#pragma once

#include <string>
#include <vector>

#include "benchmarks/MeasuredChild.hpp"

namespace Benchmarks {

/// Where the program lies when it was built together with this one.
std::string builtProgram();

/// Runs `program` with arguments, what it says going to a file in `folder`. `points` of the
/// measurement stays 0. Errors: the program cannot be run or ends with another status than 0; the
/// text holds what it said last.
MemCore::Outcome<Measurement> measureProgram(const std::string& program,
                                             const std::vector<std::string>& arguments,
                                             const std::string& folder);

}  // namespace Benchmarks
