// ProcessMediaParams: the parameter object of processMedia. The source, destination, range of
// bytes, `paused` and the three callbacks are read as for sendFile; the rest says what part of
// the recordings to serve, in what format and order, and how to filter and retime frames.
//
//   outputFormat       "vrx" (default), "mp4", "fmp4", "annexb", "avcc"; case does not matter
//   wallClockStart/End ms since the epoch, negative or absent: open
//   snapToIdr          "before" (default), "after", "closest": where a range start lands
//   idrFrequency       -N: every Nth key frame; +T: key frames at least T ms apart (no audio)
//   serveInReverse     "idr" (key frames only) or "gop" (groups, last first)
//   speedupFactor / forceFps, zeroBase, onlyKeyFrames, onlyNthFrame, enableKeyFrameFirst,
//   pauseAfterMs, sendEod, transportFormat ("", "binme", "http") and the fragmented MP4 knobs.
//
// Read on the main thread; every rule broken makes Read false, with a log line saying which.
#pragma once

#include <napi.h>

#include <string>

#include "common/send_file_params.h"
#include "media/timestamp.h"
#include "mediaformats/vrx/partition.h"

namespace vrex {
namespace nodejs {
namespace vidora {

enum serve_in_reverse_t { SERVE_IN_REVERSE_OFF = 0, SERVE_IN_REVERSE_IDR = 1, SERVE_IN_REVERSE_GOP = 2 };

class ProcessMediaParams : public common::SendFileParams {
 public:
  std::string outputFormat = "vrx";
  long wallClockStartMillis = -1;
  long wallClockEndMillis = -1;
  mediaformats::snap_to_idr_t snapToIdr = mediaformats::SNAP_TO_IDR_BEFORE;
  unsigned long idrFrequencyCounter = 0;
  long idrFrequencyTime = 0;
  bool skipAudio = false;
  bool skipVideo = false;
  serve_in_reverse_t serveInReverse = SERVE_IN_REVERSE_OFF;
  media::timestamp_t fragmentDuration{1000, 1000};
  bool fragmentOnKf = true;
  bool useWallClockForFMP4 = true;
  bool zeroBase = false;
  bool sendEod = false;
  bool extendedVideoMetadata = false;
  int32_t speedupFactor = 0;
  int32_t forceFps = 0;
  int32_t idrSkipCounter = 0;
  long idrSkipTimeThreshold = 0;
  long actionStart = 0;
  long actionId = 0;
  bool enableKeyFrameFirst = false;
  bool onlyKeyFrames = false;
  long everyNthFrame = -1;
  long seekDistanceMaxMs = -1;
  std::string transportFormat;
  long pauseAfterMs = 0;

  // True when this video frame is to be dropped by the key-frame filters (idrFrequency);
  // keeps their count and time threshold. Worker thread.
  bool MustSkipIDR(bool isKeyFrame, long wallClock);
  bool HasIdrFilter() const { return idrFrequencyCounter != 0 || idrFrequencyTime != 0; }
  // "ProcessMediaParams: " with the base's text and every field.
  std::string str() const;

 protected:
  bool ReadParameters(Napi::Object& parameters) override;

 private:
  bool ReadMediaParameters(Napi::Object& parameters);
};

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
