// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as a text file of points, or as a gzip file of one: opened as a cloud of small
// fragments, and every array of it made. Nothing may crash, hang or take absurd memory; failures
// are texts.

#include "datamodel/fiber/Bundle.hpp"
#include "formats/text/TextCloudReader.hpp"
#include "fuzz/FuzzedFile.hpp"
#include "fuzz/ReadEverything.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t bytes) {
  const Fuzz::FuzzedFile file(data, bytes);
  if (file.path().empty()) return 0;
  Fiber::Bundle bundle;
  Formats::TextCloudOptions options;
  options.cloud.fragmentPoints = 16;
  const auto cloud = Formats::addTextCloud(bundle, {file.path()}, options);
  if (cloud.ok()) Fuzz::readEverything(bundle);
  return 0;
}
