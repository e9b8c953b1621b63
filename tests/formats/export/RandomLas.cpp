// SPDX-License-Identifier: Apache-2.0

#include "tests/formats/export/RandomLas.hpp"

#include <algorithm>

#include "formats/las/ByteStream.hpp"
#include "formats/las/WaveformSource.hpp"

namespace Formats {

namespace {

/// Where the fields that name a packet begin in a record.
std::size_t packetAt(std::uint8_t pointFormat) {
  constexpr std::size_t kPacketBytes = 29;
  return standardRecordBytes(pointFormat) - kPacketBytes;
}

class Maker {
 public:
  Maker(const RandomLasTraits& traits, std::mt19937_64& random)
      : traits_(traits), random_(random), hasWaves_(formatHasWaveforms(traits.pointFormat)) {}

  RandomLas write(const std::string& path) {
    options_ = lasOptions(traits_.pointFormat);
    makeHeader();
    makeExtraBytes();
    const bool hasPackets = hasWaves_ && traits_.points > 0 && below(4) != 0;
    if (hasPackets) makePackets();
    makeRecords();
    auto records = surveyRecords(traits_.pointFormat, extraBytes_, traits_.points, random_());
    if (hasPackets) namePackets(records);
    const auto writer = LasWriter::create(path, options_);
    EXPECT_TRUE(writer.ok()) << writer.error();
    if (!writer) return {};
    for (const auto& packet : packets_) {
      EXPECT_TRUE((*writer)->writeWaveformPacket(packet).ok());
    }
    EXPECT_TRUE((*writer)->writeRecords(records).ok());
    const auto finished = (*writer)->finish();
    EXPECT_TRUE(finished.ok()) << finished.error();
    return {path, options_, hasPackets};
  }

 private:
  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
  double oneOf(std::initializer_list<double> values) {
    return values.begin()[below(values.size())];
  }

  std::vector<std::byte> someBytes(std::size_t most) {
    std::vector<std::byte> bytes(below(most + 1));
    for (std::byte& byte : bytes) byte = static_cast<std::byte>(below(256));
    return bytes;
  }

  void makeHeader() {
    LasHeader& header = options_.header;
    const std::uint8_t oldest = oldestMinorOf(traits_.pointFormat);
    header.versionMinor = static_cast<std::uint8_t>(oldest + below(5U - oldest));
    header.isCompressed = traits_.isCompressed;
    header.fileSourceId = static_cast<std::uint16_t>(below(3));
    header.globalEncoding =
        static_cast<std::uint16_t>(below(2) + kSyntheticReturnNumbers * below(2));
    header.systemIdentifier = "system";
    header.generatingSoftware = std::string(below(33), 'g');
    header.creationYear = 2001;
    header.creationDayOfYear = static_cast<std::uint16_t>(below(366));
    header.projectGuid[below(16)] = static_cast<std::byte>(below(256));
    if (below(3) == 0) header.trailingBytes = someBytes(20);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      header.scale[axis] = oneOf({0.01, 0.001, 1e-6, 0.25, 1.0 / 3.0, 1});
      header.offset[axis] = oneOf({0, 1000, -2e6, 1234567.875, 0.1});
    }
  }

  ExtraBytesDescriptor someAttribute(std::size_t number) {
    constexpr std::array kNames{"Amplitude", "Intensity", "", "a/b", "Amplitude", "SourceIndex"};
    ExtraBytesDescriptor descriptor;
    descriptor.name = below(2) == 0 ? kNames[below(kNames.size())] : "n" + std::to_string(number);
    descriptor.description = std::string(below(33), 'd');
    descriptor.dataType = static_cast<std::uint8_t>(below(kMaxExtraBytesType + 1U));
    descriptor.options = static_cast<std::uint8_t>(below(descriptor.dataType == 0 ? 40 : 32));
    descriptor.scale = {{0.5, 2.0, 0.001}};
    descriptor.offset = {{1e6, -3.0, 0.1}};
    descriptor.noData = {{random_(), random_(), random_()}};
    descriptor.minimum = {{random_(), random_(), random_()}};
    descriptor.maximum = {{random_(), random_(), random_()}};
    // What the bytes mean is the reader's business.
    return parseExtraBytes(serialiseExtraBytes({&descriptor, 1})).front();
  }

