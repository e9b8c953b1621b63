// SPDX-License-Identifier: Apache-2.0
//! One chunk of points: from compressed bytes to records and back.

use std::io::{Cursor, Read, Write};

use laz::las::{v1, v2, v3, v4};
use laz::laszip::{LazItem, LazItemType};
use laz::record::{
    LayeredPointRecordCompressor, LayeredPointRecordDecompressor, RecordCompressor,
    RecordDecompressor, SequentialPointRecordCompressor, SequentialPointRecordDecompressor,
};

use crate::gps_time::GpsTimeField;
use crate::items::{Items, Scheme};
use crate::point14::Point14Field;
use crate::rgb1::Rgb1Field;
use crate::wave_packet::WavePacketField;
use crate::Failure;

pub fn damaged(error: std::io::Error) -> Failure {
    match error.kind() {
        std::io::ErrorKind::UnexpectedEof => "compressed data ends too early".to_string(),
        _ => format!("compressed data damaged, {error}"),
    }
}

fn unsupported(item: &LazItem) -> Failure {
    format!(
        "LASzip record: item {:?} version {} cannot be decoded",
        item.item_type(),
        item.version()
    )
}

/// Leaves out `skip` records, then fills `records`.
pub fn decompress(
    items: &Items,
    chunk: &[u8],
    skip: u64,
    records: &mut [u8],
) -> Result<(), Failure> {
    if records.len() % items.record_bytes != 0 {
        return Err(format!(
            "records: part of a record asked for, found {} bytes, expected a multiple of {}",
            records.len(),
            items.record_bytes
        ));
    }
    match items.scheme {
        Scheme::LayeredChunked => {
            let point_count = skip + (records.len() / items.record_bytes) as u64;
            check_layers(items, chunk, point_count)?;
            fill(layered_decoder(items, chunk)?, skip, records)
        }
        _ => fill(point_wise_decoder(items, chunk)?, skip, records),
    }
}

fn fill<R>(
    mut decoder: impl RecordDecompressor<R>,
    skip: u64,
    records: &mut [u8],
) -> Result<(), Failure> {
    let mut unused = vec![0; decoder.record_size()];
    for _ in 0..skip {
        decoder.decompress_next(&mut unused).map_err(damaged)?;
    }
    decoder.decompress_many(records).map_err(damaged)
}

/// A layered chunk is: the first record, the number of records, the sizes of the layers, the layers.
/// The decoder allocates what the sizes say, so they are checked first.
fn check_layers(items: &Items, chunk: &[u8], point_count: u64) -> Result<(), Failure> {
    let sizes_at = items.record_bytes + 4;
    let layers_at = sizes_at + items.layer_count * 4;
    if chunk.len() < layers_at {
        return Err(format!(
            "compressed chunk cut off, found {} bytes, expected at least {layers_at}",
            chunk.len()
        ));
    }
    let number = |at: usize| {
        let mut bytes = [0; 4];
        bytes.copy_from_slice(&chunk[at..at + 4]);
        u64::from(u32::from_le_bytes(bytes))
    };
    let stored = number(items.record_bytes);
    if stored < point_count {
        return Err(format!(
            "compressed chunk with too few points, found {stored}, expected {point_count}"
        ));
    }
    let total: u64 = (0..items.layer_count).map(|layer| number(sizes_at + layer * 4)).sum();
    if total > (chunk.len() - layers_at) as u64 {
        return Err(format!(
            "compressed layers cut off, found {} bytes, expected {total}",
            chunk.len() - layers_at
        ));
    }
    Ok(())
}

