// SPDX-License-Identifier: Apache-2.0
//
// The objects of a bundle file as plain structures: groups, datasets and attributes with their
// types and extents, and the places of the values, but not the values of datasets themselves. What
// the writer hands to TreeEncoder, and what TreeDecoder, or else the HDF5 library, finds in a file.

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "datamodel/container/ChunkCodec.hpp"
#include "datamodel/fiber/FiberType.hpp"

namespace Fiber::Container {

/// What one element of a value is.
struct ObjectType {
  enum class Kind {
    kNumber,   ///< little-endian
    kText,     ///< of fixed length
    kByte,     ///< one opaque byte
    kNumbers,  ///< one-dimensional array of numbers
    kRecord,   ///< members at their offsets
    kForeign,  ///< none that bundle files use
  };
  struct Member;

  Kind kind = Kind::kForeign;
  ScalarKind scalar = ScalarKind::UInt8;  ///< of a number, or of each in an array
  std::uint32_t bytes = 0;
  std::vector<Member> members;  ///< in the order of their declaration

  static ObjectType number(ScalarKind kind);
  static ObjectType numbers(ScalarKind kind, std::size_t count);
  static ObjectType text(std::size_t bytes);
  static ObjectType byte();
  bool operator==(const ObjectType& other) const;
};

struct ObjectType::Member {
  std::string name;
  std::uint32_t offset = 0;
  ObjectType type;
  bool operator==(const Member&) const = default;
};

/// How many elements a value has, along up to two dimensions.
struct ObjectExtents {
  static constexpr int kNone = -1;  ///< rank of a value without elements
  static constexpr int kMostRank = 2;

  int rank = 0;  ///< 0: one element; above kMostRank: foreign
  std::array<std::uint64_t, kMostRank> counts = {1, 1};

  static ObjectExtents none() { return {kNone, {0, 1}}; }
  static ObjectExtents one() { return {}; }
  static ObjectExtents list(std::uint64_t count) { return {1, {count, 1}}; }
  static ObjectExtents table(std::uint64_t rows, std::uint64_t columns) {
    return {2, {rows, columns}};
  }
  bool operator==(const ObjectExtents&) const = default;
};

/// An attribute, or the values of a small dataset.
struct ObjectValue {
  ObjectType type;
  ObjectExtents extents;
  std::vector<std::byte> bytes;  ///< empty: nothing was written but type and extents
  bool operator==(const ObjectValue&) const = default;
};
using ObjectValues = std::map<std::string, ObjectValue>;

/// One stored chunk.
struct ChunkPlace {
  std::uint64_t address = 0;  ///< bytes from the start of the file
  std::uint32_t storedBytes = 0;
  std::uint32_t skippedFilters = 0;
  bool operator==(const ChunkPlace&) const = default;
};

/// An address that leads nowhere.
inline constexpr std::uint64_t kNoAddress = ~std::uint64_t{0};

/// Where the chunks of a dataset are listed in a file.
struct ChunkIndex {
  enum class Kind {
    kOne,      ///< `only` is the one there is
    kArray,    ///< a fixed array with its header at `address`
    kLibrary,  ///< the library has to be asked
  };
  Kind kind = Kind::kLibrary;
  ChunkPlace only;
  std::uint64_t address = kNoAddress;
  bool operator==(const ChunkIndex&) const = default;
};

/// A dataset. Its values lie in one of the ways of `Storage`.
struct ObjectDataset {
  enum class Storage {
    kInHeader,  ///< `value.bytes`
    kPiece,     ///< from `address` on, without a break
    kChunks,
    kForeign,  ///< some way that bundle files do not use
  };

  ObjectValue value;
  ObjectValues attributes;
  Storage storage = Storage::kPiece;
  std::uint64_t address = kNoAddress;
  /// Extents of a chunk, in elements; columns are 1 where the dataset has one dimension.
  std::array<std::uint64_t, 2> chunkCounts = {0, 1};
  ChunkFilter filter;
  /// To be written: all chunks, row of chunks after row of chunks.
  std::vector<ChunkPlace> chunks;
  /// Found in a file: where they are listed.
  ChunkIndex index;
  std::string foreignText;  ///< what is foreign about its storage; empty: nothing more is known
};

struct ObjectGroup {
  ObjectValues attributes;
  std::map<std::string, ObjectGroup> groups;
  std::map<std::string, ObjectDataset> datasets;

  /// The group at a path of names with '/' between; empty names and "." stay where they are. Null
  /// when there is none.
  const ObjectGroup* find(const std::string& path) const;
  /// The same, with what is missing made.
  ObjectGroup& make(const std::string& path);
};

}  // namespace Fiber::Container
