// OperationProcessMedia's data pump: one ProcessData per round of the operation's loop reads
// frames, filters and retimes them and writes them, until one has produced output.
#include "abstraction/datasource.h"
#include "abstraction/logging.h"
#include "media/hevc/hevc.h"
#include "mediaformats/errors.h"
#include "nodejs/errors.h"
#include "vidora/operation_process_media.h"

namespace vrex {
namespace nodejs {
namespace vidora {

using mediaformats::ERR_MEDIAFORMATS_NEED_MORE_DATA;
using vrex::common::IOBuffer;

namespace {

// An open-ended read gives up after this many waits for more data in a row.
constexpr int kMaxNeedMoreRetries = 11;
constexpr int kNeedMoreWaitSeconds = 3;

long WallClockOf(const media::frame_t& frame) {
  if (frame.clockSync == nullptr || !frame.clockSync->IsValid()) return -1;
  return frame.clockSync->ComputeWallClock(frame.dtsCts.Dts(), 1000);
}

bool IsAudio(const media::frame_t& frame) { return media::tagKind(frame.tag) == 'A'; }
bool IsVideo(const media::frame_t& frame) { return media::tagKind(frame.tag) == 'V'; }

// The first byte after the 4-byte length of the frame's first NAL unit; -1 when unreadable.
int FirstUnitByte(const media::frame_t& frame) {
  if (frame.size < 5) return -1;
  if (frame.pData != nullptr) return frame.pData[frame.offset + 4];
  unsigned char byte = 0;
  if (frame.pDataSource == nullptr || frame.pDataSource->Cursor(frame.offset + 4) != frame.offset + 4 ||
      frame.pDataSource->ReadBuffer(&byte, 1) != 1) {
    return -1;
  }
  return byte;
}

}  // namespace

int OperationProcessMedia::ProcessData(IOBuffer& buffer, int fd, unsigned long, int& waitSeconds) {
  if (IsComplete()) return 0;
  _sink = &buffer;
  _destFd = fd;
  int result;
  switch (_params.serveInReverse) {
    case SERVE_IN_REVERSE_IDR:
      result = ReadIDRBackward(buffer, 1);
      break;
    case SERVE_IN_REVERSE_GOP:
      result = ReadGOPBackward(buffer, 1, _params.enableKeyFrameFirst);
      break;
    default:
      result = ReadForward(buffer, 1, _params.enableKeyFrameFirst);
  }
  if (result == ERR_MEDIAFORMATS_NEED_MORE_DATA) {
    waitSeconds = kNeedMoreWaitSeconds;
    return 0;
  }
  if (result == mediaformats::ERR_MEDIAFORMATS_WRITER_CODEC_CHANGED && _lastWallClock >= 0) {
    ++_codecChangeCount;
    LOGI << "    OperationProcessMedia::ProcessData actionId: " << ActionId() << " Track codec change #"
         << _codecChangeCount << " detected at wc=" << _lastWallClock;
    result = CloseWriter(buffer);
    // The new writer reads the tracks' parameters and the reader is placed again: under the
    // locks, like every read.
    ms::LockClosure closure(_locks);
    if (!closure.IsLocked()) {
      LOGE << "<-# OperationProcessMedia::ProcessData actionId: " << ActionId() << " FAILED! Unable to lock files.";
      return -1;
    }
    _reader->DropReadAhead();
    if (result == 0) result = ReInitWriter();
    if (result == 0) result = PositionReaderServeDirection(_lastWallClock, _params.wallClockEndMillis);
    if (result != 0) LOGE << "<-# OperationProcessMedia::ProcessData FAILED! codec change err=" << result;
    return result;
  }
  if (result < 0) {
    LOGE << "<-# OperationProcessMedia::ProcessData actionId: " << ActionId() << " FAILED! err=" << result;
    return result;
  }
  if (IsComplete() && _writer) {
    result = CloseWriter(buffer);
    if (result != 0) LOGE << "<-# OperationProcessMedia::ProcessData FAILED! CloseWriter() err=" << result;
  }
  return result;
}

int OperationProcessMedia::RestartKeyFramesPhase() {
  LOGI << "    OperationProcessMedia::ReadForward actionId=" << ActionId() << " Finish sending all key frames";
  _keyFramesPhase = false;
  // Back to where the first pass began: the range's start, or the beginning without one.
  const long start = _params.wallClockStartMillis;
  const int sought = start > 0 ? _reader->SeekToWallClock(start, _params.snapToIdr).second : _reader->Rewind();
  if (sought != 0) LOGE << "<-# OperationProcessMedia::ReadForward SeekToWallClock() " << sought;
  return sought;
}

OperationProcessMedia::read_step_t OperationProcessMedia::FilterVideoStyle(const media::frame_t& frame) {
  if (!_onlyKeyFrames) return STEP_SERVE;
  const int byte = FirstUnitByte(frame);
  if (!IsVideo(frame)) {
    LOGW << "    OperationProcessMedia::ReadForward Invalid codec type.";
    return STEP_SERVE;
  }
  if (frame.tag == media::TAG_VH264) {
    if ((byte & 31) == 1) return STEP_DROP;
  } else if (frame.tag == media::TAG_VH265) {
    const unsigned type = (static_cast<unsigned>(byte) >> 1) & 63;
    if (type != 32 && !HEVC::IsKeyFrame(type)) {
      LOGD << "    OperationProcessMedia::ReadForward Not HEVC key frame (NAL=" << type << ")";
      return STEP_DROP;
    }
  } else if (frame.tag == media::TAG_VAV1 && !frame.keyFrame) {
    LOGD << "    OperationProcessMedia::ReadForward Not AV1 key frame - continue.";
    return STEP_DROP;
  }
  const long every = _everyNthFrame;
  if (every > 0) {
    if (_currentValidFrame < every) {
      const bool first = _currentValidFrame == 0;
      ++_currentValidFrame;
      if (!first) {
        LOGD << "    OperationProcessMedia::ReadForward Skip frame _currentValidFrame=" << _currentValidFrame;
        return STEP_DROP;
      }
    } else {
      _currentValidFrame = 1;
    }
  }
  return STEP_SERVE;
}

OperationProcessMedia::read_step_t OperationProcessMedia::FilterForward(const media::frame_t& frame, long wallClock) {
  // Key frames first: the first pass serves video key frames alone, the second all the rest,
  // so that no frame goes out twice.
  if (_params.enableKeyFrameFirst && !_params.skipVideo) {
    if (_keyFramesPhase && !(IsVideo(frame) && frame.keyFrame)) return STEP_DROP;
    if (!_keyFramesPhase && IsVideo(frame) && frame.keyFrame) return STEP_DROP;
  }
  long autoPause = _autoPauseWallClock;
  if (wallClock > 0 && autoPause < 0) {
    autoPause = wallClock - autoPause;
    _autoPauseWallClock = autoPause;
  }
  if (autoPause > 0 && wallClock > autoPause) {
    LOGI << "    OperationProcessMedia::ReadForward actionId=" << ActionId() << " PAUSE";
    Pause();
    _autoPauseWallClock = 0;
  }
  if (IsAudio(frame)) {
    if (_params.skipAudio && !_params.skipVideo) return STEP_DROP;
    if ((_params.skipVideo || _params.HasIdrFilter()) && wallClock < _params.wallClockStartMillis) return STEP_DROP;
    return STEP_SERVE;
  }
  if (_pauseOnlyVideo) {
    _videoResumePending = true;
    return STEP_DROP;
  }
  if (_videoResumePending) {
    if (!frame.keyFrame) return STEP_DROP;
    _videoResumePending = false;
  }
  if (_params.skipVideo) return STEP_DROP;
  if (_params.HasIdrFilter() && wallClock < _params.wallClockStartMillis) return STEP_DROP;
  if (_params.MustSkipIDR(frame.keyFrame, wallClock)) return STEP_DROP;
  return FilterVideoStyle(frame);
}

int OperationProcessMedia::ReadPayload(const media::frame_t& frame) {
  _frameBuffer.IgnoreAll();
  if (frame.size < 0 || frame.size > 0xFFFFFFFFLL || !_frameBuffer.EnsureSize(static_cast<uint32_t>(frame.size))) {
    LOGE << "<-# OperationProcessMedia::ReadPayload FAILED! ReadBuffer() NODEJS_ERR_FILE_IO_ERROR size=" << frame.size;
    return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_FILE_IO);
  }
  if (media::CopyFramePayload(frame, _frameBuffer.GetCurrentWritePosition()) != frame.size) {
    LOGE << "<-# OperationProcessMedia::ReadPayload FAILED! ReadBuffer() NODEJS_ERR_FILE_IO_ERROR at " << frame.offset;
    return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_FILE_IO);
  }
  _frameBuffer.Publish(static_cast<uint32_t>(frame.size));
  return 0;
}

const media::dts_cts_t& OperationProcessMedia::Retimed(const media::frame_t& frame) {
  if (_params.speedupFactor == 0 && _params.forceFps == 0) return frame.dtsCts;
  track_timestamps_info_t& track = IsAudio(frame) ? _audioTimestamps : _videoTimestamps;
  media::dts_cts_t& ts = track.scratch;
  if (_params.forceFps != 0) {
    const int64_t fps = _params.forceFps;
    if (frame.dtsCts.dts < 0) {
      ts = media::dts_cts_t(-1, 0, 0);
    } else {
      const int64_t rate = frame.dtsCts.clockRate;
      const int64_t counter = track.frameCounter;
      int64_t dts = -1;
      if (rate != 0 && counter >= 0) dts = fps == rate ? counter : ((fps >> 1) + rate * counter) / fps;
      ts = media::dts_cts_t(dts, frame.dtsCts.clockRate, 0);
    }
    ++track.frameCounter;
  } else {
    ts = frame.dtsCts;
    ts.dts /= _params.speedupFactor;
  }
  return ts;
}

int OperationProcessMedia::WriteFrame(const media::frame_t& frame, const media::dts_cts_t& ts, long wallClock) {
  _lastWallClock = wallClock;
  const unsigned char* data = _frameBuffer.GetPointer() + _frameBuffer.GetConsumed();
  const size_t size = _frameBuffer.GetAvailableBytesCount();
  int written;
  if (IsAudio(frame)) {
    written = _writer->WriteAudioData(data, size, ts, frame.tag);
    if (written < 0) LOGE << "<-# OperationProcessMedia::WriteFrame FAILED! WriteAudioData() err=" << written;
  } else {
    if (frame.keyFrame && frame.clockSync != nullptr && frame.clockSync->IsValid()) {
      written = _writer->WriteClockSync(*frame.clockSync);
      if (written < 0) {
        LOGE << "<-# OperationProcessMedia::WriteFrame FAILED! WriteClockSync() err=" << written;
        return written;
      }
    }
    written = _writer->WriteVideoData(data, size, ts, frame.keyFrame, frame.tag);
    if (written < 0) LOGE << "<-# OperationProcessMedia::WriteFrame FAILED! WriteVideoData() err=" << written;
  }
  if (written < 0) return written;
  ++_inputFramesCount;
  (IsAudio(frame) ? _audioTimestamps : _videoTimestamps).Add(ts, wallClock);
  ++_outputFramesCount;
  return 0;
}

// A read pass holds the sources' locks; what the read-ahead held before them is not trusted.
bool OperationProcessMedia::BeginLockedRead(const ms::LockClosure& closure, const char* pass) {
  if (!closure.IsLocked()) {
    LOGE << "<-# OperationProcessMedia::" << pass << " actionId=" << ActionId() << " FAILED! Unable to lock files.";
    return false;
  }
  _reader->DropReadAhead();
  return true;
}

int OperationProcessMedia::ReadForward(IOBuffer& buffer, unsigned long minBytes, bool enableKeyFrameFirst) {
  ms::LockClosure closure(_locks);
  if (!BeginLockedRead(closure, "ReadForward")) return -1;
  auto lockedAt = std::chrono::steady_clock::now();
  for (;;) {
    if (IsCompleteOrPaused() || buffer.GetAvailableBytesCount() >= minBytes) return 0;
    if (!RelockLongLocks(closure, lockedAt)) return -1;
    int error = 0;
    const media::frame_t* frame = _reader->ReadFrame(error);
    if (frame == nullptr) {
      // The end of the data ends the first pass of key frames as the range's end does.
      const bool ended = error == 0 || error == ERR_MEDIAFORMATS_NEED_MORE_DATA;
      if (!ended) {
        SetComplete(true);
        return error;
      }
      if (enableKeyFrameFirst && _keyFramesPhase) {
        const int sought = RestartKeyFramesPhase();
        if (sought != 0) return sought;
        continue;
      }
      if (error == 0) {
        SetComplete(true);
        return 0;
      }
      if (++_needMoreRetries >= kMaxNeedMoreRetries) {
        SetComplete(true);
        return 0;
      }
      return VREX_ERROR(ERR_MEDIAFORMATS_NEED_MORE_DATA);
    }
    _needMoreRetries = 0;
    const long wallClock = WallClockOf(*frame);
    if (_trace) LOGI << "    OperationProcessMedia::ReadForward " << frame->ToString() << " wc=" << wallClock;
    const long start = _params.wallClockStartMillis;
    const long end = _params.wallClockEndMillis;
    if (start < 0 && end < 0) {
      if (_params.HasIdrFilter() && wallClock < 0) continue;
    } else {
      if (wallClock < 0) continue;
      if (end > 0 && wallClock > end) {
        if (enableKeyFrameFirst && _keyFramesPhase) {
          const int sought = RestartKeyFramesPhase();
          if (sought != 0) return sought;
          continue;
        }
        _keyFramesPhase = true;
        SetComplete(true);
        return 0;
      }
    }
    if (FilterForward(*frame, wallClock) == STEP_DROP) continue;
    int result = ReadPayload(*frame);
    if (result == 0) result = WriteFrame(*frame, Retimed(*frame), wallClock);
    if (result != 0) return result;
    if (IsPaused()) {
      LOGI << "    OperationProcessMedia::ReadForward actionId=" << ActionId() << " PAUSED - exit";
      return 0;
    }
  }
}

int OperationProcessMedia::ReadIDRBackward(IOBuffer& buffer, unsigned long minBytes) {
  if (_sourceIsMp4) return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_NOT_IMPLEMENTED);
  ms::LockClosure closure(_locks);
  if (!BeginLockedRead(closure, "ReadIDRBackward")) return -1;
  auto lockedAt = std::chrono::steady_clock::now();
  for (;;) {
    if (IsCompleteOrPaused() || buffer.GetAvailableBytesCount() >= minBytes) return 0;
    if (!RelockLongLocks(closure, lockedAt)) return -1;
    if (_reverseFirstIndex > _reverseIndex) {
      SetComplete(true);
      return 0;
    }
    const mediaformats::seek_point_t point = _seekPoints[_reverseIndex--];
    if (_params.MustSkipIDR(true, point._wallClockMillis)) continue;
    const int sought = _reader->SeekToRawOffset(point._offset);
    if (sought != 0) return sought;
    const media::frame_t* frame = nullptr;
    int error = 0;
    while ((frame = _reader->ReadFrame(error)) != nullptr) {
      if (IsVideo(*frame) && frame->keyFrame && WallClockOf(*frame) >= 0) break;
    }
    if (frame == nullptr) {
      if (error != 0) return error;
      continue;
    }
    const long wallClock = WallClockOf(*frame);
    if (point._wallClockMillis < wallClock) continue;
    int result = ReadPayload(*frame);
    if (result == 0) result = WriteFrame(*frame, frame->dtsCts, wallClock);
    if (result != 0) return result;
  }
}

