// SPDX-License-Identifier: Apache-2.0
//! GPS times: up to four interleaved sequences, each coded as multiples of its own usual step.
//!
//! Why not the decoder of the `laz` crate: there a switch to another sequence is a recursive call, and
//! a few damaged bytes can code any number of switches, which overflows the stack and so ends the
//! process. Here the switches of one time are counted.

use std::io::{Error, ErrorKind, Read, Result};

use laz::decoders::ArithmeticDecoder;
use laz::decompressors::{IntegerDecompressor, IntegerDecompressorBuilder};
use laz::models::{ArithmeticModel, ArithmeticModelBuilder};
use laz::record::FieldDecompressor;

const MULTI: i32 = 500;
const MULTI_MINUS: i32 = -10;
/// First symbol behind the multiples.
const MULTI_END: i32 = MULTI - MULTI_MINUS + 1;

/// An encoder switches at most once per time.
const MAX_SWITCHES: usize = 4;

const GPS_TIME_BYTES: usize = 8;

pub struct GpsTimeSequences {
    /// 1 where the codes have a symbol for "same time", else 0.
    unchanged_symbols: i32,
    multi: ArithmeticModel,
    zero_difference: ArithmeticModel,
    numbers: IntegerDecompressor,
    last: usize,
    next: usize,
    times: [i64; 4],
    differences: [i32; 4],
    extremes: [u32; 4],
}

impl GpsTimeSequences {
    pub fn new(has_unchanged_symbol: bool, first_time: i64) -> Self {
        let unchanged_symbols = i32::from(has_unchanged_symbol);
        let model = |symbols: i32| ArithmeticModelBuilder::new(symbols as u32).build();
        Self {
            unchanged_symbols,
            multi: model(MULTI_END + 4 + unchanged_symbols),
            zero_difference: model(5 + unchanged_symbols),
            numbers: IntegerDecompressorBuilder::new().bits(32).contexts(9).build_initialized(),
            last: 0,
            next: 0,
            times: [first_time, 0, 0, 0],
            differences: [0; 4],
            extremes: [0; 4],
        }
    }

    /// The next time, as the bits of its double.
    pub fn decode<R: Read>(&mut self, decoder: &mut ArithmeticDecoder<R>) -> Result<i64> {
        for _ in 0..=MAX_SWITCHES {
            let switch = if self.differences[self.last] == 0 {
                self.decode_without_difference(decoder)?
            } else {
                self.decode_with_difference(decoder)?
            };
            if switch == 0 {
                return Ok(self.times[self.last]);
            }
            self.last = (self.last + switch) & 3;
        }
        Err(Error::new(ErrorKind::InvalidData, "time stamp without end"))
    }

    /// Returns how many sequences to go on; 0 = the time is decoded. So do the other steps.
    fn decode_without_difference<R: Read>(
        &mut self,
        decoder: &mut ArithmeticDecoder<R>,
    ) -> Result<usize> {
        let symbol =
            decoder.decode_symbol(&mut self.zero_difference)? as i32 - self.unchanged_symbols;
        match symbol {
            -1 => {}
            0 => {
                let difference = self.numbers.decompress(decoder, 0, 0)?;
                self.differences[self.last] = difference;
                self.advance(difference);
                self.extremes[self.last] = 0;
            }
            1 => self.start_sequence(decoder)?,
            _ => return Ok(symbol as usize - 1),
        }
        Ok(0)
    }

    fn decode_with_difference<R: Read>(
        &mut self,
        decoder: &mut ArithmeticDecoder<R>,
    ) -> Result<usize> {
        let multi = decoder.decode_symbol(&mut self.multi)? as i32;
        if multi < MULTI_END {
            self.decode_multiple(decoder, multi)?;
            return Ok(0);
        }
        match multi - MULTI_END - self.unchanged_symbols {
            -1 => {}
            0 => self.start_sequence(decoder)?,
            further => return Ok(further as usize),
        }
        Ok(0)
    }

    fn decode_multiple<R: Read>(
        &mut self,
        decoder: &mut ArithmeticDecoder<R>,
        multi: i32,
    ) -> Result<()> {
        let (factor, context, is_extreme) = match multi {
            1 => (1, 1, false),
            0 => (0, 7, true),
            2..=9 => (multi, 2, false),
            10..=499 => (multi, 3, false),
            MULTI => (multi, 4, true),
            501..=509 => (MULTI - multi, 5, false),
            _ => (MULTI_MINUS, 6, true),
        };
        let expected = self.differences[self.last].wrapping_mul(factor);
        let difference = self.numbers.decompress(decoder, expected, context)?;
        self.advance(difference);
        if multi == 1 {
            self.extremes[self.last] = 0;
        } else if is_extreme {
            self.extremes[self.last] += 1;
            if self.extremes[self.last] > 3 {
                self.differences[self.last] = difference;
                self.extremes[self.last] = 0;
            }
        }
        Ok(())
    }

    fn advance(&mut self, difference: i32) {
        self.times[self.last] = self.times[self.last].wrapping_add(i64::from(difference));
    }

    /// A time far from all others replaces the oldest sequence.
    fn start_sequence<R: Read>(&mut self, decoder: &mut ArithmeticDecoder<R>) -> Result<()> {
        let upper = self.numbers.decompress(decoder, (self.times[self.last] >> 32) as i32, 8)?;
        self.next = (self.next + 1) & 3;
        self.times[self.next] = (i64::from(upper) << 32) | i64::from(decoder.read_int()?);
        self.last = self.next;
        self.differences[self.last] = 0;
        self.extremes[self.last] = 0;
        Ok(())
    }
}

/// The time item of point-wise records, version 2.
pub struct GpsTimeField(GpsTimeSequences);

impl Default for GpsTimeField {
    fn default() -> Self {
        Self(GpsTimeSequences::new(true, 0))
    }
}

impl<R: Read> FieldDecompressor<R> for GpsTimeField {
    fn size_of_field(&self) -> usize {
        GPS_TIME_BYTES
    }

    fn decompress_first(&mut self, source: &mut R, first: &mut [u8]) -> Result<()> {
        source.read_exact(first)?;
        let mut bytes = [0; GPS_TIME_BYTES];
        bytes.copy_from_slice(first);
        self.0 = GpsTimeSequences::new(true, i64::from_le_bytes(bytes));
        Ok(())
    }

    fn decompress_with(
        &mut self,
        decoder: &mut ArithmeticDecoder<R>,
        out: &mut [u8],
    ) -> Result<()> {
        out.copy_from_slice(&self.0.decode(decoder)?.to_le_bytes());
        Ok(())
    }
}
