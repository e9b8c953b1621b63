// SPDX-License-Identifier: Apache-2.0
//! The C interface of laz_bridge.h. This file turns pointers into slices, panics into texts, and does
//! nothing else; the work is in the modules.

mod chunk;
mod chunk_table;
mod gps_time;
mod items;
mod point14;
mod point14_record;
mod rgb1;
mod stream;
mod streaming_median;
mod wave_packet;
#[cfg(test)]
mod wave_packet_tests;

use std::panic::{catch_unwind, set_hook, AssertUnwindSafe};
use std::slice::{from_raw_parts, from_raw_parts_mut};
use std::sync::Once;

/// The text of a failure.
pub type Failure = String;

const ERROR_BYTES: usize = 256;

#[repr(C)]
pub struct LazError {
    text: [u8; ERROR_BYTES],
}

#[repr(C)]
pub struct LazDescription {
    scheme: u32,
    chunk_points: u32,
    record_bytes: u32,
}

#[repr(C)]
#[derive(Clone, Copy, Default)]
pub struct LazChunk {
    pub point_count: u64,
    pub byte_count: u64,
}

#[repr(C)]
pub struct LazBuffer {
    data: *mut u8,
    size: usize,
    capacity: usize,
}

pub struct LazStream(stream::PointStream);

/// The decoder's own checks end in panics; by default these print. The hook belongs to the copy of the
/// runtime inside this library, so that no other code is affected.
fn silence_panics() {
    static ONCE: Once = Once::new();
    ONCE.call_once(|| set_hook(Box::new(|_| {})));
}

fn write_error(error: *mut LazError, text: &str) {
    if error.is_null() {
        return;
    }
    let mut end = text.len().min(ERROR_BYTES - 1);
    while !text.is_char_boundary(end) {
        end -= 1;
    }
    // The caller promises a LazError.
    let target = unsafe { &mut (*error).text };
    target[..end].copy_from_slice(&text.as_bytes()[..end]);
    target[end] = 0;
}

/// Runs one call of the interface.
fn guard(error: *mut LazError, body: impl FnOnce() -> Result<(), Failure>) -> i32 {
    silence_panics();
    let outcome = catch_unwind(AssertUnwindSafe(body));
    match outcome {
        Ok(Ok(())) => 0,
        Ok(Err(text)) => {
            write_error(error, &text);
            1
        }
        Err(_) => {
            write_error(error, "compressed data damaged");
            1
        }
    }
}

/// Requires: `data` points at `size` elements, or `size` is 0.
unsafe fn slice<'a, T>(data: *const T, size: usize) -> &'a [T] {
    if size == 0 {
        &[]
    } else {
        from_raw_parts(data, size)
    }
}

/// Requires: as `slice`, and nobody else uses the elements.
unsafe fn slice_mut<'a, T>(data: *mut T, size: usize) -> &'a mut [T] {
    if size == 0 {
        &mut []
    } else {
        from_raw_parts_mut(data, size)
    }
}

fn hand_over(bytes: Vec<u8>, buffer: *mut LazBuffer) {
    let mut bytes = std::mem::ManuallyDrop::new(bytes);
    let handed =
        LazBuffer { data: bytes.as_mut_ptr(), size: bytes.len(), capacity: bytes.capacity() };
    unsafe { buffer.write(handed) };
}

/// # Safety
/// See laz_bridge.h: pointers must be valid for the sizes that go with them. This holds for all
/// functions below.
#[no_mangle]
pub unsafe extern "C" fn laz_describe(
    vlr: *const u8,
    vlr_size: usize,
    description: *mut LazDescription,
    error: *mut LazError,
) -> i32 {
    guard(error, || {
        let items = items::Items::parse(slice(vlr, vlr_size))?;
        description.write(LazDescription {
            scheme: items.scheme as u32,
            chunk_points: items.chunk_points,
            record_bytes: items.record_bytes as u32,
        });
        Ok(())
    })
}

