// SPDX-License-Identifier: Apache-2.0
//
// Workspace: where a benchmark program puts its files. Every repetition gets an empty folder of its
// own. Nothing is deleted between measurements, because ext4 walks past the inodes of files that
// were deleted shortly before, which makes creating the next files slow; giving back space cuts the
// files to nothing instead.

#pragma once

#include <string>

namespace Benchmarks {

class Workspace {
 public:
  /// Makes a new folder within `parent`, or in the folder for temporary files when that is empty.
  /// Throws std::filesystem::filesystem_error when it cannot.
  Workspace(const std::string& parent, const std::string& program);
  /// Removes the folder; within a given parent, gives back its space only.
  ~Workspace();
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  const std::string& folder() const { return folder_; }
  /// A path for a file that is kept until the end.
  std::string path(const std::string& name) const { return folder_ + "/" + name; }
  /// A new empty folder, for one measurement.
  std::string freshFolder();
  /// Cuts all files in the fresh folders of so far to nothing.
  void giveBackSpace();

 private:
  std::string folder_;
  bool isTemporary_;
  int firstFolder_ = 0;  ///< with space to give back
  int nextFolder_ = 0;
};

}  // namespace Benchmarks
