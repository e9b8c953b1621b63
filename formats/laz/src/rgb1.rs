// SPDX-License-Identifier: Apache-2.0
//! The colour item of point-wise records, version 1: each changed byte as a correction of the last.
//!
//! Why not the decoder of the `laz` crate (0.13): it adds the bits of a changed upper byte to those of
//! the last one, and so reads other colours than were written.

use std::io::{Read, Result};

use laz::decoders::ArithmeticDecoder;
use laz::decompressors::{IntegerDecompressor, IntegerDecompressorBuilder};
use laz::models::{ArithmeticModel, ArithmeticModelBuilder};
use laz::record::FieldDecompressor;

/// Lower and upper byte of red, green and blue.
const RGB_BYTES: usize = 6;

pub struct Rgb1Field {
    last: [u8; RGB_BYTES],
    changed: ArithmeticModel,
    numbers: IntegerDecompressor,
}

impl Default for Rgb1Field {
    fn default() -> Self {
        Self {
            last: [0; RGB_BYTES],
            changed: ArithmeticModelBuilder::new(1 << RGB_BYTES).build(),
            numbers: IntegerDecompressorBuilder::new()
                .bits(8)
                .contexts(RGB_BYTES as u32)
                .build_initialized(),
        }
    }
}

impl<R: Read> FieldDecompressor<R> for Rgb1Field {
    fn size_of_field(&self) -> usize {
        RGB_BYTES
    }

    fn decompress_first(&mut self, source: &mut R, first: &mut [u8]) -> Result<()> {
        source.read_exact(first)?;
        self.last.copy_from_slice(first);
        Ok(())
    }

    fn decompress_with(
        &mut self,
        decoder: &mut ArithmeticDecoder<R>,
        out: &mut [u8],
    ) -> Result<()> {
        let changed = decoder.decode_symbol(&mut self.changed)?;
        for (index, byte) in self.last.iter_mut().enumerate() {
            if changed & (1 << index) != 0 {
                let value = self.numbers.decompress(decoder, i32::from(*byte), index as u32)?;
                *byte = value as u8;
            }
        }
        out.copy_from_slice(&self.last);
        Ok(())
    }
}
