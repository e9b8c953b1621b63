// SPDX-License-Identifier: Apache-2.0
//
// RecordSpill: decoded point records that memory has no room for, in a nameless file on the disk.
// Decoding a LAZ chunk costs a hundred times what reading its records does, so what is decoded once
// and needed again later is kept there. A spill that cannot be written or read is given up, with
// all that it holds: its users decode again, and the disk is left to what the program is to write.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "datamodel/memcore/Outcome.hpp"

namespace Formats {

/// Threads: every operation may be called at once from any thread.
class RecordSpill {
 public:
  /// An empty spill in a folder, for so many bytes. Errors: the folder cannot be written to, or has
  /// less room than twice as many bytes: what is spilled will be written once more as output.
  static MemCore::Outcome<std::shared_ptr<RecordSpill>> make(const std::string& folder,
                                                             std::uint64_t byteCount);
  ~RecordSpill();
  RecordSpill(const RecordSpill&) = delete;
  RecordSpill& operator=(const RecordSpill&) = delete;

  /// Keeps bytes at a place of the caller's choice. False: they are not kept, nor is anything else.
  bool write(std::uint64_t offset, std::span<const std::byte> bytes);
  /// Gets back what was written there. False: it is lost, and so is everything else.
  bool read(std::uint64_t offset, std::span<std::byte> bytes);
  /// Why the spill was given up; empty while it works.
  std::string failure() const;

 private:
  RecordSpill(std::string folder, int file) : folder_(std::move(folder)), file_(file) {}
  void giveUp(int error);

  const std::string folder_;
  const int file_;
  std::atomic<bool> isGivenUp_ = false;
  mutable std::mutex mutex_;  ///< guards `failure_`
  std::string failure_;
};

}  // namespace Formats
