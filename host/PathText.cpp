// SPDX-License-Identifier: Apache-2.0

#include "host/PathText.hpp"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace Host {

namespace {

bool canPrecedePath(char c) {
  return std::string_view(" \t\n\"'(=").find(c) != std::string_view::npos;
}

bool isPlainShellCharacter(char c) {
  const bool isWordCharacter =
      (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  return isWordCharacter || std::string_view("-_./+,:@%=").find(c) != std::string_view::npos;
}

}  // namespace

std::string withShortPaths(const std::string& text, const std::string& base) {
  if (base.empty()) return text;
  const std::string prefix = base + "/";
  std::string result;
  std::size_t copied = 0;
  for (std::size_t at = text.find(prefix); at != std::string::npos;
       at = text.find(prefix, at + prefix.size())) {
    if (at != 0 && !canPrecedePath(text[at - 1])) continue;
    result.append(text, copied, at - copied);
    copied = at + prefix.size();
  }
  return result.append(text, copied);
}

std::string workingFolderPath() {
  std::error_code error;
  const std::string path = std::filesystem::current_path(error).string();
  return error || path == "/" ? std::string() : path;
}

std::string shellWord(const std::string& path) {
  bool isPlain = !path.empty();
  std::string quoted = "'";
  for (const char c : path) {
    isPlain = isPlain && isPlainShellCharacter(c);
    quoted += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return isPlain ? path : quoted + "'";
}

}  // namespace Host
