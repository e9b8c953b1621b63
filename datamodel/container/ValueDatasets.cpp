// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/ValueDatasets.hpp"

#include <fmt/format.h>
#include <libdeflate.h>

#include "datamodel/container/FormatNames.hpp"
#include "datamodel/container/Hdf5Attributes.hpp"
#include "datamodel/container/Hdf5Types.hpp"
#include "datamodel/container/Hdf5Walk.hpp"
#include "datamodel/container/StoredValue.hpp"

namespace Fiber::Container {

using MemCore::ChunkBase;
using MemCore::Failure;
using MemCore::Outcome;
using MemCore::StrongPtr;

namespace {

Failure within(const std::string& name, std::string_view what) {
  return Failure{fmt::format("{}: {}", name, what)};
}

std::uint32_t crc32(const void* bytes, std::size_t count) {
  return libdeflate_crc32(0, bytes, count);
}

Outcome<void> writeForm(hid_t group, const std::string& name, const ValueForm& form,
                        std::span<const std::byte> bytes) {
  const PropertyHandle creation = datasetCreation({{}, {}});
  auto dataset =
      ownHdf5<DatasetHandle>(H5Dcreate2(group, name.c_str(), form.type.get(), form.space.get(),
                                        linkCreation().get(), creation.get(), H5P_DEFAULT),
                             fmt::format("{}: cannot be made", name));
  if (!dataset.ok()) return dataset.failure();
  if (!bytes.empty()) {
    auto written = checkHdf5(
        H5Dwrite(dataset->get(), form.type.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data()),
        fmt::format("{}: cannot be written", name));
    if (!written.ok()) return written;
  }
  const std::uint32_t checksum = crc32(bytes.data(), bytes.size());
  auto summed = writeNumber(dataset->get(), kChecksumAttribute, checksum);
  if (!summed.ok()) return within(name, summed.error());
  return dataset->close(fmt::format("{}: cannot be closed", name));
}

struct FoundDataset {
  DatasetHandle dataset;
  ValueForm form;
};

Outcome<FoundDataset> openValue(hid_t group, const std::string& name) {
  auto dataset = openDataset(group, name);
  if (!dataset.ok()) return dataset.failure();
  FoundDataset found;
  found.dataset = std::move(dataset).value();
  found.form = {DatatypeHandle(H5Dget_type(found.dataset.get())),
                DataspaceHandle(H5Dget_space(found.dataset.get()))};
  const PropertyHandle creation(H5Dget_create_plist(found.dataset.get()));
  if (H5Pget_layout(creation.get()) != H5D_CONTIGUOUS ||
      H5Pget_external_count(creation.get()) != 0) {
    return within(name, "stored in a way that bundle files do not use");
  }
  return found;
}

/// Fills the bytes and checks them. Requires: as many as the form says.
Outcome<void> readInto(const FoundDataset& found, const std::string& name,
                       std::span<std::byte> bytes) {
  if (!bytes.empty()) {
    auto read = checkHdf5(H5Dread(found.dataset.get(), found.form.type.get(), H5S_ALL, H5S_ALL,
                                  H5P_DEFAULT, bytes.data()),
                          fmt::format("{}: cannot be read", name));
    if (!read.ok()) return read;
  }
  const auto expected = readNumber<std::uint32_t>(found.dataset.get(), kChecksumAttribute);
  if (!expected.ok()) return within(name, expected.error());
  if (*expected == crc32(bytes.data(), bytes.size())) return {};
  return within(name, "damaged, its checksum differs");
}

}  // namespace

Outcome<void> writeValueDataset(hid_t group, const std::string& name, const ChunkBase& value) {
  const auto form = formOf(value);
  if (!form.ok()) return within(name, form.error());
  return writeForm(group, name, *form, {value.bytes(), value.byteCount()});
}

Outcome<void> writeTextsDataset(hid_t group, const std::string& name,
                                const std::vector<std::string>& texts) {
  const TextList list = textListOf(texts);
  return writeForm(group, name, list.form, std::as_bytes(std::span(list.padded)));
}

Outcome<StrongPtr<ChunkBase>> readValueDataset(hid_t group, const std::string& name,
                                               std::uint64_t fileBytes) {
  const auto found = openValue(group, name);
  if (!found.ok()) return found.failure();
  auto chunk = chunkFor(found->form, fileBytes);
  if (!chunk.ok()) return within(name, chunk.error());
  const auto read = readInto(*found, name, {(*chunk)->bytes(), (*chunk)->byteCount()});
  if (!read.ok()) return read.failure();
  return chunk;
}

Outcome<std::vector<std::string>> readTextsDataset(hid_t group, const std::string& name,
                                                   std::uint64_t fileBytes) {
  const auto found = openValue(group, name);
  if (!found.ok()) return found.failure();
  auto padded = roomForTexts(found->form, fileBytes);
  if (!padded.ok()) return within(name, padded.error());
  const auto read = readInto(*found, name, std::as_writable_bytes(std::span(*padded)));
  if (!read.ok()) return read.failure();
  return textsOf(*padded, found->form);
}

}  // namespace Fiber::Container