  void makeExtraBytes() {
    std::vector<ExtraBytesDescriptor> attributes;
    for (std::size_t i = below(7); i > 0; --i) attributes.push_back(someAttribute(i));
    std::size_t bytes = below(3) == 0 ? below(300) : 0;
    for (const auto& attribute : attributes) bytes += extraBytesWidth(attribute);
    extraBytes_ = static_cast<std::uint16_t>(bytes);
    LasHeader& header = options_.header;
    header.recordBytes = static_cast<std::uint16_t>(header.recordBytes + extraBytes_);
    if (attributes.empty()) return;
    VariableRecord record;
    record.userId = kLasSpecUserId;
    record.recordId = kExtraBytesRecordId;
    record.description = "of my own";
    record.payload = serialiseExtraBytes(attributes);
    options_.vlrs.push_back(record);
  }

  VariableRecord someRecord(std::size_t most) {
    VariableRecord record;
    record.reserved = static_cast<std::uint16_t>(below(2) * 43707);
    record.userId = below(3) == 0 ? "LASF_Projection" : "maker";
    record.recordId = static_cast<std::uint16_t>(below(65536));
    record.description = std::string(below(33), 'r');
    record.payload = someBytes(most);
    return record;
  }

  void makeRecords() {
    for (std::size_t i = below(4); i > 0; --i) options_.vlrs.push_back(someRecord(300));
    std::shuffle(options_.vlrs.begin(), options_.vlrs.end(), random_);
    if (options_.header.versionMinor != 4) return;
    for (std::size_t i = below(3); i > 0; --i) options_.evlrs.push_back(someRecord(70000));
  }

  void makePackets() {
    options_.waveforms = WaveformPlace::Beside;
    for (const std::uint8_t index : kDescriptors) {
      VariableRecord record;
      record.userId = kLasSpecUserId;
      record.recordId = static_cast<std::uint16_t>(kFirstWaveformDescriptorId + index - 1U);
      record.payload = serialiseWaveformDescriptor({bitsOf(index), 0, 100, 1000, 1, 0});
      options_.vlrs.push_back(record);
    }
    for (std::size_t i = 1 + below(std::min<std::size_t>(traits_.points, 500)); i > 0; --i) {
      auto packet = someBytes(98);
      packet.resize(packet.size() / 2 * 2 + 2);
      packets_.push_back(std::move(packet));
    }
  }

  static std::uint8_t bitsOf(std::uint8_t index) { return index == 1 ? 16 : 8; }

  /// Each packet by one point, then any point by any packet, by none, or by one that is not there.
  void namePackets(std::vector<std::byte>& records) {
    std::vector<WaveformPacketRef> refs;
    std::uint64_t offset = kEvlrHeaderBytes;
    for (const auto& packet : packets_) {
      refs.push_back({static_cast<std::uint8_t>(below(2) == 0 ? 1 : 200), offset,
                      static_cast<std::uint32_t>(packet.size())});
      offset += packet.size();
    }
    std::vector<WaveformPacketRef> named = refs;
    while (named.size() < traits_.points) {
      const std::uint64_t kind = below(10);
      if (kind == 0) {
        named.push_back({0, random_(), static_cast<std::uint32_t>(random_())});
      } else if (kind == 1) {
        named.push_back({1, offset + below(1000), 40});
      } else {
        named.push_back(refs[below(refs.size())]);
      }
    }
    std::shuffle(named.begin(), named.end(), random_);
    for (std::size_t i = 0; i < named.size(); ++i) {
      std::byte* at = &records[i * options_.header.recordBytes + packetAt(traits_.pointFormat)];
      storeValue(at, named[i].descriptorIndex);
      storeValue(at + 1, named[i].byteOffset);
      storeValue(at + 9, named[i].byteSize);
    }
  }

  static constexpr std::array<std::uint8_t, 2> kDescriptors{1, 200};

  const RandomLasTraits& traits_;
  std::mt19937_64& random_;
  bool hasWaves_;
  LasWriterOptions options_;
  std::uint16_t extraBytes_ = 0;
  std::vector<std::vector<std::byte>> packets_;
};

}  // namespace

RandomLas writeRandomLas(const std::string& path, const RandomLasTraits& traits,
                         std::mt19937_64& random) {
  return Maker(traits, random).write(path);
}

}  // namespace Formats
