// SPDX-License-Identifier: Apache-2.0
//! The first LASzip scheme: one stream of all points, read through a function of the caller.

use std::ffi::c_void;
use std::io::{BufReader, Read};

use laz::record::{RecordDecompressor, SequentialPointRecordDecompressor};

use crate::chunk::{damaged, point_wise_decoder};
use crate::items::{Items, Scheme};
use crate::Failure;

pub type ReadFunction = extern "C" fn(*mut c_void, u64, *mut u8, usize) -> i64;

const BUFFER_BYTES: usize = 1 << 16;

struct Source {
    read: ReadFunction,
    context: *mut c_void,
    offset: u64,
}

// The caller promises that `context` may be used from any thread, one at a time.
unsafe impl Send for Source {}
unsafe impl Sync for Source {}

impl Read for Source {
    fn read(&mut self, buffer: &mut [u8]) -> std::io::Result<usize> {
        let got = (self.read)(self.context, self.offset, buffer.as_mut_ptr(), buffer.len());
        let got = usize::try_from(got).map_err(|_| std::io::Error::other("source not readable"))?;
        self.offset += got as u64;
        Ok(got.min(buffer.len()))
    }
}

pub struct PointStream {
    decoder: SequentialPointRecordDecompressor<'static, BufReader<Source>>,
    record_bytes: usize,
    has_failed: bool,
}

impl PointStream {
    pub fn new(
        items: &Items,
        read: ReadFunction,
        context: *mut c_void,
    ) -> Result<PointStream, Failure> {
        if items.scheme == Scheme::LayeredChunked {
            return Err("LASzip record: layered records come in chunks".to_string());
        }
        let source = Source { read, context, offset: 0 };
        let decoder = point_wise_decoder(items, BufReader::with_capacity(BUFFER_BYTES, source))?;
        Ok(PointStream { decoder, record_bytes: items.record_bytes, has_failed: false })
    }

    pub fn read(&mut self, records: &mut [u8]) -> Result<(), Failure> {
        if self.has_failed || records.len() % self.record_bytes != 0 {
            return Err("records: stream cannot be read any further".to_string());
        }
        // Stays set when the decoder panics.
        self.has_failed = true;
        self.decoder.decompress_many(records).map_err(damaged)?;
        self.has_failed = false;
        Ok(())
    }
}
