// SPDX-License-Identifier: Apache-2.0

#include "tests/support/ConsoleCapture.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace LidarLib::TestSupport {

ConsoleCapture::ConsoleCapture()
    : redirection_([this](const std::string& message) { messages_.push_back(message); }) {}

std::string ConsoleCapture::only() const {
  EXPECT_EQ(messages_.size(), 1U);
  return messages_.size() == 1 ? messages_.front() : std::string();
}

bool ConsoleCapture::contains(const std::string& text) const {
  return std::any_of(messages_.begin(), messages_.end(), [&](const std::string& message) {
    return message.find(text) != std::string::npos;
  });
}

}  // namespace LidarLib::TestSupport
