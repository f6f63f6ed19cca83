// OperationProcessMedia before the first frame: locks, reader, the range's start, the index of
// a reverse read, and the tracks' parameters for the writers that need them in advance.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "abstraction/logging.h"
#include "common/process_env.h"
#include "media/aac/codec_info_aac.h"
#include "media/av1/codec_info_av1.h"
#include "media/h264/codec_info_h264.h"
#include "media/hevc/codec_info_h265.h"
#include "mediaformats/errors.h"
#include "nodejs/errors.h"
#include "vidora/operation_process_media.h"

namespace vrex {
namespace nodejs {
namespace vidora {

using mediaformats::MP4TrackInfo;

namespace {

// Filesystems that are not local: no optimisation that relies on the page cache.
constexpr long kNfsMagic = 0x6969;
// A read that holds its locks this long gives way to writers.
constexpr auto kLongLock = std::chrono::nanoseconds(5000999999L);

const char* PoolFor(const ProcessMediaParams& params) {
  return params.hasNetworkDestination ? "Serve" : "Write";
}

unsigned long BufferSizeFor(const ProcessMediaParams& params) {
  if (params.hasNetworkDestination) return OperationProcessMedia::kNetworkBufferSize;
  if (params.dstCallback.function != nullptr) return OperationProcessMedia::kDrainBufferSize;
  return OperationProcessMedia::kFileBufferSize;
}

bool EndsWithVrx(const std::string& path) {
  if (path.size() < 4) return false;
  std::string ending = path.substr(path.size() - 4);
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ending == ".vrx";
}

}  // namespace

OperationProcessMedia::OperationProcessMedia(Napi::Env& env, long id, const ProcessMediaParams& params)
    : BaseOperation(env, id, "processMedia", PoolFor(params), BufferSizeFor(params), params.paused,
                    params.startCallback, params.dstCallback, params.CallbackInfo(),
                    params.progressCallback),
      _params(params),
      _onlyKeyFrames(params.onlyKeyFrames),
      _everyNthFrame(params.everyNthFrame),
      _autoPauseWallClock(params.pauseAfterMs < 1 ? 0 : -params.pauseAfterMs),
      _trace(common::process_env.traceProcessMedia != 0) {
  SetAction(params.actionStart, params.actionId);
}

OperationProcessMedia::~OperationProcessMedia() {
  media::codec_info_t::FreeInstance(_videoCodecInfo);
  media::codec_info_t::FreeInstance(_audioCodecInfo);
  _writer.reset();
  _reader.reset();
}

void OperationProcessMedia::SignalThreadCleanup() {
  _reader.reset();
  _locks.clear();
}

int OperationProcessMedia::Init(const std::string& dstFile) {
  int result = InitLocks(dstFile);
  if (result != 0) {
    LOGE << "<-# OperationProcessMedia::Init actionId=" << ActionId() << " FAILED! InitLocks() err=" << result;
    return result;
  }
  ms::LockClosure closure(_locks);
  if (!closure.IsLocked()) {
    LOGE << "<-# OperationProcessMedia::Init actionId=" << ActionId() << " FAILED! Unable to lock files.";
    return -1;
  }
  result = InitReader();
  if (result != 0) {
    LOGE << "<-# OperationProcessMedia::Init actionId=" << ActionId() << " FAILED! InitReader() err=" << result;
    return result;
  }
  result = InitWriter();
  if (result != 0) {
    LOGE << "<-# OperationProcessMedia::Init actionId=" << ActionId() << " FAILED! InitWriter() err=" << result;
    return result;
  }
  result = PositionReaderServeDirection(_params.wallClockStartMillis, _params.wallClockEndMillis);
  if (result != 0) {
    LOGE << "<-# OperationProcessMedia::Init actionId=" << ActionId()
         << " FAILED! PositionReaderServeDirection() err=" << result;
  }
  return result;
}

int OperationProcessMedia::InitLocks(const std::string& dstFile) {
  _locks.clear();
  if (_params.srcFileNames.empty()) {
    LOGE << "<-# OperationProcessMedia::InitLocks FAILED! No file names specified";
    return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS);
  }
  std::vector<std::pair<std::string, bool>> files;
  for (const std::string& source : _params.srcFileNames) files.emplace_back(source, true);
  if (!dstFile.empty()) files.emplace_back(dstFile, false);
  for (const auto& file : files) {
    ms::CombinedLock lock;
    const int result = lock.fileLock.Init(file.first.c_str(), file.second);
    if (result != 0) {
      LOGE << "<-# OperationProcessMedia::InitLocks FAILED! Could not init lock for " << file.first
           << " err=" << result;
      return result;
    }
    if (lock.fileLock.fileSystemType == kNfsMagic) _useLocalFsOptimisations = false;
    lock.ipcLock = std::make_shared<ms::IPCFileLock>(file.first, file.second);
    _locks.push_back(std::move(lock));
  }
  return 0;
}

int OperationProcessMedia::InitReader() {
  int error = 0;
  const std::string& first = _params.srcFileNames[0];
  if (EndsWithVrx(first)) {
    const bool openEnded = _params.wallClockEndMillis < 0 && _params.serveInReverse == SERVE_IN_REVERSE_OFF;
    auto reader = mediaformats::ReaderVREX::Create(this, _params.srcFileNames, _useLocalFsOptimisations,
                                                   _params.offset, _params.length, openEnded, error);
    if (reader) {
      _reader.reset(new MediaReaderOf<mediaformats::ReaderVREX>(reader.release(), std::max(_params.offset, 0L)));
    }
  } else {
    mediaformats::ReaderMp4* reader = mediaformats::ReaderMp4::Create(this, first, _useLocalFsOptimisations, error);
    if (reader != nullptr) _reader.reset(new MediaReaderOf<mediaformats::ReaderMp4>(reader, 0));
    _sourceIsMp4 = true;
  }
  if (!_reader) {
    LOGE << "<-# OperationProcessMedia::InitReader actionId=" << ActionId() << " FAILED! Could not create reader "
         << first << " err=" << error;
    return error != 0 ? error : VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_INVALID_STATE);
  }
  return 0;
}

int OperationProcessMedia::PositionReader(long start, long end) {
  if (start < 1) return 0;
  LOGI << "\tOperationProcessMedia::PositionReader actionId=" << ActionId() << " first search "
       << " start wc=" << media::FormatWallClockMillis(start);
  const std::pair<long, int> found = _reader->SeekToWallClock(start, _params.snapToIdr);
  if (found.second != 0) {
    LOGE << "<-# OperationProcessMedia::PositionReader actionId=" << ActionId() << " FAILED! error="
         << found.second << " " << vrex::errors::GetDescription(found.second);
    return found.second;
  }
  if (found.first < 0 || (end > 0 && end < found.first)) {
    LOGE << "<-# OperationProcessMedia::PositionReader actionId=" << ActionId()
         << " FAILED! ############## No recordings ##############" << (found.first < 0 ? "" : " behind end wc=")
         << end;
    return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_NO_SEEK_POINTS);
  }
  return 0;
}

