// SPDX-License-Identifier: Apache-2.0

#include "host/RunListener.hpp"

#include <charconv>
#include <optional>

namespace Host {

namespace {

constexpr std::string_view kTileDropped = "Fragment will be dumped. Low Point Size=";
constexpr std::string_view kWarning = "Warning: ";

/// The number that follows a fixed text; empty when the message is another one.
std::optional<std::uint64_t> numberAfter(std::string_view message, std::string_view text) {
  if (!message.starts_with(text)) return std::nullopt;
  message.remove_prefix(text.size());
  std::uint64_t number = 0;
  const auto [end, error] =
      std::from_chars(message.data(), message.data() + message.size(), number);
  if (error != std::errc() || end != message.data() + message.size()) return std::nullopt;
  return number;
}

}  // namespace

void RunListener::hear(const std::string& message) {
  if (message.starts_with(gridBegins_)) {
    dropped_.emplace_back();
    beginGrid_(dropped_.size() - 1);
  }
  const auto points = numberAfter(message, kTileDropped);
  if (points && !dropped_.empty()) {
    ++dropped_.back().tiles;
    dropped_.back().points += *points;
  }
  if (message.starts_with(kWarning)) {
    messages_.warning(message.substr(kWarning.size()));
  } else {
    messages_.detail(message);
  }
}

}  // namespace Host
