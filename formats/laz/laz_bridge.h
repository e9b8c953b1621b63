/* SPDX-License-Identifier: Apache-2.0
 *
 * laz_bridge: LASzip-compressed point records, decoded and encoded chunk by chunk. The caller reads and
 * writes the files, makes the threads and owns all buffers but LazBuffer.
 * Threads: every function may be called by any number of threads at once, except on one LazStream.
 * Errors: functions return 0, or 1 with a text in `error` (one line, no full stop). No input, however
 * damaged, makes them read or write outside the given buffers, end the process, or take memory out of
 * proportion to its size. */

#ifndef LIDARLIB_LAZ_BRIDGE_H
#define LIDARLIB_LAZ_BRIDGE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The text of a failure, ending in NUL. */
typedef struct LazError {
  char text[256];
} LazError;

/* How records are organised, LazDescription.scheme. */
enum {
  LAZ_POINT_WISE = 1,         /* one stream of all points, no chunk table */
  LAZ_POINT_WISE_CHUNKED = 2, /* chunks; point formats 0 to 5 */
  LAZ_LAYERED_CHUNKED = 3     /* chunks of one layer per field; point formats 6 to 10 */
};

/* LazDescription.chunk_points of files whose chunks vary in length. */
#define LAZ_VARIABLE_CHUNKS UINT32_MAX

/* What the LASzip record of a file says. */
typedef struct LazDescription {
  uint32_t scheme;
  uint32_t chunk_points; /* points per chunk, or LAZ_VARIABLE_CHUNKS */
  uint32_t record_bytes; /* length of one uncompressed record */
} LazDescription;

/* One entry of a chunk table. */
typedef struct LazChunk {
  uint64_t point_count; /* 0 in tables of chunks of fixed length */
  uint64_t byte_count;
} LazChunk;

/* Bytes that the library made; to be given back with laz_buffer_free. */
typedef struct LazBuffer {
  uint8_t* data;
  size_t size;
  size_t capacity;
} LazBuffer;

/* Fills `buffer` with up to `size` bytes at `offset` of a source; returns their number, 0 at the end,
 * -1 on failure. Must not throw. */
typedef int64_t (*LazRead)(void* context, uint64_t offset, uint8_t* buffer, size_t size);

/* A decoder that keeps its place in a point-wise stream. */
typedef struct LazStream LazStream;

/* Reads the payload of the LASzip record. Fails for schemes and items that cannot be decoded. */
int laz_describe(const uint8_t* vlr, size_t vlr_size, LazDescription* description, LazError* error);

/* Decodes `count` entries of a chunk table; `table` begins with its version and its count. Fails when
 * the table holds another number of entries. */
int laz_read_chunk_table(const uint8_t* table, size_t table_size, int has_point_counts,
                         LazChunk* chunks, size_t count, LazError* error);

/* Decodes one chunk: leaves out `skip` records, then fills `records`, whose size decides how many. */
int laz_decompress_chunk(const uint8_t* vlr, size_t vlr_size, const uint8_t* chunk,
                         size_t chunk_size, uint64_t skip, uint8_t* records, size_t records_size,
                         LazError* error);

/* Starts decoding a point-wise stream (scheme 1) whose first byte is at offset 0 of the source. */
int laz_stream_open(const uint8_t* vlr, size_t vlr_size, LazRead read, void* context,
                    LazStream** stream, LazError* error);

/* Decodes the next records. After a failure the stream can only be closed. */
int laz_stream_read(LazStream* stream, uint8_t* records, size_t records_size, LazError* error);

void laz_stream_close(LazStream* stream);

/* Makes the payload of a LASzip record for new files. */
int laz_make_vlr(uint8_t point_format, uint16_t extra_bytes, uint32_t chunk_points, LazBuffer* vlr,
                 LazError* error);

/* Encodes records as one chunk. */
int laz_compress_chunk(const uint8_t* vlr, size_t vlr_size, const uint8_t* records,
                       size_t records_size, LazBuffer* chunk, LazError* error);

/* Encodes a chunk table. */
int laz_write_chunk_table(const LazChunk* chunks, size_t count, int has_point_counts,
                          LazBuffer* table, LazError* error);

void laz_buffer_free(LazBuffer* buffer);

#ifdef __cplusplus
}
#endif

#endif