int OperationProcessMedia::PositionReaderServeDirection(long start, long end) {
  if (_params.serveInReverse == SERVE_IN_REVERSE_OFF) return PositionReader(start, end);
  const int result = ComputeReversePlaybackSeekPoints(start, end);
  _reverseRestartIndex = _reverseIndex;
  LOGI << "\tOperationProcessMedia::PositionReaderServeDirection actionId=" << ActionId() << " reverse from "
       << _reverseIndex << " down to " << _reverseFirstIndex << " of " << _seekPoints.size() << " res=" << result;
  return result;
}

int OperationProcessMedia::ComputeReversePlaybackSeekPoints(long start, long end) {
  if (_sourceIsMp4) return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_NOT_IMPLEMENTED);
  _seekPoints.clear();
  int error = 0;
  while (const mediaformats::partition_t* partition =
             _reader->ReadPartition(mediaformats::PARTITION_LAST_TIMESTAMP_NONE, error)) {
    _seekPoints.insert(_seekPoints.end(), partition->_pSeekPoints,
                       partition->_pSeekPoints + partition->_seekPointsCount);
  }
  if (error != 0 && error != mediaformats::ERR_MEDIAFORMATS_NO_MORE_PARTITIONS) {
    LOGE << "<-# OperationProcessMedia::ComputeReversePlaybackSeekPoints FAILED! ReadPartition() err=" << error;
    return error;
  }
  if (_seekPoints.empty()) return VREX_ERROR(vrex::webrtcnodejs::ERR_NODEJS_NO_SEEK_POINTS);
  const long last = static_cast<long>(_seekPoints.size()) - 1;
  const auto wallClockAt = [this](long index) { return _seekPoints[index]._wallClockMillis; };
  // The index of `target` between two points: the pair (lo, hi) around it, or an exact match.
  const auto around = [&](long target, long& lo, long& hi) {
    const auto above = std::upper_bound(_seekPoints.begin(), _seekPoints.end(), target,
                                        [](long value, const mediaformats::seek_point_t& point) {
                                          return value < point._wallClockMillis;
                                        });
    hi = above - _seekPoints.begin();
    lo = hi - 1;
    return wallClockAt(lo) == target;
  };
  long lo = 0;
  long hi = 0;
  if (start < 0 || wallClockAt(0) >= start || last == 0) {
    _reverseFirstIndex = 0;
  } else if (start >= wallClockAt(last)) {
    _reverseFirstIndex = last;
  } else if (around(start, lo, hi)) {
    _reverseFirstIndex = lo;
  } else if (_params.snapToIdr == mediaformats::SNAP_TO_IDR_BEFORE) {
    _reverseFirstIndex = lo;
  } else if (_params.snapToIdr == mediaformats::SNAP_TO_IDR_AFTER) {
    _reverseFirstIndex = hi;
  } else {
    _reverseFirstIndex = std::labs(start - wallClockAt(lo)) < std::labs(wallClockAt(hi) - start) ? lo : hi;
  }
  if (end < 0 || wallClockAt(last) <= end) {
    _reverseIndex = last;
  } else if (end <= wallClockAt(0)) {
    _reverseIndex = 0;
  } else if (around(end, lo, hi)) {
    _reverseIndex = lo;
  } else if (_params.serveInReverse == SERVE_IN_REVERSE_GOP || _params.snapToIdr == mediaformats::SNAP_TO_IDR_BEFORE) {
    _reverseIndex = lo;
  } else if (_params.snapToIdr == mediaformats::SNAP_TO_IDR_AFTER) {
    _reverseIndex = hi;
  } else {
    _reverseIndex = end - wallClockAt(lo) < wallClockAt(hi) - end ? lo : hi;
  }
  return 0;
}

