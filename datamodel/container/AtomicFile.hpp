// SPDX-License-Identifier: Apache-2.0
//
// A file that appears under its name complete or not at all. It is written as NAME.tmp.PID.N in
// the same folder, flushed to the disk and then renamed; a file that can be seen is therefore
// whole, which is what restarts rely on. The writer holds a lock (flock) on its temporary, so that
// another process, even on another machine sharing the folder, can tell it from what a dead run
// left behind.

#pragma once

#include <string>

#include "datamodel/container/FileDescriptor.hpp"
#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Whether a commit waits until the disk has the data.
enum class Durability { kSynced, kUnsynced };

/// The temporary of one target. Destroyed without a commit, it removes its file.
class AtomicFile {
 public:
  /// Creates the empty temporary beside `target`. Errors: "<target>: cannot create ..." with the
  /// system's reason (no such folder, not writable, name too long, disk full).
  static MemCore::Outcome<AtomicFile> make(const std::string& target);

  AtomicFile(AtomicFile&& other) noexcept;
  AtomicFile& operator=(AtomicFile&&) = delete;
  ~AtomicFile();

  const std::string& temporaryPath() const { return temporary_; }
  const std::string& targetPath() const { return target_; }

  /// The open temporary, readable and writable. Others may open it by its path as well.
  int descriptor() const { return file_.get(); }

  /// Flushes the temporary and gives it the target's name, replacing a file of that name.
  /// Errors: the flush or the rename failed; the temporary is then removed and the target as it
  /// was.
  MemCore::Outcome<void> commit(Durability durability = Durability::kSynced);

 private:
  AtomicFile(std::string target, std::string temporary, FileDescriptor file);
  void discard() noexcept;

  std::string target_;
  std::string temporary_;  // empty once committed or removed
  FileDescriptor file_;
};

/// Makes renames in the folder of `path` (or in `path`, if it is a folder) last through a power
/// failure. Errors: the folder cannot be opened or flushed.
MemCore::Outcome<void> syncFolder(const std::string& path);

/// Removes the temporaries that dead processes left in `folder`. Kept are those whose process
/// lives (and is not younger than the file: numbers of processes are reused) and those that
/// somebody holds locked. The number of removed files. Errors: the folder cannot be read.
MemCore::Outcome<int> removeStaleTemporaries(const std::string& folder);

}  // namespace Fiber::Container
