// SPDX-License-Identifier: Apache-2.0
//! The table at the end of a chunked file: bytes (and, for chunks of varying length, points) of each
//! chunk. It begins with a version (0) and the number of chunks.

use laz::compressors::IntegerCompressorBuilder;
use laz::decoders::ArithmeticDecoder;
use laz::decompressors::IntegerDecompressorBuilder;
use laz::encoders::ArithmeticEncoder;

use crate::{Failure, LazChunk};

const HEADER_BYTES: usize = 8;
const COUNT_AT: usize = 4;

const POINT_COUNT_CONTEXT: u32 = 0;
const BYTE_COUNT_CONTEXT: u32 = 1;

fn damaged(error: std::io::Error) -> Failure {
    format!("chunk table: damaged, {error}")
}

/// Fills `chunks`; the table must hold that many.
pub fn read(table: &[u8], has_point_counts: bool, chunks: &mut [LazChunk]) -> Result<(), Failure> {
    if table.len() < HEADER_BYTES {
        return Err(format!(
            "chunk table: cut off, found {} bytes, expected at least {HEADER_BYTES}",
            table.len()
        ));
    }
    let mut count = [0; 4];
    count.copy_from_slice(&table[COUNT_AT..HEADER_BYTES]);
    if u32::from_le_bytes(count) as usize != chunks.len() {
        return Err(format!(
            "chunk table: other number of entries, found {}, expected {}",
            u32::from_le_bytes(count),
            chunks.len()
        ));
    }
    if chunks.is_empty() {
        return Ok(());
    }
    let mut numbers = IntegerDecompressorBuilder::new().bits(32).contexts(2).build_initialized();
    let mut decoder = ArithmeticDecoder::new(&table[HEADER_BYTES..]);
    decoder.read_init_bytes().map_err(damaged)?;
    let mut last = LazChunk::default();
    for chunk in chunks {
        // The counts are unsigned; only the compressor thinks of them as signed.
        let mut next = |previous: u64, context| {
            let number = numbers.decompress(&mut decoder, previous as i32, context);
            number.map(|value| u64::from(value as u32)).map_err(damaged)
        };
        if has_point_counts {
            last.point_count = next(last.point_count, POINT_COUNT_CONTEXT)?;
        }
        last.byte_count = next(last.byte_count, BYTE_COUNT_CONTEXT)?;
        *chunk = last;
    }
    Ok(())
}

pub fn write(chunks: &[LazChunk], has_point_counts: bool) -> Result<Vec<u8>, Failure> {
    let limit = u64::from(u32::MAX);
    if chunks.len() as u64 > limit
        || chunks.iter().any(|chunk| chunk.point_count > limit || chunk.byte_count > limit)
    {
        return Err(format!("chunk table: counts too large, expected at most {limit}"));
    }
    let mut table = vec![0; COUNT_AT];
    table.extend((chunks.len() as u32).to_le_bytes());
    if chunks.is_empty() {
        return Ok(table);
    }
    let mut numbers = IntegerCompressorBuilder::new().bits(32).contexts(2).build_initialized();
    let mut encoder = ArithmeticEncoder::new(&mut table);
    let mut last = LazChunk::default();
    for chunk in chunks {
        let mut put = |from: u64, to: u64, context| {
            numbers.compress(&mut encoder, from as i32, to as i32, context).map_err(damaged)
        };
        if has_point_counts {
            put(last.point_count, chunk.point_count, POINT_COUNT_CONTEXT)?;
        }
        put(last.byte_count, chunk.byte_count, BYTE_COUNT_CONTEXT)?;
        last = *chunk;
    }
    encoder.done().map_err(damaged)?;
    drop(encoder);
    Ok(table)
}
