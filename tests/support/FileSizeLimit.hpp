// SPDX-License-Identifier: Apache-2.0
//
// FileSizeLimit: stands in for a full disk. While it is set, no file of the process grows beyond it
// ("File too large").

#pragma once

#include <sys/resource.h>

#include <csignal>
#include <cstdint>

namespace LidarLib::TestSupport {

class FileSizeLimit {
 public:
  /// Not set yet.
  FileSizeLimit() : formerHandler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &former_);
  }
  explicit FileSizeLimit(std::uint64_t bytes) : FileSizeLimit() { set(bytes); }
  ~FileSizeLimit() {
    lift();
    std::signal(SIGXFSZ, formerHandler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  void set(std::uint64_t bytes) const {
    const rlimit limit{bytes, former_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  void lift() const { ::setrlimit(RLIMIT_FSIZE, &former_); }

 private:
  rlimit former_{};
  void (*formerHandler_)(int);
};

}  // namespace LidarLib::TestSupport
