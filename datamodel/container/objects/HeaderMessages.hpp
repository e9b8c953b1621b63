// SPDX-License-Identifier: Apache-2.0
//
// The words of HDF5's object headers that encoder and decoder share.

#pragma once

#include <cstdint>
#include <string_view>

#include "datamodel/container/objects/ByteSink.hpp"
#include "datamodel/container/objects/ObjectTree.hpp"

namespace Fiber::Container {

/// Kinds of messages in an object's header.
enum class MessageType : std::uint8_t {
  kExtents = 0x01,
  kLinkInfo = 0x02,
  kType = 0x03,
  kFillValue = 0x05,
  kLink = 0x06,
  kLayout = 0x08,
  kGroupInfo = 0x0A,
  kFilters = 0x0B,
  kAttribute = 0x0C,
  kAttributeInfo = 0x15,
};

inline constexpr std::string_view kHeaderMark = "OHDR";
inline constexpr std::uint8_t kHeaderVersion = 2;
inline constexpr std::uint8_t kHeaderFlags = 0x12;  ///< limits said, four bytes of size
inline constexpr std::size_t kMostMessageBytes = 0xFFFF;
inline constexpr std::size_t kChecksumBytes = 4;

inline constexpr std::uint8_t kInfoVersion = 0;
inline constexpr std::uint8_t kLinkVersion = 1;
inline constexpr std::uint8_t kUtf8Link = 0x10;  ///< the name's encoding is said
inline constexpr std::uint8_t kUtf8 = 1;
inline constexpr std::uint8_t kAttributeVersion = 3;

/// Ways of storage, in the layout message.
inline constexpr std::uint8_t kPlainLayoutVersion = 3;
inline constexpr std::uint8_t kChunkLayoutVersion = 4;
inline constexpr std::uint8_t kInHeaderClass = 0;
inline constexpr std::uint8_t kPieceClass = 1;
inline constexpr std::uint8_t kChunkClass = 2;
inline constexpr std::uint8_t kOneFilteredChunk = 0x02;  ///< flag
inline constexpr std::uint8_t kOneChunkIndex = 1;
inline constexpr std::uint8_t kArrayIndex = 3;

inline constexpr std::uint8_t kFiltersVersion = 2;
inline constexpr std::uint16_t kDeflateFilter = 1;
inline constexpr std::uint16_t kShuffleFilter = 2;
inline constexpr std::uint16_t kFletcherFilter = 3;

inline constexpr std::string_view kFileMark = "\x89HDF\r\n\x1a\n";
inline constexpr std::uint8_t kOldestVersion = 2;  ///< of the superblock
inline constexpr std::uint8_t kChunkFileVersion = 3;

/// The body of a message which says that no link, or no attribute, lies outside the header.
inline void encodeNothingOutside(ByteSink& body) {
  body.u8(kInfoVersion);
  body.u8(0);
  body.u64(kNoAddress);
  body.u64(kNoAddress);
}

}  // namespace Fiber::Container
