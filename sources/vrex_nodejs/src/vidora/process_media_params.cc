// ProcessMediaParams: reading and checking the parameters, and the key-frame filter.
#include "vidora/process_media_params.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "abstraction/logging.h"
#include "common/property_reader.h"

namespace vrex {
namespace nodejs {
namespace vidora {

using common::PropertyReader;

namespace {

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Lower case, blanks at both ends cut.
std::string Normalized(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "";
  const size_t last = text.find_last_not_of(" \t\r\n");
  return Lowered(text.substr(first, last - first + 1));
}

mediaformats::snap_to_idr_t SnapToIdr(const std::string& text) {
  const std::string value = Normalized(text);
  if (value == "after") return mediaformats::SNAP_TO_IDR_AFTER;
  if (value == "closest") return mediaformats::SNAP_TO_IDR_CLOSEST;
  return mediaformats::SNAP_TO_IDR_BEFORE;
}

serve_in_reverse_t ServeInReverse(const std::string& text) {
  const std::string value = Normalized(text);
  if (value == "idr") return SERVE_IN_REVERSE_IDR;
  if (value == "gop") return SERVE_IN_REVERSE_GOP;
  return SERVE_IN_REVERSE_OFF;
}

}  // namespace

bool ProcessMediaParams::ReadParameters(Napi::Object& parameters) {
  if (!SendFileParams::ReadParameters(parameters)) return false;
  if (!ReadMediaParameters(parameters)) return false;
  LOGI << str();
  return true;
}

bool ProcessMediaParams::ReadMediaParameters(Napi::Object& parameters) {
  PropertyReader reader(parameters);
  std::string text;
  if (reader.ReadString("outputFormat", &text) == nullptr || text.empty()) text = "VRX";
  outputFormat = Lowered(text);
  reader.ReadString("transportFormat", &transportFormat);
  if (!transportFormat.empty() && transportFormat != "binme" && transportFormat != "http") {
    LOGE << "ProcessMediaParams::ReadParameters FAILED! Invalid transport format [" << transportFormat << "]";
    return false;
  }
  reader.ReadInteger("wallClockStart", &wallClockStartMillis);
  reader.ReadInteger("wallClockEnd", &wallClockEndMillis);
  if (reader.ReadString("snapToIdr", &text) != nullptr) snapToIdr = SnapToIdr(text);
  reader.ReadBoolean("skipAudio", &skipAudio);
  reader.ReadBoolean("skipVideo", &skipVideo);
  reader.ReadInteger("forceFps", &forceFps);
  reader.ReadInteger("speedupFactor", &speedupFactor);
  if (forceFps != 0 && speedupFactor != 0) {
    LOGE << "ProcessMediaParams::ReadParameters Wrong forceFps/speedupFactor settings";
    return false;
  }
  reader.ReadInteger("actionStart", &actionStart);
  reader.ReadInteger("actionId", &actionId);
  if (speedupFactor != 0 || forceFps != 0 || outputFormat == "avcc" || outputFormat == "annexb") {
    skipAudio = true;
  }
  if (reader.ReadString("serveInReverse", &text) != nullptr) serveInReverse = ServeInReverse(text);
  if (serveInReverse != SERVE_IN_REVERSE_OFF && (speedupFactor != 0 || forceFps != 0)) {
    LOGE << "ProcessMediaParams::ReadParameters Wrong forceFps/speedupFactor/serveInReverse settings";
    return false;
  }
  long idrFrequency = 0;
  if (reader.ReadInteger("idrFrequency", &idrFrequency) != nullptr) {
    idrFrequencyCounter = idrFrequency < 0 ? static_cast<unsigned long>(-idrFrequency) : 0;
    idrFrequencyTime = idrFrequency > 0 ? idrFrequency : 0;
    if (idrFrequency != 0) skipAudio = true;
  } else if (serveInReverse == SERVE_IN_REVERSE_IDR) {
    idrFrequencyCounter = 1;
    idrFrequencyTime = 0;
    skipAudio = true;
  }
  if (skipAudio && skipVideo) {
    LOGE << "ProcessMediaParams::ReadParameters Cannot skip both audio and video";
    return false;
  }
  long fragmentMillis = fragmentDuration.value;
  if (reader.ReadInteger("fragmentDurationMillis", &fragmentMillis) != nullptr) {
    fragmentDuration = media::timestamp_t(fragmentMillis, 1000);
  }
  reader.ReadBoolean("fragmentOnKf", &fragmentOnKf);
  reader.ReadBoolean("useWallClockForFMP4", &useWallClockForFMP4);
  reader.ReadBoolean("zeroBase", &zeroBase);
  reader.ReadBoolean("sendEod", &sendEod);
  reader.ReadBoolean("extendedVideoMetadata", &extendedVideoMetadata);
  reader.ReadBoolean("enableKeyFrameFirst", &enableKeyFrameFirst);
  reader.ReadBoolean("onlyKeyFrames", &onlyKeyFrames);
  reader.ReadInteger("onlyNthFrame", &everyNthFrame);
  if (wallClockStartMillis >= 0 && wallClockEndMillis >= 0 && wallClockStartMillis > wallClockEndMillis) {
    LOGE << "ProcessMediaParams::ReadParameters Wrong wall clock start/end";
    return false;
  }
  reader.ReadInteger("seekDistanceMaxMs", &seekDistanceMaxMs);
  reader.ReadInteger("pauseAfterMs", &pauseAfterMs);
  return true;
}

bool ProcessMediaParams::MustSkipIDR(bool isKeyFrame, long wallClock) {
  if (idrFrequencyCounter != 0) {
    if (!isKeyFrame) return true;
    const uint16_t counter = static_cast<uint16_t>(idrSkipCounter + 1);
    idrSkipCounter = counter == static_cast<uint16_t>(idrFrequencyCounter) ? 0 : counter;
    return counter != 1;
  }
  if (idrFrequencyTime == 0) return false;
  if (!isKeyFrame) return true;
  switch (serveInReverse) {
    case SERVE_IN_REVERSE_IDR:
      if (idrSkipTimeThreshold != 0 && idrSkipTimeThreshold < wallClock) return true;
      idrSkipTimeThreshold = wallClock - idrFrequencyTime;
      return false;
    case SERVE_IN_REVERSE_GOP:
      return false;
    default:
      if (idrSkipTimeThreshold != 0 && idrSkipTimeThreshold > wallClock) return true;
      idrSkipTimeThreshold = wallClock + idrFrequencyTime;
      return false;
  }
}

std::string ProcessMediaParams::str() const {
  std::ostringstream out;
  out << "ProcessMediaParams: " << SendFileParams::str() << " outputFormat=" << outputFormat
      << " wallClockStartMillis=" << wallClockStartMillis
      << " wallClockEndMillis=" << wallClockEndMillis << " snapToIdr=" << snapToIdr
      << " idrFrequencyCounter=" << idrFrequencyCounter << " idrFrequencyTime=" << idrFrequencyTime
      << " skipAudio=" << skipAudio << " skipVideo=" << skipVideo
      << " serveInReverse=" << serveInReverse << " fragmentOnKf=" << fragmentOnKf
      << " useWallClockForFMP4=" << useWallClockForFMP4 << " zeroBase=" << zeroBase
      << " sendEod=" << sendEod << " extendedVideoMetadata=" << extendedVideoMetadata
      << " speedupFactor=" << speedupFactor << " forceFps=" << forceFps
      << " idrSkipCounter=" << idrSkipCounter << " idrSkipTimeThreshold=" << idrSkipTimeThreshold
      << " actionStart=" << actionStart << " actionId=" << actionId
      << " enableKeyFrameFirst=" << enableKeyFrameFirst << " onlyKeyFrames=" << onlyKeyFrames
      << " everyNthFrame=" << everyNthFrame << " seekDistanceMaxMs=" << seekDistanceMaxMs
      << " transportFormat=" << transportFormat;
  return out.str();
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
