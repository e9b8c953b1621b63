// SPDX-License-Identifier: Apache-2.0

#include "datamodel/memcore/Intercube.hpp"

#include <typeinfo>

namespace MemCore {

void Intercube::addInterface(const StrongPtr<InterfaceBase>& interface) {
  if (!interface) return;
  const std::lock_guard lock(interfaceMutex_);
  const InterfaceBase& added = *interface;
  for (auto& candidate : interfaces_) {
    const InterfaceBase& present = *candidate;
    if (typeid(present) == typeid(added)) {
      candidate = interface;
      return;
    }
  }
  interfaces_.push_back(interface);
}

}  // namespace MemCore
