// SPDX-License-Identifier: Apache-2.0
//! The first 30 bytes of a record of point format 6 and above, decoded from nine layers.
//!
//! Why not the decoder of the `laz` crate: see gps_time.rs; its time stamps cannot be taken out of it
//! alone. This one also makes the models of a scanner channel only when the channel occurs.

use std::io::{Cursor, Read, Result, Seek};

use byteorder::{LittleEndian, ReadBytesExt};
use laz::decoders::ArithmeticDecoder;
use laz::decompressors::{IntegerDecompressor, IntegerDecompressorBuilder};
use laz::models::{ArithmeticModel, ArithmeticModelBuilder};
use laz::record::LayeredFieldDecompressor;
use laz::DecompressionSelection;

use crate::gps_time::GpsTimeSequences;
use crate::point14_record::{Point, RECORD_BYTES};
use crate::streaming_median::StreamingMedian;

const CHANNELS: usize = 4;

/// Return number (column) in number of returns (row) -> which of 6 predictors of x and y.
const RETURN_MAP: [[u8; 16]; 16] = [
    [0, 1, 2, 3, 4, 5, 3, 4, 4, 5, 5, 5, 5, 5, 5, 5],
    [1, 0, 1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3],
    [2, 1, 2, 4, 4, 4, 4, 4, 4, 4, 4, 3, 3, 3, 3, 3],
    [3, 3, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4],
    [4, 3, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4],
    [5, 3, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4],
    [3, 3, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4, 4],
    [4, 3, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4, 4],
    [4, 3, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4, 4],
    [5, 3, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4, 4],
    [5, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 4, 4, 4, 4, 4],
    [5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 4, 4, 4],
    [5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4, 4],
    [5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 4],
    [5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5],
    [5, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5],
];

/// Which of 8 predictors of z: the distance between the two numbers, at most 7.
fn return_level(number_of_returns: u8, return_number: u8) -> usize {
    usize::from(number_of_returns.abs_diff(return_number).min(7))
}

/// Bits of the symbol that tells what differs from the last point of the channel.
const CHANNEL_CHANGED: u32 = 1 << 6;
const SOURCE_CHANGED: u32 = 1 << 5;
const TIME_CHANGED: u32 = 1 << 4;
const ANGLE_CHANGED: u32 = 1 << 3;
const RETURNS_CHANGED: u32 = 1 << 2;
const RETURN_NUMBER_BITS: u32 = 3;

/// A model that is made when it is first used.
type LazyModel = Option<ArithmeticModel>;

fn ready(model: &mut LazyModel, symbols: u32) -> &mut ArithmeticModel {
    model.get_or_insert_with(|| ArithmeticModelBuilder::new(symbols).build())
}

fn lazy_models(count: usize) -> Vec<LazyModel> {
    (0..count).map(|_| None).collect()
}

fn numbers(bits: u32, contexts: u32) -> IntegerDecompressor {
    IntegerDecompressorBuilder::new().bits(bits).contexts(contexts).build_initialized()
}

/// What the decoder remembers of one scanner channel.
struct Channel {
    last: Point,
    time_changed: bool,
    intensities: [u16; 8],
    x_medians: [StreamingMedian; 12],
    y_medians: [StreamingMedian; 12],
    heights: [i32; 8],
    changed: Vec<LazyModel>,
    channel: ArithmeticModel,
    number_of_returns: Vec<LazyModel>,
    return_number: Vec<LazyModel>,
    return_number_same_time: ArithmeticModel,
    classification: Vec<LazyModel>,
    flags: Vec<LazyModel>,
    user_data: Vec<LazyModel>,
    dx: IntegerDecompressor,
    dy: IntegerDecompressor,
    z: IntegerDecompressor,
    intensity: IntegerDecompressor,
    scan_angle: IntegerDecompressor,
    source_id: IntegerDecompressor,
    times: GpsTimeSequences,
}

impl Channel {
    fn new(last: Point) -> Self {
        Self {
            last,
            time_changed: false,
            intensities: [last.intensity; 8],
            x_medians: [StreamingMedian::new(); 12],
            y_medians: [StreamingMedian::new(); 12],
            heights: [last.z; 8],
            changed: lazy_models(8),
            channel: ArithmeticModelBuilder::new(3).build(),
            number_of_returns: lazy_models(16),
            return_number: lazy_models(16),
            return_number_same_time: ArithmeticModelBuilder::new(13).build(),
            classification: lazy_models(64),
            flags: lazy_models(64),
            user_data: lazy_models(64),
            dx: numbers(32, 2),
            dy: numbers(32, 22),
            z: numbers(32, 20),
            intensity: numbers(16, 4),
            scan_angle: numbers(16, 2),
            source_id: numbers(16, 1),
            times: GpsTimeSequences::new(false, last.gps_time),
        }
    }

    /// Single, first, last or intermediate return, and whether its time was new.
    fn last_return(&self) -> usize {
        usize::from(self.last.return_number == 1)
            + usize::from(self.last.return_number >= self.last.number_of_returns) * 2
            + usize::from(self.time_changed) * 4
    }

