// SPDX-License-Identifier: Apache-2.0
//
// The floor for compressed input: decode every chunk of the file, on the same threads, and throw
// the records away.

#pragma once

#include <string>

#include "benchmarks/MeasuredChild.hpp"

namespace Benchmarks {

/// Decodes the whole file; returns its number of points.
MemCore::Outcome<std::uint64_t> decodeOnly(const std::string& input, int threads);

}  // namespace Benchmarks
