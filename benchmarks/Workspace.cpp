// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/Workspace.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace Benchmarks {

namespace {

/// What cannot be cut stays as it is: it only takes room.
void cutFiles(const fs::path& folder) {
  std::error_code ignored;
  for (const auto& entry : fs::recursive_directory_iterator(folder, ignored)) {
    if (entry.is_regular_file(ignored)) fs::resize_file(entry.path(), 0, ignored);
  }
}

}  // namespace

Workspace::Workspace(const std::string& parent, const std::string& program)
    : isTemporary_(parent.empty()) {
  const fs::path base = isTemporary_ ? fs::temp_directory_path() : fs::absolute(parent);
  folder_ = (base / fmt::format("{}.{}", program, ::getpid())).string();
  fs::create_directories(folder_);
}

Workspace::~Workspace() {
  std::error_code ignored;
  if (isTemporary_) {
    fs::remove_all(folder_, ignored);
  } else {
    cutFiles(folder_);
  }
}

std::string Workspace::freshFolder() {
  std::string folder = path(fmt::format("run{}", nextFolder_++));
  fs::create_directories(folder);
  return folder;
}

void Workspace::giveBackSpace() {
  for (; firstFolder_ < nextFolder_; ++firstFolder_)
    cutFiles(path(fmt::format("run{}", firstFolder_)));
}

}  // namespace Benchmarks
