// SPDX-License-Identifier: Apache-2.0
//
// The words of the bundle format: names of the attributes that it keeps for itself. An attribute
// of the data model that has one of these names is escaped (see StoredName).

#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

namespace Fiber::Container {

// Of the root group.
inline constexpr const char* kFormatAttribute = "format";
inline constexpr const char* kVersionAttribute = "format_version";
inline constexpr const char* kContentIdAttribute = "content_id";

// Of a slice, a skeleton.
inline constexpr const char* kTimeAttribute = "time";
inline constexpr const char* kDimensionAttribute = "dimension";
inline constexpr const char* kRefinementAttribute = "refinement";

// Of a grid or a field.
inline constexpr const char* kPropertyBitsAttribute = "property_bits";

// Of a field.
inline constexpr const char* kElementTypeAttribute = "element_type";
inline constexpr const char* kRankAttribute = "rank";
inline constexpr const char* kFragmentCountsAttribute = "fragment_counts";
inline constexpr const char* kFragmentationAttribute = "fragmentation_name";
inline constexpr const char* kBoxAttribute = "attached_box";
inline constexpr const char* kRangeAttribute = "attached_range";
inline constexpr const char* kScaleAttribute = "scale_factor";
inline constexpr const char* kOffsetAttribute = "add_offset";

/// The words that attributes of a grid, and of a field, must not take.
inline constexpr std::array<std::string_view, 1> kGridWords = {kPropertyBitsAttribute};
inline constexpr std::array<std::string_view, 9> kFieldWords = {
    kPropertyBitsAttribute,   kElementTypeAttribute,   kRankAttribute,
    kFragmentCountsAttribute, kFragmentationAttribute, kBoxAttribute,
    kRangeAttribute,          kScaleAttribute,         kOffsetAttribute};

// Of tables and large values.
inline constexpr const char* kChecksumAttribute = "crc32";
inline constexpr const char* kFieldsAttribute = "fields";

// Members of a grid or a representation that are none of the model's.
inline constexpr const char* kLargeAttributes = "attributes";
inline constexpr const char* kFragments = "fragments";
inline constexpr const char* kSourceGroups = "source_groups";

/// Words that fields of a representation must not take.
inline constexpr std::array<std::string_view, 3> kRepresentationWords = {kLargeAttributes,
                                                                         kFragments, kSourceGroups};

}  // namespace Fiber::Container
