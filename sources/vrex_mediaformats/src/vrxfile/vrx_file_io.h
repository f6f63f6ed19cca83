// Positional reads and writes on the descriptor of a managed .vrx file, shared by the code
// that changes such files in place (appender, recover, delete, reindex). Writes go through the
// crash tests' write hook.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "abstraction/filelock.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "vrx/vrx_track.h"

namespace vrex {
namespace mediaformats {
namespace internal {

// The size of the open file, or an errno code.
long FileSize(int fd);

// The identity of an open descriptor, as file_id_t::Init gives it for `path`.
int FileIdOf(int fd, const std::string& path, abstraction::file_id_t& id);

// Reads exactly `count` bytes at `offset`. Returns 0, an errno code, or
// ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT for a range that lies outside the file (the structure
// that led there is wrong).
int ReadAt(int fd, long offset, void* dst, size_t count);
int ReadBE32At(int fd, long offset, uint32_t& value);
int ReadBE64At(int fd, long offset, uint64_t& value);

// Seeks to `offset` and writes all `count` bytes; the position is left after them. Returns 0,
// an errno code, or ERR_MEDIAFORMATS_DATA_SOURCE_IO for a write that took only a part.
int WriteAt(int fd, long offset, const void* src, size_t count);
int WriteBE64At(int fd, long offset, uint64_t value);

// Writes one packet as the writer assembled it, at the current position, with one writev.
// False when the descriptor took less than all of it.
bool WritePacket(int fd, const WriterVREX::message_t& message);

// Reads the partition header packet at `offset` of a file of `fileSize` bytes: it must be a
// whole TID 9 packet whose payload holds at least the contents length and the fixed
// metadata. Returns 0 or ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT (or an I/O code).
int ReadPartitionHeaderAt(int fd, long offset, long fileSize, partition_header_record_t& out);

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
