// SPDX-License-Identifier: Apache-2.0
//
// ConsoleCapture: collects the console's messages for as long as it lives, so that a test can
// compare them and the test log stays clean.

#pragma once

#include <string>
#include <vector>

#include "datamodel/memcore/Console.hpp"

namespace LidarLib::TestSupport {

/// Threads: the console serialises the messages of all threads; reading is for the owner, once no
/// other thread writes.
class ConsoleCapture {
 public:
  ConsoleCapture();

  /// One entry per message, in the order of emission.
  const std::vector<std::string>& messages() const { return messages_; }
  /// The one message there is. Any other number of messages fails the test.
  std::string only() const;
  /// Whether any message contains the text.
  bool contains(const std::string& text) const;

 private:
  std::vector<std::string> messages_;
  MemCore::ConsoleRedirection redirection_;
};

}  // namespace LidarLib::TestSupport