pub fn point_wise_decoder<'a, R: Read + Send + Sync + 'a>(
    items: &Items,
    input: R,
) -> Result<SequentialPointRecordDecompressor<'a, R>, Failure> {
    let mut decoder = SequentialPointRecordDecompressor::new(input);
    for item in &items.list {
        let size = usize::from(item.size());
        match (item.item_type(), item.version()) {
            (LazItemType::Point10, 1) => {
                decoder.add_field_decompressor(v1::LasPoint0Decompressor::default())
            }
            (LazItemType::Point10, 2) => {
                decoder.add_field_decompressor(v2::LasPoint0Decompressor::default())
            }
            (LazItemType::GpsTime, 1) => {
                decoder.add_field_decompressor(v1::LasGpsTimeDecompressor::default())
            }
            (LazItemType::GpsTime, 2) => decoder.add_field_decompressor(GpsTimeField::default()),
            (LazItemType::RGB12, 1) => decoder.add_field_decompressor(Rgb1Field::default()),
            (LazItemType::RGB12, 2) => {
                decoder.add_field_decompressor(v2::LasRGBDecompressor::default())
            }
            (LazItemType::WavePacket13, _) => {
                decoder.add_field_decompressor(v1::LasWavepacketDecompressor::default())
            }
            (LazItemType::Byte(_), 1) => {
                decoder.add_field_decompressor(v1::LasExtraByteDecompressor::new(size))
            }
            (LazItemType::Byte(_), 2) => {
                decoder.add_field_decompressor(v2::LasExtraByteDecompressor::new(size))
            }
            _ => return Err(unsupported(item)),
        }
    }
    Ok(decoder)
}

fn layered_decoder<'a>(
    items: &Items,
    chunk: &'a [u8],
) -> Result<LayeredPointRecordDecompressor<'a, Cursor<&'a [u8]>>, Failure> {
    let mut decoder = LayeredPointRecordDecompressor::new(Cursor::new(chunk));
    for item in &items.list {
        let size = usize::from(item.size());
        match (item.item_type(), item.version()) {
            (LazItemType::Point14, version) => {
                decoder.add_field_decompressor(Point14Field::new(version))
            }
            (LazItemType::RGB14, 3) => {
                decoder.add_field_decompressor(v3::LasRGBDecompressor::default())
            }
            (LazItemType::RGB14, 4) => {
                decoder.add_field_decompressor(v4::LasRGBDecompressor::default())
            }
            (LazItemType::RGBNIR14, 3) => {
                decoder.add_field_decompressor(v3::LasRGBDecompressor::default());
                decoder.add_field_decompressor(v3::LasNIRDecompressor::default());
            }
            (LazItemType::RGBNIR14, 4) => {
                decoder.add_field_decompressor(v4::LasRGBDecompressor::default());
                decoder.add_field_decompressor(v4::LasNIRDecompressor::default());
            }
            (LazItemType::WavePacket14, 3) => {
                decoder.add_field_decompressor(v3::LasWavepacketDecompressor::default())
            }
            (LazItemType::WavePacket14, 4) => {
                decoder.add_field_decompressor(v4::LasWavepacketDecompressor::default())
            }
            (LazItemType::Byte14(_), 3) => {
                decoder.add_field_decompressor(v3::LasExtraByteDecompressor::new(size))
            }
            (LazItemType::Byte14(_), 4) => {
                decoder.add_field_decompressor(v4::LasExtraByteDecompressor::new(size))
            }
            _ => return Err(unsupported(item)),
        }
    }
    Ok(decoder)
}

pub fn compress(items: &Items, records: &[u8]) -> Result<Vec<u8>, Failure> {
    if records.is_empty() || records.len() % items.record_bytes != 0 {
        return Err(format!(
            "records: no whole records, found {} bytes, expected a multiple of {}",
            records.len(),
            items.record_bytes
        ));
    }
    let mut chunk = Cursor::new(Vec::new());
    if items.scheme == Scheme::LayeredChunked {
        encode(layered_encoder(items, &mut chunk)?, records)?;
    } else {
        let mut encoder = SequentialPointRecordCompressor::new(&mut chunk);
        encoder.set_fields_from(&items.list).map_err(|error| error.to_string())?;
        encode(encoder, records)?;
    }
    Ok(chunk.into_inner())
}

fn layered_encoder<'a, W: Write>(
    items: &Items,
    chunk: W,
) -> Result<LayeredPointRecordCompressor<'a, W>, Failure> {
    let mut encoder = LayeredPointRecordCompressor::new(chunk);
    for item in &items.list {
        match item.item_type() {
            LazItemType::WavePacket14 => {
                encoder.add_field_compressor(WavePacketField::new(item.version()))
            }
            // Adds to the fields that are there.
            _ => encoder.set_fields_from(&vec![*item]).map_err(|error| error.to_string())?,
        }
    }
    Ok(encoder)
}

fn encode<W>(mut encoder: impl RecordCompressor<W>, records: &[u8]) -> Result<(), Failure> {
    let failed = |error| format!("records: cannot be compressed, {error}");
    encoder.compress_many(records).map_err(failed)?;
    encoder.done().map_err(failed)
}
