// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/SourceFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "datamodel/container/BundleScan.hpp"
#include "datamodel/container/Hdf5Walk.hpp"

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

/// A descriptor of our own for the very file that the library has open: opening the path again
/// might yield another one. Requires: Hdf5Lock held.
Outcome<FileDescriptor> descriptorOf(const FileHandle& file, const std::string& path) {
  void* handle = nullptr;
  auto got = checkHdf5(H5Fget_vfd_handle(file.get(), H5P_DEFAULT, &handle), path);
  if (!got.ok()) return got.failure();
  FileDescriptor own(::fcntl(*static_cast<int*>(handle), F_DUPFD_CLOEXEC, 0));
  if (!own.ok()) {
    return Failure{fmt::format("{}: cannot be opened, found \"{}\"", path, systemError(errno))};
  }
  return own;
}

}  // namespace

SourceFile::SourceFile(FileIdentity identity, FileHandle file, FileDescriptor descriptor)
    : identity_(std::move(identity)), file_(std::move(file)), descriptor_(std::move(descriptor)) {}

Outcome<std::shared_ptr<SourceFile>> SourceFile::open(const FileIdentity& identity) {
  const Hdf5Lock lock;
  auto opened = openBundle(identity.path);
  if (!opened.ok()) return opened.failure();
  const FileIdentity& found = opened->identity;
  if (found.sizeBytes != identity.sizeBytes || found.contentId != identity.contentId) {
    return Failure{fmt::format(
        "{}: has changed, found {} bytes of content {:016x}, expected {} "
        "bytes of content {:016x}",
        identity.path, found.sizeBytes, found.contentId, identity.sizeBytes, identity.contentId)};
  }
  auto descriptor = descriptorOf(opened->file, identity.path);
  if (!descriptor.ok()) return descriptor.failure();
  return std::shared_ptr<SourceFile>(
      new SourceFile(identity, std::move(opened->file), std::move(descriptor).value()));
}

Outcome<std::shared_ptr<const DatasetLayout>> SourceFile::layout(const std::string& group,
                                                                 const std::string& name) {
  const std::string path = group + "/" + name;
  const std::lock_guard guard(mutex_);
  if (const auto known = layouts_.find(path); known != layouts_.end()) return known->second;
  const auto within = [&](const std::string& text) {
    return Failure{fmt::format("{}: {}: {}", identity_.path, path, text)};
  };
  const Hdf5Lock lock;
  const auto parent = openGroupPath(file_.get(), group);
  if (!parent.ok()) return within(parent.error());
  const auto dataset = openDataset(parent->get(), name);
  if (!dataset.ok()) return within(dataset.error());
  auto layout = describeDataset(dataset->get(), identity_.sizeBytes);
  if (!layout.ok()) return within(layout.error());
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
