// SPDX-License-Identifier: Apache-2.0
//
// Any bytes as a LAS or LAZ file: opened as a cloud, every array of it made, and asked for its
// coordinate system. Nothing may crash,
// hang or take absurd memory; failures are texts.

#include "datamodel/fiber/Bundle.hpp"
#include "formats/catalog/CoordinateSystem.hpp"
#include "formats/cloud/PointCloudReader.hpp"
#include "formats/las/LasFile.hpp"
#include "fuzz/FuzzedFile.hpp"
#include "fuzz/ReadEverything.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t bytes) {
  const Fuzz::FuzzedFile file(data, bytes);
  if (file.path().empty()) return 0;
  Fiber::Bundle bundle;
  const auto cloud = Formats::addPointCloud(bundle, {file.path()}, {});
  if (cloud.ok()) Fuzz::readEverything(bundle);
  const auto opened = Formats::LasFile::open(file.path());
  if (opened.ok()) static_cast<void>(Formats::coordinateSystemOf((*opened)->vlrs()));
  return 0;
}
