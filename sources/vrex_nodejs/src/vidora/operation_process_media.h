// OperationProcessMedia: processMedia, a wall-clock range of recordings served as VRX, MP4,
// fragmented MP4 or raw H.264 to a file, a socket or a JavaScript drain.
//
// Init takes the sources' locks (shared; the destination file's exclusive), opens the reader
// (".vrx" by the first source's name, anything else as MP4), creates the writer, and places
// the reader at the range's start, or builds the seek-point index of a reverse read. Then each
// ProcessData takes the locks, reads frames until one is written (forward, key frames
// backward, or groups backward), filters and retimes them, and releases the locks, so that an
// appender of the same files waits at most one frame (and a long read gives way every 5 s).
// An open-ended read of a growing recording waits 3 s for more data, at most ten times in a
// row.
//
// Threads: the worker runs all of it; PauseOnlyVideo and ChangeVideoSendingStyle come from the
// main thread and are picked up at the next frame.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "common/base_operation.h"
#include "common/iobuffer.h"
#include "media/codec_info.h"
#include "mediaformats/base_writer.h"
#include "mediaformats/mp4/mp4_track_info.h"
#include "mediaformats/mp4/reader_mp4.h"
#include "mediaformats/mp4/writer_fmp4.h"
#include "mediaformats/mp4/writer_mp4.h"
#include "mediaformats/raw/writer_raw_h264.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/writer_vrex.h"
#include "mscommon/lock_closure.h"
#include "vidora/media_reader.h"
#include "vidora/process_media_params.h"
#include "vidora/track_timestamps.h"

