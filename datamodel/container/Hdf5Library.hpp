// SPDX-License-Identifier: Apache-2.0
//
// The process-wide side of the HDF5 library: the one mutex around its calls, and its error stack
// as one line of text. HDF5 runs one call at a time anyway; a mutex of ours also covers a build of
// it without thread safety, and lets a caller hold it over a sequence that belongs together.
// <hdf5.h> is included in this folder only.

#pragma once

#include <hdf5.h>

#include <mutex>
#include <string>
#include <string_view>

#include "datamodel/memcore/Outcome.hpp"

namespace Fiber::Container {

/// Held around every HDF5 call. Entering it prepares the library once (no clean-up handler at
/// exit: a close that failed on a full disk would crash there) and keeps HDF5 from printing errors
/// in this thread until it is left. Threads: may be nested within one thread.
class Hdf5Lock {
 public:
  Hdf5Lock();
  ~Hdf5Lock();
  Hdf5Lock(const Hdf5Lock&) = delete;
  Hdf5Lock& operator=(const Hdf5Lock&) = delete;

 private:
  std::unique_lock<std::recursive_mutex> lock_;
  H5E_auto2_t formerPrinter_ = nullptr;
  void* formerData_ = nullptr;
};

/// What HDF5's error stack of this thread says, in one line, outermost description first; the
/// stack is emptied. "unknown HDF5 error" when it holds nothing. Requires: Hdf5Lock held since the
/// failed call.
std::string takeHdf5Error();

/// Success for a status of zero or more, else a text: `what`, then the error stack.
/// Requires: Hdf5Lock held since the call that gave the status.
MemCore::Outcome<void> checkHdf5(herr_t status, std::string_view what);

}  // namespace Fiber::Container