    fn decode_returns(&mut self, layer: &mut Layer, changed: u32) -> Result<()> {
        let last = &mut self.last;
        let previous = last.return_number;
        if changed & RETURNS_CHANGED != 0 {
            let model = ready(&mut self.number_of_returns[usize::from(last.number_of_returns)], 16);
            last.number_of_returns = layer.decoder.decode_symbol(model)? as u8;
        }
        last.return_number = match changed & RETURN_NUMBER_BITS {
            0 => previous,
            1 => (previous + 1) % 16,
            2 => (previous + 15) % 16,
            _ if changed & TIME_CHANGED != 0 => {
                let model = ready(&mut self.return_number[usize::from(previous)], 16);
                layer.decoder.decode_symbol(model)? as u8
            }
            _ => {
                let step = layer.decoder.decode_symbol(&mut self.return_number_same_time)?;
                ((u32::from(previous) + step + 2) % 16) as u8
            }
        };
        Ok(())
    }

    fn decode_xy(&mut self, layer: &mut Layer, time_changed: bool) -> Result<()> {
        let last = &mut self.last;
        let (n, r) = (last.number_of_returns, last.return_number);
        let map = usize::from(RETURN_MAP[usize::from(n)][usize::from(r)]);
        let predictor = (map << 1) | usize::from(time_changed);
        let is_single = u32::from(n == 1);

        let median = &mut self.x_medians[predictor];
        let step = self.dx.decompress(&mut layer.decoder, median.get(), is_single)?;
        last.x = last.x.wrapping_add(step);
        median.add(step);

        let median = &mut self.y_medians[predictor];
        let context = is_single + even_up_to(self.dx.k(), 20);
        let step = self.dy.decompress(&mut layer.decoder, median.get(), context)?;
        last.y = last.y.wrapping_add(step);
        median.add(step);
        Ok(())
    }

    fn decode_z(&mut self, layer: &mut Layer) -> Result<()> {
        let level = return_level(self.last.number_of_returns, self.last.return_number);
        let is_single = u32::from(self.last.number_of_returns == 1);
        let context = is_single + even_up_to((self.dx.k() + self.dy.k()) / 2, 18);
        self.last.z = self.z.decompress(&mut layer.decoder, self.heights[level], context)?;
        self.heights[level] = self.last.z;
        Ok(())
    }

    fn decode_flags(&mut self, layer: &mut Layer) -> Result<()> {
        let flags = self.last.flags;
        let previous = ((flags >> 2) & 0x30) | (flags & 0x0F);
        let model = ready(&mut self.flags[usize::from(previous)], 64);
        let symbol = layer.decoder.decode_symbol(model)? as u8;
        self.last.flags = ((symbol & 0x30) << 2) | (flags & 0x30) | (symbol & 0x0F);
        Ok(())
    }

    fn decode_attributes(&mut self, layers: &mut Layers, changed: u32) -> Result<()> {
        let is_first = self.last.return_number == 1;
        let is_last = self.last.return_number >= self.last.number_of_returns;
        let time_changed = changed & TIME_CHANGED != 0;
        if let Some(layer) = layers.get(LayerKind::Classification) {
            let context = (usize::from(self.last.classification & 0x1F) << 1)
                + usize::from(is_first && is_last);
            let model = ready(&mut self.classification[context], 256);
            self.last.classification = layer.decoder.decode_symbol(model)? as u8;
        }
        if let Some(layer) = layers.get(LayerKind::Flags) {
            self.decode_flags(layer)?;
        }
        if let Some(layer) = layers.get(LayerKind::Intensity) {
            let context = u32::from(is_first) * 2 + u32::from(is_last);
            let predictor = ((context as usize) << 1) | usize::from(time_changed);
            let previous = i32::from(self.intensities[predictor]);
            let value = self.intensity.decompress(&mut layer.decoder, previous, context)? as u16;
            self.intensities[predictor] = value;
            self.last.intensity = value;
        }
        if let Some(layer) = layers.get_if(LayerKind::ScanAngle, changed & ANGLE_CHANGED) {
            let previous = i32::from(self.last.scan_angle);
            let context = u32::from(time_changed);
            self.last.scan_angle =
                self.scan_angle.decompress(&mut layer.decoder, previous, context)? as i16;
        }
        if let Some(layer) = layers.get(LayerKind::UserData) {
            let model = ready(&mut self.user_data[usize::from(self.last.user_data / 4)], 256);
            self.last.user_data = layer.decoder.decode_symbol(model)? as u8;
        }
        if let Some(layer) = layers.get_if(LayerKind::SourceId, changed & SOURCE_CHANGED) {
            let previous = i32::from(self.last.source_id);
            self.last.source_id =
                self.source_id.decompress(&mut layer.decoder, previous, 0)? as u16;
        }
        if let Some(layer) = layers.get_if(LayerKind::GpsTime, changed & TIME_CHANGED) {
            self.last.gps_time = self.times.decode(&mut layer.decoder)?;
        }
        self.time_changed = time_changed;
        Ok(())
    }
}

