// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as a bundle file: loaded, and every array of it made. Nothing may crash, hang or take
// absurd memory; failures are texts.

#include "datamodel/fiber/Bundle.hpp"
#include "fuzz/FuzzedFile.hpp"
#include "fuzz/ReadEverything.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t bytes) {
  const Fuzz::FuzzedFile file(data, bytes);
  if (file.path().empty()) return 0;
  bool ok = false;
  const auto parameters = MemCore::makeStrong<MemCore::LoaderParameters>(
      MemCore::LoaderParameters{{file.path()}, false});
  const Fiber::BundlePtr bundle = Fiber::Bundle::load(ok, parameters, nullptr);
  if (ok && bundle) Fuzz::readEverything(*bundle);
  return 0;
}
