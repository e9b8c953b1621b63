// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/SourceFile.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "datamodel/container/BundleScan.hpp"
#include "datamodel/container/Hdf5Library.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

SourceFile::SourceFile(FileIdentity identity, ObjectFile file)
    : identity_(std::move(identity)), file_(std::move(file)) {}

Outcome<std::shared_ptr<SourceFile>> SourceFile::open(const FileIdentity& identity) {
  auto opened = openBundle(identity.path);
  if (!opened.ok()) return opened.failure();
  const FileIdentity& found = opened->identity;
  if (found.sizeBytes != identity.sizeBytes || found.contentId != identity.contentId) {
    return Failure{fmt::format(
        "{}: has changed, found {} bytes of content {:016x}, expected {} "
        "bytes of content {:016x}",
        identity.path, found.sizeBytes, found.contentId, identity.sizeBytes, identity.contentId)};
  }
  return std::shared_ptr<SourceFile>(new SourceFile(identity, std::move(opened->file)));
}

Outcome<std::shared_ptr<const DatasetLayout>> SourceFile::layout(const std::string& group,
                                                                 const std::string& name) {
  const std::string path = group + "/" + name;
  const std::lock_guard guard(mutex_);
  if (const auto known = layouts_.find(path); known != layouts_.end()) return known->second;
  auto layout = describeDataset(file_, group, name);
  if (!layout.ok()) {
    return Failure{fmt::format("{}: {}: {}", identity_.path, path, layout.error())};
  }
  return layouts_[path] = std::make_shared<const DatasetLayout>(std::move(layout).value());
}

// The library's mutex is made before the registry, and so outlives the files closed at exit.
SourceFiles::SourceFiles() { const Hdf5Lock lock; }

SourceFiles& SourceFiles::instance() {
  static SourceFiles files;
  return files;
}

std::shared_ptr<SourceFile> SourceFiles::findOpen(const FileIdentity& identity) {
  const std::lock_guard guard(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.contentId == identity.contentId && entry.path == identity.path;
  });
  if (found == entries_.end()) return nullptr;
  entries_.splice(entries_.begin(), entries_, found);
  return found->file;
}

void SourceFiles::keep(const FileIdentity& identity, const std::shared_ptr<SourceFile>& file) {
  std::list<Entry> dropped;  // closed after the lock is left: closing takes the library's own
  const std::lock_guard guard(mutex_);
  entries_.push_front({identity.path, identity.contentId, file});
  while (entries_.size() > kMaxOpen) {
    dropped.splice(dropped.begin(), entries_, std::prev(entries_.end()));
  }
}

Outcome<std::shared_ptr<SourceFile>> SourceFiles::find(const FileIdentity& identity) {
  if (auto open = findOpen(identity)) return open;
  // Two threads may open the same file at once; one of the two then simply is not found again.
  auto opened = SourceFile::open(identity);
  if (opened.ok()) keep(identity, *opened);
  return opened;
}

std::size_t SourceFiles::openCount() const {
  const std::lock_guard guard(mutex_);
  return entries_.size();
}

void SourceFiles::clear() {
  std::list<Entry> dropped;
  const std::lock_guard guard(mutex_);
  dropped.swap(entries_);
}

}  // namespace Fiber::Container
