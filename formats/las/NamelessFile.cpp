// SPDX-License-Identifier: Apache-2.0

#include "formats/las/NamelessFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace Formats {

int openNamelessFile(const std::string& folder) {
  const int direct = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (direct >= 0) return direct;
  // The library call replaces the six letters by a name that nobody has.
  std::string name = folder + "/.refragment.tmp.XXXXXX";
  const int named = ::mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) ::unlink(name.c_str());
  return named;
}

}  // namespace Formats
