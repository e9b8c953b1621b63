// SPDX-License-Identifier: Apache-2.0
//! The LASzip record of a file, checked so that the decoder behind it meets only what it can handle.

use laz::laszip::{LazItem, LazItemType, LazVlr, LazVlrBuilder};

use crate::Failure;

/// Where the scheme and the number of items stand in the record.
const SCHEME_AT: usize = 0;
const ITEM_COUNT_AT: usize = 32;
const HEADER_BYTES: usize = 34;
const ITEM_BYTES: usize = 6;

/// A record has one item per group of fields.
const MAX_ITEMS: usize = 16;

/// The decoder keeps a model of about 2 KiB per extra byte and scanner channel, whatever the size of
/// the file; more extra bytes than this occur in no survey.
const MAX_EXTRA_BYTES: u16 = 4096;

#[derive(Clone, Copy, PartialEq, Eq, Debug)]
pub enum Scheme {
    PointWise = 1,
    PointWiseChunked = 2,
    LayeredChunked = 3,
}

pub struct Items {
    pub scheme: Scheme,
    pub chunk_points: u32,
    pub record_bytes: usize,
    /// Layers that a chunk of the layered scheme has.
    pub layer_count: usize,
    pub list: Vec<LazItem>,
}

impl Items {
    pub fn parse(vlr: &[u8]) -> Result<Items, Failure> {
        let scheme = parse_scheme(vlr)?;
        let vlr = LazVlr::read_from(vlr).map_err(|error| format!("LASzip record: {error}"))?;
        let list = vlr.items().clone();
        for item in &list {
            check_item(item, scheme)?;
        }
        match list[0].item_type() {
            LazItemType::Point10 | LazItemType::Point14 => {}
            other => {
                return Err(format!("LASzip record: first item is {other:?}, expected a point"))
            }
        }
        let record_bytes = list.iter().map(|item| usize::from(item.size())).sum();
        Ok(Items {
            scheme,
            chunk_points: vlr.chunk_size(),
            record_bytes,
            layer_count: list.iter().map(layers_of).sum(),
            list,
        })
    }
}

fn u16_at(bytes: &[u8], at: usize) -> u16 {
    u16::from_le_bytes([bytes[at], bytes[at + 1]])
}

fn parse_scheme(vlr: &[u8]) -> Result<Scheme, Failure> {
    if vlr.len() < HEADER_BYTES {
        return Err(format!(
            "LASzip record: cut off, found {} bytes, expected at least {HEADER_BYTES}",
            vlr.len()
        ));
    }
    let item_count = usize::from(u16_at(vlr, ITEM_COUNT_AT));
    if item_count == 0 || item_count > MAX_ITEMS {
        return Err(format!(
            "LASzip record: number of items not usable, found {item_count}, expected 1 to {MAX_ITEMS}"
        ));
    }
    if vlr.len() < HEADER_BYTES + item_count * ITEM_BYTES {
        return Err(format!(
            "LASzip record: items cut off, found {} bytes, expected {}",
            vlr.len(),
            HEADER_BYTES + item_count * ITEM_BYTES
        ));
    }
    match u16_at(vlr, SCHEME_AT) {
        1 => Ok(Scheme::PointWise),
        2 => Ok(Scheme::PointWiseChunked),
        3 => Ok(Scheme::LayeredChunked),
        other => Err(format!("LASzip record: scheme not known, found {other}, expected 1 to 3")),
    }
}

fn check_item(item: &LazItem, scheme: Scheme) -> Result<(), Failure> {
    let (size, is_layered) = match item.item_type() {
        LazItemType::Byte(_) => (item.size(), false),
        LazItemType::Point10 => (20, false),
        LazItemType::GpsTime => (8, false),
        LazItemType::RGB12 => (6, false),
        LazItemType::WavePacket13 => (29, false),
        LazItemType::Byte14(_) => (item.size(), true),
        LazItemType::Point14 => (30, true),
        LazItemType::RGB14 => (6, true),
        LazItemType::RGBNIR14 => (8, true),
        LazItemType::WavePacket14 => (29, true),
    };
    let describe = |what: &str, found: u16, expected: &str| {
        let kind = item.item_type();
        Err(format!("LASzip record: {what} of item {kind:?}, found {found}, expected {expected}"))
    };
    if item.size() != size || size == 0 {
        return describe("size", item.size(), &size.max(1).to_string());
    }
    if matches!(item.item_type(), LazItemType::Byte(_) | LazItemType::Byte14(_))
        && size > MAX_EXTRA_BYTES
    {
        return describe("size", size, &format!("at most {MAX_EXTRA_BYTES}"));
    }
    let versions = if is_layered { 3..=4 } else { 1..=2 };
    if !versions.contains(&item.version()) {
        let expected = format!("{} or {}", versions.start(), versions.end());
        return describe("version", item.version(), &expected);
    }
    if is_layered != (scheme == Scheme::LayeredChunked) {
        return Err(format!("LASzip record: item {:?} not in scheme {scheme:?}", item.item_type()));
    }
    Ok(())
}

fn layers_of(item: &LazItem) -> usize {
    match item.item_type() {
        LazItemType::Point14 => 9,
        LazItemType::RGB14 | LazItemType::WavePacket14 => 1,
        LazItemType::RGBNIR14 => 2,
        LazItemType::Byte14(count) => usize::from(count),
        _ => 0,
    }
}

pub fn make_vlr(point_format: u8, extra_bytes: u16, chunk_points: u32) -> Result<Vec<u8>, Failure> {
    let builder = LazVlrBuilder::default()
        .with_point_format(point_format, extra_bytes)
        .map_err(|error| format!("LASzip record: {error}"))?;
    let vlr = match chunk_points {
        u32::MAX => builder.with_variable_chunk_size(),
        count => builder.with_fixed_chunk_size(count),
    }
    .build();
    let mut bytes = Vec::new();
    vlr.write_to(&mut bytes).map_err(|error| error.to_string())?;
    Items::parse(&bytes)?;
    Ok(bytes)
}