/// `bits` without its lowest bit, or `limit` from there on.
fn even_up_to(bits: u32, limit: u32) -> u32 {
    if bits < limit {
        bits & !1
    } else {
        limit
    }
}

/// The layers in the order of the chunk.
#[derive(Clone, Copy)]
enum LayerKind {
    ChannelReturnsXy,
    Z,
    Classification,
    Flags,
    Intensity,
    ScanAngle,
    UserData,
    SourceId,
    GpsTime,
}

const LAYER_COUNT: usize = 9;

struct Layer {
    byte_count: usize,
    decoder: ArithmeticDecoder<Cursor<Vec<u8>>>,
}

/// An empty layer means that its field never changes.
struct Layers(Vec<Layer>);

impl Layers {
    fn new() -> Self {
        let empty = |_| Layer { byte_count: 0, decoder: ArithmeticDecoder::new(Cursor::default()) };
        Self((0..LAYER_COUNT).map(empty).collect())
    }

    fn get(&mut self, kind: LayerKind) -> Option<&mut Layer> {
        let layer = &mut self.0[kind as usize];
        (layer.byte_count > 0).then_some(layer)
    }

    fn get_if(&mut self, kind: LayerKind, condition: u32) -> Option<&mut Layer> {
        if condition != 0 {
            self.get(kind)
        } else {
            None
        }
    }
}

/// The point item of layered records, versions 3 and 4.
pub struct Point14Field {
    version: u16,
    layers: Layers,
    channels: [Option<Box<Channel>>; CHANNELS],
    current: usize,
}

impl Point14Field {
    pub fn new(version: u16) -> Self {
        Self { version, layers: Layers::new(), channels: [None, None, None, None], current: 0 }
    }

    /// Goes over to another channel, which begins with the last point of the present one.
    fn switch_channel(&mut self) -> Result<()> {
        let layer = &mut self.layers.0[LayerKind::ChannelReturnsXy as usize];
        let present = made(&mut self.channels[self.current])?;
        let step = layer.decoder.decode_symbol(&mut present.channel)? as usize;
        let last = present.last;
        self.current = (self.current + step + 1) % CHANNELS;
        let channel =
            self.channels[self.current].get_or_insert_with(|| Box::new(Channel::new(last)));
        channel.last.set_channel(self.current);
        Ok(())
    }
}

fn made(channel: &mut Option<Box<Channel>>) -> Result<&mut Channel> {
    channel.as_deref_mut().ok_or_else(|| std::io::Error::other("channel without a first point"))
}

impl<R: Read + Seek> LayeredFieldDecompressor<R> for Point14Field {
    fn size_of_field(&self) -> usize {
        RECORD_BYTES
    }

    fn set_selection(&mut self, _selection: DecompressionSelection) {}

    fn init_first_point(
        &mut self,
        source: &mut R,
        first: &mut [u8],
        context: &mut usize,
    ) -> Result<()> {
        source.read_exact(first)?;
        let point = Point::load(first)?;
        self.channels = [None, None, None, None];
        self.current = point.channel();
        *context = self.current;
        self.channels[self.current] = Some(Box::new(Channel::new(point)));
        Ok(())
    }

    fn decompress_field_with(&mut self, out: &mut [u8], context: &mut usize) -> Result<()> {
        let xy = LayerKind::ChannelReturnsXy as usize;
        let channel = made(&mut self.channels[self.current])?;
        let last_return = channel.last_return();
        let model = ready(&mut channel.changed[last_return], 128);
        let changed = self.layers.0[xy].decoder.decode_symbol(model)?;
        let switches = changed & CHANNEL_CHANGED != 0;
        if switches {
            self.switch_channel()?;
        }
        // Version 3 tells the other items only about changes, which version 4 put right.
        if switches || self.version == 4 {
            *context = self.current;
        }
        let channel = made(&mut self.channels[self.current])?;
        channel.decode_returns(&mut self.layers.0[xy], changed)?;
        channel.decode_xy(&mut self.layers.0[xy], changed & TIME_CHANGED != 0)?;
        if let Some(layer) = self.layers.get(LayerKind::Z) {
            channel.decode_z(layer)?;
        }
        channel.decode_attributes(&mut self.layers, changed)?;
        channel.last.store(out);
        Ok(())
    }

    fn read_layers_sizes(&mut self, source: &mut R) -> Result<()> {
        for layer in &mut self.layers.0 {
            layer.byte_count = source.read_u32::<LittleEndian>()? as usize;
        }
        Ok(())
    }

    fn read_layers(&mut self, source: &mut R) -> Result<()> {
        for layer in &mut self.layers.0 {
            let mut bytes = vec![0; layer.byte_count];
            source.read_exact(&mut bytes)?;
            layer.decoder = ArithmeticDecoder::new(Cursor::new(bytes));
            if layer.byte_count > 0 {
                layer.decoder.read_init_bytes()?;
            }
        }
        Ok(())
    }
}
