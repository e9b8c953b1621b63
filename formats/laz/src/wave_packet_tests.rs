// SPDX-License-Identifier: Apache-2.0
//! The encoder of waveform packets beside the crate's: the same bytes, but for the sign of zeros.

use std::io::Cursor;

use laz::laszip::LazVlrBuilder;
use laz::record::{LayeredPointRecordCompressor, RecordCompressor};

use crate::chunk;
use crate::items::Items;

/// Point formats and the versions that their items can have.
const KINDS: [(u8, u8); 4] = [(9, 3), (9, 4), (10, 3), (10, 4)];

const FLAGS_AT: usize = 15;
const ITEMS_AT: usize = 34;
const ITEM_BYTES: usize = 6;
const NUMBER_BYTES: usize = 4;

/// The items of a point format, all of the same version.
fn items_of(point_format: u8, version: u8) -> Items {
    let vlr = LazVlrBuilder::default().with_point_format(point_format, 0).unwrap().build();
    let mut bytes = Vec::new();
    vlr.write_to(&mut bytes).unwrap();
    for item in bytes[ITEMS_AT..].chunks_exact_mut(ITEM_BYTES) {
        item[4] = version;
    }
    Items::parse(&bytes).unwrap()
}

/// What the crate makes of the records with its own encoders alone.
fn by_the_crate(items: &Items, records: &[u8]) -> Vec<u8> {
    let mut encoder = LayeredPointRecordCompressor::new(Cursor::new(Vec::new()));
    encoder.set_fields_from(&items.list).unwrap();
    encoder.compress_many(records).unwrap();
    encoder.done().unwrap();
    encoder.into_inner().into_inner()
}

/// Numbers that look random, the same in every run.
struct Sequence(u64);

impl Sequence {
    fn below(&mut self, limit: usize) -> usize {
        self.0 = self.0.wrapping_mul(6364136223846793005).wrapping_add(1442695040888963407);
        (self.0 >> 33) as usize % limit
    }
}

/// Records that repeat the last one but for a few bytes; `channels` scanner channels take turns.
fn records_of(items: &Items, count: usize, channels: usize, seed: u64) -> Vec<u8> {
    let mut random = Sequence(seed);
    let mut record = vec![0_u8; items.record_bytes];
    let mut records = Vec::new();
    for _ in 0..count {
        for _ in 0..random.below(4) {
            let at = random.below(record.len());
            record[at] = random.below(256) as u8;
        }
        record[FLAGS_AT] = (random.below(channels) << 4) as u8;
        for number in numbers_of(&mut record) {
            if number == 0x8000_0000_u32.to_le_bytes() {
                number[3] = 0;
            }
        }
        records.extend_from_slice(&record);
    }
    records
}

/// The numbers of the waveform packet at the end of a record.
fn numbers_of(record: &mut [u8]) -> impl Iterator<Item = &mut [u8]> {
    let first = record.len() - 4 * NUMBER_BYTES;
    record[first..].chunks_exact_mut(NUMBER_BYTES)
}

fn expect_round_trip(items: &Items, records: &[u8]) {
    let chunk = chunk::compress(items, records).unwrap();
    let mut decoded = vec![0; records.len()];
    chunk::decompress(items, &chunk, 0, &mut decoded).unwrap();
    assert!(decoded == records);
}

#[test]
fn bytes_are_those_of_the_crate() {
    for (point_format, version) in KINDS {
        let items = items_of(point_format, version);
        for channels in 1..=4 {
            for count in [1, 2, 3, 40, 3000] {
                let records = records_of(&items, count, channels, 7 * channels as u64);
                let chunk = chunk::compress(&items, &records).unwrap();
                assert!(
                    chunk == by_the_crate(&items, &records),
                    "{count} points, {channels} channels"
                );
                expect_round_trip(&items, &records);
            }
        }
    }
}

#[test]
fn packets_without_numbers_are_written_as_by_the_crate() {
    for (point_format, version) in KINDS {
        let items = items_of(point_format, version);
        let mut record = vec![0_u8; items.record_bytes];
        numbers_of(&mut record).last().unwrap().copy_from_slice(&f32::NAN.to_le_bytes());
        let records = record.repeat(5);
        assert!(chunk::compress(&items, &records).unwrap() == by_the_crate(&items, &records));
        expect_round_trip(&items, &records);
    }
}

#[test]
fn sign_of_a_zero_is_a_difference() {
    for (point_format, version) in KINDS {
        let items = items_of(point_format, version);
        for number in 0..4 {
            let mut records = vec![0_u8; 3 * items.record_bytes];
            let second = &mut records[items.record_bytes..2 * items.record_bytes];
            numbers_of(second).nth(number).unwrap()[3] = 0x80;
            expect_round_trip(&items, &records);
        }
    }
}
