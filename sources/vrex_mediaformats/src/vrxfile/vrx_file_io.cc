// Positional I/O on a managed file, and partition headers read straight from its descriptor.
#include "vrxfile/vrx_file_io.h"

#include <errno.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "abstraction/byte_order.h"
#include "abstraction/logging.h"
#include "abstraction/write_hook.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/vrx_packet.h"

namespace vrex {
namespace mediaformats {
namespace internal {

using abstraction::LoadBE32;
using abstraction::LoadBE64;

namespace {
int SystemFailure(int err) { return VREX_ERROR(::vrex::errors::SystemError(err)); }
}  // namespace

long FileSize(int fd) {
  struct stat info;
  if (fstat(fd, &info) != 0) return SystemFailure(errno);
  return info.st_size;
}

int FileIdOf(int fd, const std::string& path, abstraction::file_id_t& id) {
  struct stat info;
  struct statfs fsInfo;
  if (fstat(fd, &info) != 0 || fstatfs(fd, &fsInfo) != 0) return SystemFailure(errno);
  id.device = info.st_dev;
  id.inode = info.st_ino;
  id.size = info.st_size;
  id.path = path;
  id.fileSystemType = static_cast<long>(fsInfo.f_type);
  return 0;
}

int ReadAt(int fd, long offset, void* dst, size_t count) {
  if (offset < 0) return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  size_t done = 0;
  while (done < count) {
    const ssize_t got = pread(fd, static_cast<char*>(dst) + done, count - done,
                              offset + static_cast<long>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return SystemFailure(errno);
    if (got == 0) return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
    done += static_cast<size_t>(got);
  }
  return 0;
}

int ReadBE32At(int fd, long offset, uint32_t& value) {
  unsigned char bytes[4];
  VREX_CHECK(ReadAt(fd, offset, bytes, sizeof bytes));
  value = LoadBE32(bytes);
  return 0;
}

int ReadBE64At(int fd, long offset, uint64_t& value) {
  unsigned char bytes[8];
  VREX_CHECK(ReadAt(fd, offset, bytes, sizeof bytes));
  value = LoadBE64(bytes);
  return 0;
}

int WriteAt(int fd, long offset, const void* src, size_t count) {
  if (lseek(fd, offset, SEEK_SET) != offset) return SystemFailure(errno);
  ssize_t written;
  do {
    written = write(fd, src, count);
  } while (written < 0 && errno == EINTR);
  if (written < 0) return SystemFailure(errno);
  abstraction::internal::AfterWrite(fd, written);
  if (static_cast<size_t>(written) != count) return VREX_ERROR(ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  return 0;
}

int WriteBE64At(int fd, long offset, uint64_t value) {
  unsigned char bytes[8];
  abstraction::StoreBE64(bytes, value);
  return WriteAt(fd, offset, bytes, sizeof bytes);
}

bool WritePacket(int fd, const WriterVREX::message_t& message) {
  ssize_t written;
  do {
    written = writev(fd, message.pieces, message.count);
  } while (written < 0 && errno == EINTR);
  if (written > 0) abstraction::internal::AfterWrite(fd, written);
  return written >= 0 && static_cast<unsigned long>(written) == message.total;
}

int ReadPartitionHeaderAt(int fd, long offset, long fileSize, partition_header_record_t& out) {
  unsigned char bytes[vrx_packet_t::kMaxHeaderSize];
  const long count = std::min<long>(sizeof bytes, fileSize - offset);
  if (offset < 0 || count < 8) return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  VREX_CHECK(ReadAt(fd, offset, bytes, static_cast<size_t>(count)));
  vrx_packet_t packet;
  const int parsed = packet.Parse(bytes, static_cast<unsigned long>(count), offset, fileSize);
  if (parsed != 1 || !IsPacketWordValid(bytes) || packet.Tid() != VRX_TID_PARTITION_HEADER ||
      packet.payloadSize < kPartitionHeaderFixedPayload) {
    LOGE << "<-# ReadPartitionHeaderAt FAILED! no partition header at offset " << offset
         << " parsed=" << parsed << " TID " << packet.Tid();
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT);
  }
  unsigned char fixed[8 + kFixedMetadataSize];
  VREX_CHECK(ReadAt(fd, packet.PayloadOffset(), fixed, sizeof fixed));
  out.packetOffset = offset;
  out.packetSize = packet.packetSize;
  out.contentsLength = static_cast<long>(LoadBE64(fixed));
  out.payloadOffset = packet.PayloadOffset();
  memcpy(out.fixedMetadata, fixed + 8, kFixedMetadataSize);
  out.dynamicOffset = packet.PayloadOffset() + kPartitionHeaderFixedPayload;
  out.dynamicSize = static_cast<long>(packet.payloadSize) - kPartitionHeaderFixedPayload;
  return 0;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
