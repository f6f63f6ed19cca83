// TaskVRXFileEstimateSize.
#include "vrxutils/task_vrx_file_estimate_size.h"

#include "abstraction/logging.h"
#include "common/clock.h"
#include "common/property_reader.h"
#include "nodejs/errors.h"
#include "vrxutils/vrx_file_locks.h"

namespace vrex {
namespace nodejs {
namespace vrxutils {

namespace {

// statfs f_type of NFS, where the reader does without the optimisations of local files.
constexpr long kNfsMagic = 0x6969;
constexpr int kSamples = 10;

int CannotEstimate(int cause, const char* file, int line) {
  const int code = webrtcnodejs::ERR_NODEJS_INVALID_PARAMETERS;
  return cause < 0 ? errors::wrapError(code, cause, file, line) : errors::returnErrorWithTracking(code, file, line);
}

}  // namespace

bool TaskVRXFileEstimateSizeParams::ReadParameters(Napi::Object& parameters) {
  common::PropertyReader reader(parameters);
  reader.ReadInteger("wallClockEnd", &wallClockEnd);
  reader.ReadBoolean("getAvgKFrameSize", &getAvgKFrameSize);
  return reader.ReadStrings("srcFileNames", &srcFileNames) != nullptr &&
         reader.ReadInteger("wallClockStart", &wallClockStart) != nullptr;
}

TaskVRXFileEstimateSize::TaskVRXFileEstimateSize(Napi::Env& env, long id,
                                                 const TaskVRXFileEstimateSizeParams& params)
    : TaskWithParams(env, id, "vrxFileEstimateSize", "Serve", params) {}

int TaskVRXFileEstimateSize::SignalWork() {
  const int64_t start = common::GetTimestampMillis();
  int res = 0;
  if (_params.srcFileNames.empty()) {
    res = CannotEstimate(0, __FILE__, __LINE__);
  } else {
    std::vector<VrxFileLocks::file_t> files;
    for (const std::string& src : _params.srcFileNames) files.push_back({src, true, true});
    VrxFileLocks locks("TaskVRXFileEstimateSize");
    std::string failed;
    res = locks.Lock(files, false, failed);
    if (res < 0) {
      LOGE << "<-# TaskVRXFileEstimateSize::SignalWork FAILED! Could not lock " << failed << " err=" << res;
    } else {
      std::unique_ptr<mediaformats::ReaderVREX> reader = mediaformats::ReaderVREX::Create(
          nullptr, _params.srcFileNames, !locks.AnyOnFileSystem(kNfsMagic), 0, -1, res);
      if (reader) res = _params.getAvgKFrameSize ? EstimateKeyFrameSize(*reader) : EstimateRange(*reader);
    }
  }
  LOGI << "<-# TaskVRXFileEstimateSize::SignalWork " << _params.srcFileNames.size() << " files ["
       << _params.wallClockStart << ", " << _params.wallClockEnd << "] avg=" << _params.getAvgKFrameSize
       << " size=" << _estimatedSize << " res=" << res << " in " << common::GetTimestampMillis() - start << " ms";
  return res;
}

int TaskVRXFileEstimateSize::EstimateRange(mediaformats::ReaderVREX& reader) {
  int err = reader.SeekToWallClock(_params.wallClockStart, mediaformats::SNAP_TO_IDR_BEFORE).second;
  if (err < 0) return CannotEstimate(err, __FILE__, __LINE__);
  const long first = reader.GetCurrentRawOffset();
  if (_params.wallClockEnd < 1) {
    _estimatedSize = reader.GetAvailableDataSize();
    return 0;
  }
  err = reader.SeekToWallClock(_params.wallClockEnd, mediaformats::SNAP_TO_IDR_AFTER).second;
  if (err < 0) return CannotEstimate(err, __FILE__, __LINE__);
  _estimatedSize = reader.GetCurrentRawOffset() - first;
  return _estimatedSize < 1 ? CannotEstimate(0, __FILE__, __LINE__) : 0;
}

int TaskVRXFileEstimateSize::EstimateKeyFrameSize(mediaformats::ReaderVREX& reader) {
  if (_params.wallClockEnd <= _params.wallClockStart) return CannotEstimate(0, __FILE__, __LINE__);
  const long step = (_params.wallClockEnd - _params.wallClockStart) / kSamples;
  long sum = 0, samples = 0;
  for (int i = 0; i < kSamples; ++i) {
    int err = reader.SeekToWallClock(_params.wallClockStart + i * step, mediaformats::SNAP_TO_IDR_BEFORE).second;
    if (err < 0) return CannotEstimate(err, __FILE__, __LINE__);
    const media::frame_t* frame = reader.ReadFrame(err);
    if (frame == nullptr) break;
    sum += static_cast<long>(frame->size);
    ++samples;
  }
  if (samples == 0) return CannotEstimate(0, __FILE__, __LINE__);
  _estimatedSize = sum / samples;
  return 0;
}

void TaskVRXFileEstimateSize::GetCallbackParamInfo(Napi::Object& result) {
  result.Set("estimatedSize", Napi::Number::New(result.Env(), static_cast<double>(_estimatedSize)));
}

}  // namespace vrxutils
}  // namespace nodejs
}  // namespace vrex
