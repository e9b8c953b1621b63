// SPDX-License-Identifier: Apache-2.0
//
// The messages of an object's header, as far as TreeEncoder writes them. Everything else is not
// ours and gives nothing: the library has to look.

#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "datamodel/container/objects/HeaderMessages.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// A message: what it is, and its body.
struct Message {
  MessageType type;
  std::span<const std::byte> body;
};
using Messages = std::vector<Message>;

/// Cuts the messages of a header apart; empty when something is left over.
std::optional<Messages> messagesOf(std::span<const std::byte> bytes);

/// A member of a group.
struct Link {
  std::string name;
  std::uint64_t address = kNoAddress;
};

std::optional<Link> linkOf(std::span<const std::byte> body);

/// The product of three numbers; empty when 64 bits do not hold it.
std::optional<std::uint64_t> product(std::uint64_t a, std::uint64_t b, std::uint64_t c);

/// Takes the messages of an object in their fixed order.
class MessageReader {
 public:
  /// Requires: the messages outlive the reader.
  explicit MessageReader(const Messages& messages) : messages_(messages) {}

  /// The next message, if it is of that type; else null.
  const Message* next(MessageType type);
  /// Whether the next message says that no links, or no attributes, lie outside the header.
  bool skipNothingOutside(MessageType type);
  /// A whole dataset. False: not ours.
  bool readDataset(ObjectDataset& dataset);
  /// What is left, which must be attributes. False: it is something else.
  bool readAttributes(ObjectValues& attributes);

 private:
  const Messages& messages_;
  std::size_t next_ = 0;
};

}  // namespace Fiber::Container
