// SPDX-License-Identifier: Apache-2.0
//
// FuzzedFile: the fuzzer's bytes as a file in memory that has a path, for readers of files.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Fuzz {

class FuzzedFile {
 public:
  /// path() stays empty when the system has no room for the file.
  FuzzedFile(const std::uint8_t* data, std::size_t bytes);
  ~FuzzedFile();
  FuzzedFile(const FuzzedFile&) = delete;
  FuzzedFile& operator=(const FuzzedFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace Fuzz
