// SPDX-License-Identifier: Apache-2.0
//! The waveform packets of layered records, encoded into one layer.
//!
//! Why not the encoder of the `laz` crate (0.13): it compares packets as numbers before it decides
//! whether a chunk needs the layer at all. Packets that are equal but for the sign of zeros then share
//! the signs of the first. Here their bytes are compared; all else is written byte for byte as the
//! crate does, whose encoder of point-wise packets does the coding here as it does there.

use std::io::{sink, Cursor, Result, Sink, Write};

use byteorder::{LittleEndian, WriteBytesExt};
use laz::encoders::ArithmeticEncoder;
use laz::las::v1::LasWavepacketCompressor;
use laz::record::{FieldCompressor, LayeredFieldCompressor};

const PACKET_BYTES: usize = 29;

/// Place of the return and direction of the pulse, the numbers at the end of a packet.
const NUMBERS_AT: usize = 13;
const NUMBER_BYTES: usize = 4;

const CHANNELS: usize = 4;

type Packet = [u8; PACKET_BYTES];

pub struct WavePacketField {
    version: u16,
    encoder: ArithmeticEncoder<Cursor<Vec<u8>>>,
    has_changed: bool,
    /// The models of each scanner channel that has occurred.
    coders: [Option<Box<LasWavepacketCompressor>>; CHANNELS],
    /// What the next packet of each channel is predicted from.
    last_packets: [Packet; CHANNELS],
    last_channel: usize,
}

impl WavePacketField {
    pub fn new(version: u16) -> Self {
        Self {
            version,
            encoder: ArithmeticEncoder::new(Cursor::new(Vec::new())),
            has_changed: false,
            coders: Default::default(),
            last_packets: [[0; PACKET_BYTES]; CHANNELS],
            last_channel: 0,
        }
    }
}

/// Deliberate: a number that is none differs from itself. The crate writes the layer for it.
fn differs(last: &Packet, next: &[u8]) -> bool {
    let number_of = |bytes: &[u8]| f32::from_le_bytes([bytes[0], bytes[1], bytes[2], bytes[3]]);
    last != next
        || last[NUMBERS_AT..].chunks_exact(NUMBER_BYTES).any(|bytes| number_of(bytes).is_nan())
}

impl<W: Write> LayeredFieldCompressor<W> for WavePacketField {
    fn size_of_field(&self) -> usize {
        PACKET_BYTES
    }

    fn init_first_point(&mut self, out: &mut W, first: &[u8], channel: &mut usize) -> Result<()> {
        self.coders[*channel] = Some(Box::default());
        self.last_packets[*channel].copy_from_slice(first);
        self.last_channel = *channel;
        out.write_all(first)
    }

    fn compress_field_with(&mut self, next: &[u8], channel: &mut usize) -> Result<()> {
        let is_new = self.coders[*channel].is_none();
        if is_new {
            self.last_packets[*channel] = self.last_packets[self.last_channel];
        }
        // Deliberate: version 3 goes on with the packets of the channel that it comes from, unless
        // the channel is new; its decoders do the same.
        let predicting = if is_new || self.version != 3 { *channel } else { self.last_channel };
        self.last_channel = *channel;

        let last = &mut self.last_packets[predicting];
        self.has_changed |= differs(last, next);
        let coder = self.coders[*channel].get_or_insert_with(Box::default);
        // To "compress the first packet" sets the one to predict from, and leaves the models alone.
        FieldCompressor::<Sink>::compress_first(&mut **coder, &mut sink(), last)?;
        coder.compress_with(&mut self.encoder, next)?;
        last.copy_from_slice(next);
        Ok(())
    }

    fn write_layers_sizes(&mut self, out: &mut W) -> Result<()> {
        if self.has_changed {
            self.encoder.done()?;
        } else {
            self.encoder.get_mut().get_mut().clear();
        }
        out.write_u32::<LittleEndian>(self.encoder.get_ref().get_ref().len() as u32)
    }

    fn write_layers(&mut self, out: &mut W) -> Result<()> {
        out.write_all(self.encoder.get_ref().get_ref())
    }
}