/// # Safety
/// See laz_describe.
#[no_mangle]
pub unsafe extern "C" fn laz_read_chunk_table(
    table: *const u8,
    table_size: usize,
    has_point_counts: i32,
    chunks: *mut LazChunk,
    count: usize,
    error: *mut LazError,
) -> i32 {
    guard(error, || {
        let chunks = slice_mut(chunks, count);
        chunk_table::read(slice(table, table_size), has_point_counts != 0, chunks)
    })
}

/// # Safety
/// See laz_describe.
#[no_mangle]
pub unsafe extern "C" fn laz_decompress_chunk(
    vlr: *const u8,
    vlr_size: usize,
    chunk: *const u8,
    chunk_size: usize,
    skip: u64,
    records: *mut u8,
    records_size: usize,
    error: *mut LazError,
) -> i32 {
    guard(error, || {
        let items = items::Items::parse(slice(vlr, vlr_size))?;
        let records = slice_mut(records, records_size);
        chunk::decompress(&items, slice(chunk, chunk_size), skip, records)
    })
}

/// # Safety
/// See laz_describe; `context` must stay valid for `read` as long as the stream lives.
#[no_mangle]
pub unsafe extern "C" fn laz_stream_open(
    vlr: *const u8,
    vlr_size: usize,
    read: stream::ReadFunction,
    context: *mut std::ffi::c_void,
    stream: *mut *mut LazStream,
    error: *mut LazError,
) -> i32 {
    guard(error, || {
        let items = items::Items::parse(slice(vlr, vlr_size))?;
        let opened = stream::PointStream::new(&items, read, context)?;
        stream.write(Box::into_raw(Box::new(LazStream(opened))));
        Ok(())
    })
}

/// # Safety
/// See laz_describe; one thread at a time per stream.
#[no_mangle]
pub unsafe extern "C" fn laz_stream_read(
    stream: *mut LazStream,
    records: *mut u8,
    records_size: usize,
    error: *mut LazError,
) -> i32 {
    guard(error, || (*stream).0.read(slice_mut(records, records_size)))
}

/// # Safety
/// `stream` must come from laz_stream_open, or be null, and is gone afterwards.
#[no_mangle]
pub unsafe extern "C" fn laz_stream_close(stream: *mut LazStream) {
    if !stream.is_null() {
        drop(Box::from_raw(stream));
    }
}

/// # Safety
/// See laz_describe.
#[no_mangle]
pub unsafe extern "C" fn laz_make_vlr(
    point_format: u8,
    extra_bytes: u16,
    chunk_points: u32,
    vlr: *mut LazBuffer,
    error: *mut LazError,
) -> i32 {
    guard(error, || {
        hand_over(items::make_vlr(point_format, extra_bytes, chunk_points)?, vlr);
        Ok(())
    })
}

/// # Safety
/// See laz_describe.
#[no_mangle]
pub unsafe extern "C" fn laz_compress_chunk(
    vlr: *const u8,
    vlr_size: usize,
    records: *const u8,
    records_size: usize,
    chunk: *mut LazBuffer,
    error: *mut LazError,
) -> i32 {
    guard(error, || {
        let items = items::Items::parse(slice(vlr, vlr_size))?;
        hand_over(chunk::compress(&items, slice(records, records_size))?, chunk);
        Ok(())
    })
}

/// # Safety
/// See laz_describe.
#[no_mangle]
pub unsafe extern "C" fn laz_write_chunk_table(
    chunks: *const LazChunk,
    count: usize,
    has_point_counts: i32,
    table: *mut LazBuffer,
    error: *mut LazError,
) -> i32 {
    guard(error, || {
        hand_over(chunk_table::write(slice(chunks, count), has_point_counts != 0)?, table);
        Ok(())
    })
}

/// # Safety
/// `buffer` must come from one of the functions above, and is empty afterwards.
#[no_mangle]
pub unsafe extern "C" fn laz_buffer_free(buffer: *mut LazBuffer) {
    let buffer = &mut *buffer;
    if !buffer.data.is_null() {
        drop(Vec::from_raw_parts(buffer.data, buffer.size, buffer.capacity));
        buffer.data = std::ptr::null_mut();
        buffer.size = 0;
        buffer.capacity = 0;
    }
}
