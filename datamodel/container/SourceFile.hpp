// SPDX-License-Identifier: Apache-2.0
//
// Bundle files that point data are read from. A linked bundle may lead to hundreds of thousands of
// them: the most recently used stay open, with what was learnt about where their values lie, and
// the others are opened again when they are asked for.

#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "datamodel/container/BundleDescription.hpp"
#include "datamodel/container/DatasetLayout.hpp"
#include "datamodel/container/ObjectFile.hpp"

namespace Fiber::Container {

/// One open bundle file. Threads: any.
class SourceFile {
 public:
  /// Opens the file and makes sure that it holds what is meant. Errors: "<path>: ..." when it is
  /// missing, no bundle, or has changed.
  static MemCore::Outcome<std::shared_ptr<SourceFile>> open(const FileIdentity& identity);

  /// Where the values of a dataset lie; found out once.
  /// Errors: "<path>: <group>/<name>: ...".
  MemCore::Outcome<std::shared_ptr<const DatasetLayout>> layout(const std::string& group,
                                                                const std::string& name);

  /// For readAt.
  int descriptor() const { return file_.descriptor(); }

 private:
  SourceFile(FileIdentity identity, ObjectFile file);

  FileIdentity identity_;
  ObjectFile file_;
  std::mutex mutex_;  ///< guards layouts_
  std::map<std::string, std::shared_ptr<const DatasetLayout>> layouts_;
};

/// The process's open bundle files. Threads: any.
class SourceFiles {
 public:
  static SourceFiles& instance();

  /// The open file of that identity, opened when it is not. Errors: as SourceFile::open.
  MemCore::Outcome<std::shared_ptr<SourceFile>> find(const FileIdentity& identity);

  /// How many files are kept open; files in use beyond them stay open until they are let go.
  static constexpr std::size_t kMaxOpen = 128;
  std::size_t openCount() const;
  /// Closes all files that nobody uses.
  void clear();

 private:
  SourceFiles();

  struct Entry {
    std::string path;
    std::uint64_t contentId = 0;
    std::shared_ptr<SourceFile> file;
  };

  std::shared_ptr<SourceFile> findOpen(const FileIdentity& identity);
  void keep(const FileIdentity& identity, const std::shared_ptr<SourceFile>& file);

  mutable std::mutex mutex_;
  std::list<Entry> entries_;  ///< most recently used first
};

}  // namespace Fiber::Container