int OperationProcessMedia::FillTrackInfo(const media::frame_t& frame, MP4TrackInfo* audio, MP4TrackInfo* video) {
  int error = 0;
  const char kind = media::tagKind(frame.tag);
  if (kind == 'A' && audio != nullptr && audio->_codecType == media::TAG_UNK) {
    if (frame.tag != media::TAG_AAAC || !frame.keyFrame) return 0;
    auto* aac = media::codec_info_audio_aac_t::GetInstance(frame, error);
    if (aac == nullptr) {
      LOGE << "<-# OperationProcessMedia::GetTracksInfo _pAudioCodecInfo is NULL err=" << error;
      return error;
    }
    _audioCodecInfo = aac;
    audio->_codecType = aac->tag;
    audio->_pCodecBytes = aac->_audioSpecificConfig;
    audio->_codecBytesSize = sizeof(aac->_audioSpecificConfig);
    audio->_timescale = aac->samplingRate;
    audio->_channels = aac->_channels;
    audio->_defaultSampleDuration = aac->_samplesPerFrame;
    audio->_rfc6381Codec = aac->_rfc6381Codec;
    return 0;
  }
  if (kind != 'V' || video == nullptr || video->_codecType != media::TAG_UNK || !frame.keyFrame) return 0;
  media::codec_info_video_t* info = nullptr;
  switch (frame.tag) {
    case media::TAG_VH264:
      LOGD << "  H264 frame detected";
      info = media::codec_info_video_h264_t::GetInstance(frame, error);
      break;
    case media::TAG_VH265:
      LOGD << "  H265 frame detected";
      info = media::codec_info_video_h265_t::GetInstance(frame, error);
      break;
    case media::TAG_VAV1:
      LOGD << "  AV1 frame detected";
      info = media::codec_info_video_av1_t::GetInstance(frame, error);
      break;
    default:
      LOGW << "    OperationProcessMedia::GetTracksInfo unsupported video frame type "
           << media::tagToString(frame.tag);
      return 0;
  }
  if (info == nullptr) {
    LOGE << "<-# OperationProcessMedia::GetTracksInfo  FAILED! _pVideoCodecInfo is NULL err=" << error;
    return error;
  }
  _videoCodecInfo = info;
  video->_codecType = info->tag;
  video->_pCodecBytes = info->GetISO14496CodecBuffer();
  video->_codecBytesSize = info->GetISO14496CodecBufferLength();
  video->_width = info->_width;
  video->_height = info->_height;
  video->_timescale = info->samplingRate;
  video->_fps = static_cast<uint32_t>(info->GetFPS() + 0.5);
  video->_defaultSampleDuration = static_cast<uint32_t>(info->GetLogicalDuration() + 0.5);
  video->_rfc6381Codec = info->_rfc6381Codec;
  video->_extendedVideoMetadata = _params.extendedVideoMetadata;
  return 0;
}

