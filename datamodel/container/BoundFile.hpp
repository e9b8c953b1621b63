// SPDX-License-Identifier: Apache-2.0
//
// BoundFile: what a bundle is bound to while it grows. Finished fragments leave memory for a spill
// file without a name in the target's folder, at the same cost for each, however many there are;
// the file itself is written from there when the bundle is complete. Until then nothing is to be
// seen of it, and whatever ends the process leaves nothing behind.

#pragma once

#include <memory>
#include <string>

#include "datamodel/container/FileDescriptor.hpp"
#include "datamodel/fiber/Bundle.hpp"

namespace Fiber::Container {

/// Arrays one after the other in a file that has no name any more: gone with its last reader.
class SpillFile {
 public:
  /// Errors: "<target>: ..." when no file can be made in the target's folder.
  static MemCore::Outcome<std::shared_ptr<SpillFile>> make(const std::string& target);

  SpillFile(std::string target, FileDescriptor file)
      : target_(std::move(target)), file_(std::move(file)) {}

  /// Writes behind what is there; returns the offset in bytes. Threads: one at a time.
  MemCore::Outcome<std::uint64_t> append(std::span<const std::byte> bytes);
  /// Threads: any.
  MemCore::Outcome<void> read(std::uint64_t offsetBytes, std::span<std::byte> bytes) const;

 private:
  std::string target_;  ///< for messages
  FileDescriptor file_;
  std::uint64_t sizeBytes_ = 0;
};

/// Threads: store by one thread at a time; what was stored may be read by any.
class BoundFile final : public BundleBinding {
 public:
  BoundFile(std::string target, const StorageTransformations& options,
            std::shared_ptr<SpillFile> spill)
      : target_(std::move(target)), options_(options), spill_(std::move(spill)) {}

  MemCore::Outcome<void> store(Field& field, const FragmentHandle& fragment) override;
  MemCore::Outcome<void> complete(Bundle& bundle) override;

 private:
  std::string target_;
  StorageTransformations options_;
  std::shared_ptr<SpillFile> spill_;
};

}  // namespace Fiber::Container
