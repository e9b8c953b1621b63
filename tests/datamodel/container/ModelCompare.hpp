// SPDX-License-Identifier: Apache-2.0
//
// Compares two bundles down to the last bit of their data, attributes and facts.

#pragma once

#include <string>

#include "datamodel/fiber/Bundle.hpp"

namespace Fiber::Container {

/// "" when the bundles are equal; else where and in what they first differ.
std::string differenceOf(const Bundle& a, const Bundle& b);

/// Loads one bundle file; a failure fails the test and gives an empty handle.
BundlePtr loadBundle(const std::string& file);

/// The text that loading a file gives; "" when it loads.
std::string loadFailure(const std::string& file);

}  // namespace Fiber::Container