int OperationProcessMedia::GetTracksInfo(long startWallClock, MP4TrackInfo* audio, MP4TrackInfo* video,
                                         bool zeroBase, bool) {
  media::codec_info_t::FreeInstance(_audioCodecInfo);
  media::codec_info_t::FreeInstance(_videoCodecInfo);
  _audioCodecInfo = nullptr;
  _videoCodecInfo = nullptr;
  if (startWallClock > 0) {
    const int sought = _reader->SeekToWallClock(startWallClock, _params.snapToIdr).second;
    if (sought != 0) {
      LOGE << "<-# OperationProcessMedia::GetTracksInfo SeekToWallClock() err=" << sought;
      return sought;
    }
  }
  int videoKeyFrames = 0;
  const auto filled = [&] {
    const bool audioDone = audio == nullptr || audio->_codecType != media::TAG_UNK || videoKeyFrames >= 2;
    const bool videoDone = video == nullptr || video->_codecType != media::TAG_UNK;
    return audioDone && videoDone;
  };
  media::dts_cts_t firstAudio;
  media::dts_cts_t firstVideo;
  while (!filled()) {
    int error = 0;
    const media::frame_t* frame = _reader->ReadFrame(error);
    if (frame == nullptr) {
      if (error != 0 && error != mediaformats::ERR_MEDIAFORMATS_NEED_MORE_DATA) {
        LOGE << "<-# OperationProcessMedia::GetTracksInfo ReadFrame() err=" << error;
        return error;
      }
      break;
    }
    if (media::tagKind(frame->tag) == 'V' && frame->keyFrame) ++videoKeyFrames;
    const bool audioBefore = audio != nullptr && audio->_codecType != media::TAG_UNK;
    const bool videoBefore = video != nullptr && video->_codecType != media::TAG_UNK;
    const int result = FillTrackInfo(*frame, audio, video);
    if (result != 0) return result;
    if (!audioBefore && audio != nullptr && audio->_codecType != media::TAG_UNK) firstAudio = frame->dtsCts;
    if (!videoBefore && video != nullptr && video->_codecType != media::TAG_UNK) firstVideo = frame->dtsCts;
  }
  for (auto& [track, first] : {std::make_pair(audio, firstAudio), std::make_pair(video, firstVideo)}) {
    if (track == nullptr) continue;
    track->_baseTimestamp = zeroBase ? media::timestamp_t(0, first.clockRate) : media::timestamp_t();
  }
  // Back to where the frames read here began: with no start, the beginning of the range (the
  // frames read here must be served too).
  const int back = startWallClock > 0 ? _reader->SeekToWallClock(startWallClock, _params.snapToIdr).second
                                      : _reader->Rewind();
  if (back != 0) LOGE << "<-# OperationProcessMedia::GetTracksInfo  FAILED! SeekToWallClock() FAILED!";
  return 0;
}

