// OperationProcessMedia's writers: the choice by output format, the end of the output, and the
// observers through which the writers' bytes reach the operation.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"
#include "nodejs/errors.h"
#include "vidora/operation_process_media.h"

namespace vrex {
namespace nodejs {
namespace vidora {

using mediaformats::MP4TrackInfo;
using vrex::common::IOBuffer;

namespace {

// A progressive fragmented MP4 unit: a one-byte type and a 24-bit length ahead of its bytes.
constexpr size_t kMaxProgressiveUnit = 0x00ffffff;

}  // namespace

int OperationProcessMedia::CreateMp4FamilyWriter(long startWallClock, const std::string& name) {
  MP4TrackInfo audio;
  MP4TrackInfo video;
  int result = GetTracksInfo(startWallClock, _params.skipAudio ? nullptr : &audio,
                             _params.skipVideo ? nullptr : &video, _params.zeroBase,
                             _params.serveInReverse == SERVE_IN_REVERSE_GOP);
  if (result != 0) {
    LOGE << "<-# OperationProcessMedia::InitWriter FAILED! GetTracksInfo() err=" << result;
    return result;
  }
  _fmp4Progressive = _params.hasNetworkDestination;
  const MP4TrackInfo* audioTrack = !_params.skipAudio && audio._codecType != media::TAG_UNK ? &audio : nullptr;
  const MP4TrackInfo* videoTrack = !_params.skipVideo && video._codecType != media::TAG_UNK ? &video : nullptr;
  int error = 0;
  if (_params.outputFormat == "mp4") {
    _writer.reset(mediaformats::WriterMP4::Create(name, audioTrack, videoTrack, this, error));
  } else {
    _writer.reset(mediaformats::WriterFMP4::Create(name, audioTrack, videoTrack, _fmp4Progressive,
                                                   _params.fragmentDuration, _params.fragmentOnKf,
                                                   _params.useWallClockForFMP4, this, error));
  }
  return error;
}

int OperationProcessMedia::InitWriter() {
  LOGD << "#-> OperationProcessMedia::InitWriter actionId=" << ActionId() << " format=" << _params.outputFormat;
  int error = 0;
  const std::string& format = _params.outputFormat;
  if (format == "vrx") {
    auto writer = mediaformats::WriterVREX::Create(0xffffffff, this, error);
    // A network stream has no partition around it.
    if (writer && !_params.hasNetworkDestination) {
      const mediaformats::WriterVREX::partition_info_t info;
      error = writer->OpenPartition(&info);
    }
    _writer = std::move(writer);
  } else if (format == "fmp4" || format == "mp4") {
    char name[64];
    snprintf(name, sizeof(name), "%ld/%ld", _params.dstWrtcId, _params.dstChannelId);
    error = CreateMp4FamilyWriter(_params.wallClockStartMillis,
                                  _params.hasNetworkDestination ? std::string(name) : _params.dstFileName);
    if (error != 0 && !_writer) return error;
  } else if (format == "annexb" || format == "avcc") {
    _writer.reset(mediaformats::WriterRawH264::Create(true, format == "avcc", this, error));
  } else {
    LOGE << "<-# OperationProcessMedia::InitWriter FAILED! Format " << format << " not supported";
    return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_OUTPUT_FORMAT_NOT_SUPPORTED);
  }
  if (!_writer) {
    LOGE << "<-# OperationProcessMedia::InitWriter FAILED! err=" << error;
    return error;
  }
  return error;
}

int OperationProcessMedia::ReInitWriter() {
  if (_params.outputFormat != "fmp4") {
    LOGI << "    OperationProcessMedia::ReInitWriter Reinit not needed for format " << _params.outputFormat;
    return 0;
  }
  if (_lastWallClock < 0) return 0;
  char name[96];
  if (_params.hasNetworkDestination) {
    snprintf(name, sizeof(name), "%ld/%ld_%d", _params.dstWrtcId, _params.dstChannelId, _codecChangeCount);
  } else {
    snprintf(name, sizeof(name), "_%d", _codecChangeCount);
  }
  const std::string writerName = _params.hasNetworkDestination ? std::string(name) : _params.dstFileName + name;
  _writer.reset();
  const int error = CreateMp4FamilyWriter(_lastWallClock, writerName);
  if (!_writer) {
    LOGE << "<-# OperationProcessMedia::ReInitWriter FAILED! err=" << error;
    return error != 0 ? error : VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_STATE);
  }
  return 0;
}

int OperationProcessMedia::CloseWriter(IOBuffer& buffer) {
  _sink = &buffer;
  const std::string& format = _params.outputFormat;
  if (format == "vrx") {
    auto* writer = static_cast<mediaformats::WriterVREX*>(_writer.get());
    if (!_params.hasNetworkDestination) {
      const long closed = writer->ClosePartition();
      if (closed < 0) {
        LOGE << "<-# OperationProcessMedia::CloseWriter FAILED! VRX ClosePartition() err=" << closed;
        return static_cast<int>(closed);
      }
    } else if (_params.sendEod && !_eodSent) {
      // The end-of-data marker: an empty skip packet.
      unsigned char packet[16];
      const int result = writer->ComputeSkipPacketHeaderAndFooter(0, packet, packet + 12);
      if (result < 0) {
        LOGE << "<-# OperationProcessMedia::CloseWriter FAILED! VRX ComputeSkipPacketHeaderAndFooter() err=" << result;
        return result;
      }
      buffer.ReadFromBuffer(packet, sizeof(packet));
      _eodSent = true;
    }
  } else if (format == "mp4") {
    const int flushed = static_cast<mediaformats::WriterMP4*>(_writer.get())->Flush();
    if (flushed < 0) {
      LOGE << "<-# OperationProcessMedia::CloseWriter FAILED! MP4 Flush() err=" << flushed;
      return flushed;
    }
    if (!FlushMP4Data()) return VREX_ERROR(::vrex::mediaformats::ERR_MEDIAFORMATS_DATA_SOURCE_IO);
  } else if (format == "fmp4") {
    const int flushed = static_cast<mediaformats::WriterFMP4*>(_writer.get())->Flush(nullptr, nullptr);
    if (flushed != 0) {
      LOGE << "<-# OperationProcessMedia::CloseWriter FMP4 FAILED! Flush() err=" << flushed;
      return VREX_ERROR(::vrex::errors::MakeError(8, 37));
    }
  }
  return 0;
}

void OperationProcessMedia::AppendToSink(const void* data, size_t size) {
  if (_sink != nullptr && size > 0) _sink->ReadFromBuffer(data, static_cast<uint32_t>(size));
}

bool OperationProcessMedia::WriteVREXData(const mediaformats::WriterVREX::message_t& message) {
  if (_sink == nullptr) return message.count == 0;
  for (int i = 0; i < message.count; ++i) {
    if (!_sink->ReadFromBuffer(message.pieces[i].iov_base, static_cast<uint32_t>(message.pieces[i].iov_len))) {
      return false;
    }
  }
  return true;
}

bool OperationProcessMedia::WriteH264Data(const void* data, size_t size) {
  if (data == nullptr || size == 0) return true;
  return _sink != nullptr && _sink->ReadFromBuffer(data, static_cast<uint32_t>(size));
}

// The MP4 writer hands over each sample on its own: the bytes gather here and reach the file
// a block at a time, before any seek and when the writer is closed.
bool OperationProcessMedia::WriteMP4Data(const unsigned char* data, size_t size) {
  if (_mp4Pending.size() + size > kMp4WriteBlock && !FlushMP4Data()) return false;
  if (size >= kMp4WriteBlock) return WriteMP4Bytes(data, size);
  _mp4Pending.insert(_mp4Pending.end(), data, data + size);
  return true;
}

bool OperationProcessMedia::FlushMP4Data() {
  const bool written = WriteMP4Bytes(_mp4Pending.data(), _mp4Pending.size());
  _mp4Pending.clear();
  return written;
}

bool OperationProcessMedia::WriteMP4Bytes(const unsigned char* data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(_destFd, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      LOGE << "<-# OperationProcessMedia::WriteMP4Data FAILED! _destFd=" << _destFd << " size=" << size
           << " errno=" << errno << " " << strerror(errno);
      return false;
    }
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

bool OperationProcessMedia::SeekIntoMP4Data(long offset, long whence) {
  if (!FlushMP4Data()) return false;
  const off_t result = lseek(_destFd, offset, static_cast<int>(whence));
  if (result == -1 || result != whence + offset) {
    LOGE << "<-# OperationProcessMedia::SeekIntoMP4Data lseek() failed! offset=" << offset << " whence=" << whence;
    return false;
  }
  return true;
}

void OperationProcessMedia::WriteMP4Complete() { fsync(_destFd); }

bool OperationProcessMedia::SignalBeginWriteMOOV() {
  if (_fmp4Progressive) _moovBuilding.IgnoreAll();
  return true;
}

void OperationProcessMedia::MoveInto(IOBuffer& completed, IOBuffer& building, unsigned offset) {
  completed.IgnoreAll();
  completed.ReadFromInputBufferWithIgnore(building);
  if (offset < completed.GetAvailableBytesCount()) {
    AppendToSink(completed.GetPointer() + completed.GetConsumed() + offset,
                 completed.GetAvailableBytesCount() - offset);
  }
}

bool OperationProcessMedia::SignalEndWriteMOOV(unsigned int offset, bool) {
  if (_fmp4Progressive) MoveInto(_moovCompleted, _moovBuilding, offset);
  return true;
}

bool OperationProcessMedia::SignalBeginWriteFragment(long) {
  if (_fmp4Progressive) _fragmentBuilding.IgnoreAll();
  return true;
}

bool OperationProcessMedia::SignalEndWriteFragment(long) {
  if (_fmp4Progressive) MoveInto(_fragmentCompleted, _fragmentBuilding, 0);
  return true;
}

bool OperationProcessMedia::SignalWriteBuffer(mediaformats::FMP4WriteState state, const void* data, size_t size) {
  if (!_fmp4Progressive) {
    AppendToSink(data, size);
    return true;
  }
  IOBuffer& building = state == mediaformats::FMP4_WRITE_STATE_INIT ? _moovBuilding : _fragmentBuilding;
  return size == 0 || building.ReadFromBuffer(data, static_cast<uint32_t>(size));
}

bool OperationProcessMedia::SignalWriteProgressiveBuffer(mediaformats::FMP4ProgressiveBufferType type,
                                                         const void* data, size_t size) {
  if (size > kMaxProgressiveUnit) {
    LOGE << "<-# OperationProcessMedia::SignalWriteProgressiveBuffer Frame too big. Maximum allowed size is 0x00ffffff bytes";
    return false;
  }
  const uint32_t head = static_cast<uint32_t>(size) | static_cast<uint32_t>(type) << 24;
  if (type == mediaformats::FMP4_PROGRESSIVE_MOOV) {
    // Kept, so that a stream joined later can be sent its initialisation segment again.
    _moovCompleted.IgnoreAll();
    if (!_moovCompleted.ReadFromU32(head, true) ||
        (size > 0 && !_moovCompleted.ReadFromBuffer(data, static_cast<uint32_t>(size)))) {
      LOGE << "<-# OperationProcessMedia::SignalWriteProgressiveBuffer Unable to save completed MOOV atom";
      return false;
    }
  }
  _progressiveUnit.IgnoreAll();
  _progressiveUnit.ReadFromU32(head, true);
  if (size > 0) _progressiveUnit.ReadFromBuffer(data, static_cast<uint32_t>(size));
  AppendToSink(_progressiveUnit.GetPointer() + _progressiveUnit.GetConsumed(),
               _progressiveUnit.GetAvailableBytesCount());
  return true;
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
