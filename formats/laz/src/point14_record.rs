// SPDX-License-Identifier: Apache-2.0
//! The first 30 bytes of a record of point format 6 and above, taken apart.

use std::io::Result;

use byteorder::{LittleEndian, ReadBytesExt};

pub const RECORD_BYTES: usize = 30;

#[derive(Clone, Copy, Default)]
pub struct Point {
    pub x: i32,
    pub y: i32,
    pub z: i32,
    pub intensity: u16,
    pub return_number: u8,
    pub number_of_returns: u8,
    pub flags: u8,
    pub classification: u8,
    pub user_data: u8,
    pub scan_angle: i16,
    pub source_id: u16,
    pub gps_time: i64,
}

impl Point {
    pub fn load(mut record: &[u8]) -> Result<Point> {
        let x = record.read_i32::<LittleEndian>()?;
        let y = record.read_i32::<LittleEndian>()?;
        let z = record.read_i32::<LittleEndian>()?;
        let intensity = record.read_u16::<LittleEndian>()?;
        let returns = record.read_u8()?;
        Ok(Point {
            x,
            y,
            z,
            intensity,
            return_number: returns & 0x0F,
            number_of_returns: returns >> 4,
            flags: record.read_u8()?,
            classification: record.read_u8()?,
            user_data: record.read_u8()?,
            scan_angle: record.read_i16::<LittleEndian>()?,
            source_id: record.read_u16::<LittleEndian>()?,
            gps_time: record.read_i64::<LittleEndian>()?,
        })
    }

    pub fn store(&self, record: &mut [u8]) {
        record[0..4].copy_from_slice(&self.x.to_le_bytes());
        record[4..8].copy_from_slice(&self.y.to_le_bytes());
        record[8..12].copy_from_slice(&self.z.to_le_bytes());
        record[12..14].copy_from_slice(&self.intensity.to_le_bytes());
        record[14] = self.return_number | (self.number_of_returns << 4);
        record[15] = self.flags;
        record[16] = self.classification;
        record[17] = self.user_data;
        record[18..20].copy_from_slice(&self.scan_angle.to_le_bytes());
        record[20..22].copy_from_slice(&self.source_id.to_le_bytes());
        record[22..30].copy_from_slice(&self.gps_time.to_le_bytes());
    }

    pub fn channel(&self) -> usize {
        usize::from((self.flags >> 4) & 3)
    }

    pub fn set_channel(&mut self, channel: usize) {
        self.flags = (self.flags & !0x30) | ((channel as u8) << 4);
    }
}