int OperationProcessMedia::ReadGOPBackward(IOBuffer& buffer, unsigned long minBytes, bool enableKeyFrameFirst) {
  ms::LockClosure closure(_locks);
  if (!BeginLockedRead(closure, "ReadGOPBackward")) return -1;
  auto lockedAt = std::chrono::steady_clock::now();
  for (;;) {
    if (IsCompleteOrPaused() || buffer.GetAvailableBytesCount() >= minBytes) return 0;
    if (!RelockLongLocks(closure, lockedAt)) return -1;
    if (_reverseFirstIndex > _reverseIndex) {
      if (enableKeyFrameFirst && _keyFramesPhase) {
        LOGI << "    OperationProcessMedia::ReadGOPBackward actionId=" << ActionId() << " Finish sending all key frames";
        _reverseIndex = _reverseRestartIndex;
        _keyFramesPhase = false;
        continue;
      }
      _keyFramesPhase = true;
      _reverseRestartIndex = -1;
      SetComplete(true);
      return 0;
    }
    const int sought = _reader->SeekToRawOffset(_seekPoints[_reverseIndex--]._offset);
    if (sought != 0) return sought;
    bool keyFrameSeen = false;
    for (;;) {
      int error = 0;
      const media::frame_t* frame = _reader->ReadFrame(error);
      if (frame == nullptr) {
        if (error != 0) return error;
        break;
      }
      const bool video = IsVideo(*frame);
      if (!video && (_params.skipAudio || (enableKeyFrameFirst && _keyFramesPhase))) continue;
      if (video && frame->keyFrame) {
        if (enableKeyFrameFirst && !_keyFramesPhase && !keyFrameSeen) {
          keyFrameSeen = true;
          continue;
        }
        if (keyFrameSeen) {
          if (enableKeyFrameFirst) {
            LOGD << "    OperationProcessMedia::ReadGOPBackward have sent all non-key frames in this GOP, move to the next one";
          }
          break;
        }
        keyFrameSeen = true;
      } else if (video && enableKeyFrameFirst && _keyFramesPhase) {
        continue;
      }
      const long wallClock = WallClockOf(*frame);
      if (wallClock < 0) break;
      int result = ReadPayload(*frame);
      if (result == 0) result = WriteFrame(*frame, frame->dtsCts, wallClock);
      if (result != 0) return result;
      if (video && frame->keyFrame && enableKeyFrameFirst && _keyFramesPhase) break;
    }
  }
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