namespace vrex {
namespace nodejs {
namespace vidora {

class OperationProcessMedia : public common::BaseOperation,
                              public mediaformats::ReaderVREX::Observer,
                              public mediaformats::ReaderMp4::Observer,
                              public mediaformats::WriterVREX::Observer,
                              public mediaformats::WriterFMP4::Observer,
                              public mediaformats::WriterMP4::Observer,
                              public mediaformats::WriterRawH264::Observer {
 public:
  // The buffer limits of the three kinds of destination.
  static constexpr unsigned long kNetworkBufferSize = 65536;
  static constexpr unsigned long kDrainBufferSize = 16777216;
  static constexpr unsigned long kFileBufferSize = 65536;

  OperationProcessMedia(Napi::Env& env, long id, const ProcessMediaParams& params);
  ~OperationProcessMedia() override;

  void ResumeAutoPause(long ms) override;
  int PauseOnlyVideo(bool pause) override;
  int ChangeVideoSendingStyle(bool onlyKeyFrames, long everyNthFrame) override;

  // The writers' observers: their bytes go to the present ProcessData's buffer, except the
  // MP4 writer's, which go straight to the destination file (it seeks back to patch).
  bool WriteVREXData(const mediaformats::WriterVREX::message_t& message) override;
  bool WriteH264Data(const void* data, size_t size) override;
  bool WriteMP4Data(const unsigned char* data, size_t size) override;
  bool SeekIntoMP4Data(long offset, long whence) override;
  void WriteMP4Complete() override;
  bool SignalBeginWriteMOOV() override;
  bool SignalEndWriteMOOV(unsigned int offset, bool last) override;
  bool SignalBeginWriteFragment(long startMs) override;
  bool SignalEndWriteFragment(long endMs) override;
  bool SignalWriteProgressiveBuffer(mediaformats::FMP4ProgressiveBufferType type, const void* data,
                                    size_t size) override;
  bool SignalWriteBuffer(mediaformats::FMP4WriteState state, const void* data, size_t size) override;

 protected:
  int Init(const std::string& dstFile) override;
  bool IsLowPriority() override { return false; }
  void GetOperationStartCallbackInfo(Napi::Object&) override {}
  // inputFramesCount, outputFramesCount, timestampsInfo, fileChecksDurationMillis.
  void GetOperationEndCallbackInfo(Napi::Object& info) override;
  // The same, and damagedFilesPaths.
  void GetOperationEndCallbackError(Napi::Object& error) override;
  int ProcessData(vrex::common::IOBuffer& buffer, int fd, unsigned long maxRead,
                  int& waitSeconds) override;
  // Closes the sources and the lock descriptors on the worker: closing the last descriptor of
  // a recording deleted meanwhile frees its blocks, which must not hold up the event loop.
  void SignalThreadCleanup() override;

  int InitLocks(const std::string& dstFile);
  int InitReader();
  int InitWriter();
  int CloseWriter(vrex::common::IOBuffer& buffer);
  int PositionReader(long start, long end);
  int ReadForward(vrex::common::IOBuffer& buffer, unsigned long minBytes, bool enableKeyFrameFirst);
  // The wall clock of the first frame served on the track that leads (video, or audio when
  // video is skipped); -1 when none was.
  long FirstServedWallClock() const;
  // Clears what a pass over the range leaves behind, so that another pass starts afresh.
  void ResetPass();
  void AppendToSink(const void* data, size_t size);
  bool FlushMP4Data();
  bool WriteMP4Bytes(const unsigned char* data, size_t size);

  ProcessMediaParams _params;
  std::unique_ptr<MediaReader> _reader;
  std::unique_ptr<mediaformats::BaseWriter> _writer;
  vrex::common::IOBuffer* _sink = nullptr;  // the buffer of the present ProcessData
  int _destFd = -1;                          // the destination file of the present ProcessData
  std::vector<unsigned char> _mp4Pending;    // MP4 bytes not yet written to _destFd
  static constexpr size_t kMp4WriteBlock = 1 << 20;
  std::vector<ms::CombinedLock> _locks;
  bool _keyFramesPhase = true;

 private:
  enum read_step_t { STEP_SERVE, STEP_DROP };

  int PositionReaderServeDirection(long start, long end);
  int ComputeReversePlaybackSeekPoints(long start, long end);
  int GetTracksInfo(long startWallClock, mediaformats::MP4TrackInfo* audio,
                    mediaformats::MP4TrackInfo* video, bool zeroBase, bool reverseGop);
  int FillTrackInfo(const media::frame_t& frame, mediaformats::MP4TrackInfo* audio,
                    mediaformats::MP4TrackInfo* video);
  bool RelockLongLocks(ms::LockClosure& closure,
                       std::chrono::steady_clock::time_point& lockedAt);
  int ReInitWriter();
  int CreateMp4FamilyWriter(long startWallClock, const std::string& name);
  bool BeginLockedRead(const ms::LockClosure& closure, const char* pass);
  int ReadIDRBackward(vrex::common::IOBuffer& buffer, unsigned long minBytes);
  int ReadGOPBackward(vrex::common::IOBuffer& buffer, unsigned long minBytes, bool enableKeyFrameFirst);
  // The frame filters of a forward read, in order; STEP_DROP passes the frame over.
  read_step_t FilterForward(const media::frame_t& frame, long wallClock);
  read_step_t FilterVideoStyle(const media::frame_t& frame);
  int RestartKeyFramesPhase();
  int ReadPayload(const media::frame_t& frame);
  // Writes the present frame (its clock sync first for a key video frame) and counts it.
  int WriteFrame(const media::frame_t& frame, const media::dts_cts_t& ts, long wallClock);
  const media::dts_cts_t& Retimed(const media::frame_t& frame);
  void SetInfo(Napi::Object& object);
  void MoveInto(vrex::common::IOBuffer& completed, vrex::common::IOBuffer& building, unsigned offset);

  bool _sourceIsMp4 = false;
  bool _eodSent = false;
  vrex::common::IOBuffer _frameBuffer;
  media::codec_info_t* _videoCodecInfo = nullptr;
  media::codec_info_t* _audioCodecInfo = nullptr;
  std::vector<mediaformats::seek_point_t> _seekPoints;
  long _reverseFirstIndex = 0;
  long _reverseIndex = 0;
  uint64_t _inputFramesCount = 0;
  uint64_t _outputFramesCount = 0;
  bool _fmp4Progressive = false;
  vrex::common::IOBuffer _moovBuilding;
  vrex::common::IOBuffer _moovCompleted;
  vrex::common::IOBuffer _fragmentBuilding;
  vrex::common::IOBuffer _fragmentCompleted;
  vrex::common::IOBuffer _progressiveUnit;
  track_timestamps_info_t _audioTimestamps;
  track_timestamps_info_t _videoTimestamps;
  std::vector<std::string> _damagedFiles;  // nothing adds to it
  long _fileChecksDuration = 0;
  bool _useLocalFsOptimisations = true;
  int _needMoreRetries = 0;
  long _reverseRestartIndex = -1;
  long _currentValidFrame = 0;
  // Set from the main thread, read by the worker at each frame.
  std::atomic<bool> _pauseOnlyVideo{false};
  std::atomic<bool> _videoResumePending{false};
  std::atomic<bool> _onlyKeyFrames;
  std::atomic<long> _everyNthFrame;
  // Negative: armed, the first frame fixes the point; 0: off; above 0: pause past it.
  std::atomic<long> _autoPauseWallClock;
  const bool _trace;
  long _lastWallClock = -1;
  int _codecChangeCount = 0;
};

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