bool OperationProcessMedia::RelockLongLocks(ms::LockClosure& closure,
                                            std::chrono::steady_clock::time_point& lockedAt) {
  if (std::chrono::steady_clock::now() - lockedAt <= kLongLock) return true;
  closure.UnlockAll();
  usleep(10000);
  const bool locked = closure.LockAll();
  lockedAt = std::chrono::steady_clock::now();
  if (!locked) {
    LOGE << "<-# OperationProcessMedia::RelockLongLocks actionId=" << ActionId() << " FAILED! Unable to re-lock files.";
    return false;
  }
  LOGD << "    OperationProcessMedia::RelockLongLocks actionId=" << ActionId() << " Locks re-locked.";
  _reader->DropReadAhead();
  return true;
}

void OperationProcessMedia::ResetPass() {
  _eodSent = false;
  _sink = nullptr;
  media::codec_info_t::FreeInstance(_audioCodecInfo);
  media::codec_info_t::FreeInstance(_videoCodecInfo);
  _audioCodecInfo = nullptr;
  _videoCodecInfo = nullptr;
  _reverseFirstIndex = 0;
  _reverseIndex = 0;
  _inputFramesCount = 0;
  _outputFramesCount = 0;
  _fileChecksDuration = 0;
  _needMoreRetries = 0;
  _keyFramesPhase = true;
  _reverseRestartIndex = -1;
  _currentValidFrame = 0;
  _fmp4Progressive = false;
  _pauseOnlyVideo = false;
  _videoResumePending = false;
  _autoPauseWallClock = 0;
}

long OperationProcessMedia::FirstServedWallClock() const {
  const track_timestamps_info_t& leading = _params.skipVideo ? _audioTimestamps : _videoTimestamps;
  return leading.seen ? leading.start.wallClockMillis : -1;
}

void OperationProcessMedia::SetInfo(Napi::Object& object) {
  Napi::Env env = object.Env();
  object.Set("inputFramesCount", Napi::Number::New(env, static_cast<double>(_inputFramesCount)));
  object.Set("outputFramesCount", Napi::Number::New(env, static_cast<double>(_outputFramesCount)));
  Napi::Object timestamps = Napi::Object::New(env);
  if (_audioTimestamps.seen) timestamps.Set("audio", _audioTimestamps.ToJSObject(env));
  if (_videoTimestamps.seen) timestamps.Set("video", _videoTimestamps.ToJSObject(env));
  object.Set("timestampsInfo", timestamps);
  object.Set("fileChecksDurationMillis", Napi::Number::New(env, static_cast<double>(_fileChecksDuration)));
}

void OperationProcessMedia::GetOperationEndCallbackInfo(Napi::Object& info) { SetInfo(info); }

void OperationProcessMedia::GetOperationEndCallbackError(Napi::Object& error) {
  SetInfo(error);
  Napi::Array damaged = Napi::Array::New(error.Env(), _damagedFiles.size());
  for (size_t i = 0; i < _damagedFiles.size(); ++i) {
    damaged.Set(static_cast<uint32_t>(i), Napi::String::New(error.Env(), _damagedFiles[i]));
  }
  error.Set("damagedFilesPaths", damaged);
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
