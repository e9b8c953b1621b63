// SPDX-License-Identifier: Apache-2.0
//
// GzipText: text in gzip files (RFC 1952), of one member or several. A gzip file cannot be read
// from its middle, so it is expanded once into a temporary file without a name, which goes with the
// last handle on it; from there it is read like any other. That costs disk instead of memory: the
// expanded text may be larger than the machine's memory, and is read at least twice.

#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "datamodel/memcore/Outcome.hpp"
#include "formats/las/InputFile.hpp"

namespace Formats {

/// Whether a file begins as gzip files do, or is named like one. Errors: unreadable bytes.
MemCore::Outcome<bool> isGzip(const InputFile& file);

/// Expands a gzip file into a file in the system's folder for temporary files (TMPDIR), under the
/// path of the gzip file in all texts. Threads: any.
/// Errors: damaged or truncated data, a line beyond kMaxLineBytes, no room on the disk; nothing is
/// left behind.
MemCore::Outcome<std::shared_ptr<const InputFile>> expandGzip(const InputFile& file);

/// One gzip member; members put one after the other are a gzip file. The same text always gives the
/// same bytes. Threads: any. Errors: no memory.
MemCore::Outcome<std::string> gzipMember(std::string_view text);

}  // namespace Formats
