// Reading the ffmpeg-made fixtures under test/fixtures/codecs and what ffmpeg/ffprobe said
// about them (see test/fixtures/make_codec_fixtures.sh).
#pragma once

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "media/codec_info.h"
#include "media/frame.h"

namespace codec_fixtures {

inline std::string Path(const std::string& name) {
  return std::string(VIDORA_FIXTURES_DIR) + "/codecs/" + name;
}

inline std::vector<uint8_t> ReadFile(const std::string& name) {
  std::ifstream in(Path(name), std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The key=value lines of <name>.txt.
inline std::map<std::string, std::string> Expectations(const std::string& name) {
  std::map<std::string, std::string> values;
  std::ifstream in(Path(name + ".txt"));
  std::string line;
  while (std::getline(in, line)) {
    const size_t eq = line.find('=');
    if (eq != std::string::npos) values[line.substr(0, eq)] = line.substr(eq + 1);
  }
  return values;
}

inline std::vector<uint8_t> FromHex(const std::string& hex) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

inline std::string ToHex(const uint8_t* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (size_t i = 0; i < size; ++i) {
    hex += kDigits[data[i] >> 4];
    hex += kDigits[data[i] & 15];
  }
  return hex;
}

// "pos:size pos:size ..." as the byte ranges of `file`.
inline std::vector<std::vector<uint8_t>> Slices(const std::vector<uint8_t>& file,
                                                const std::string& spans) {
  std::vector<std::vector<uint8_t>> slices;
  std::istringstream in(spans);
  std::string span;
  while (in >> span) {
    const size_t colon = span.find(':');
    const size_t pos = std::stoul(span.substr(0, colon));
    const size_t size = std::stoul(span.substr(colon + 1));
    slices.emplace_back(file.begin() + pos, file.begin() + pos + size);
  }
  return slices;
}

// "30000/1001" reduced; "25/1".
inline std::pair<uint64_t, uint64_t> Reduced(uint64_t num, uint64_t den) {
  uint64_t a = num, b = den;
  while (b != 0) {
    const uint64_t t = a % b;
    a = b;
    b = t;
  }
  return a == 0 ? std::make_pair(num, den) : std::make_pair(num / a, den / a);
}

inline std::pair<uint64_t, uint64_t> ParseRate(const std::string& rate) {
  const size_t slash = rate.find('/');
  return Reduced(std::stoull(rate.substr(0, slash)), std::stoull(rate.substr(slash + 1)));
}

// Feeds `parse` every prefix of `data` up to `limit` bytes, then `flips` copies with one
// random bit flipped (fixed seed): the parser must return, whatever it answers.
template <typename Parse>
void Damage(const std::vector<uint8_t>& data, size_t limit, int flips, Parse parse) {
  for (size_t size = 0; size <= data.size() && size <= limit; ++size) {
    std::vector<uint8_t> prefix(data.begin(), data.begin() + size);  // exact size for ASan
    parse(prefix);
  }
  std::mt19937 random(1234);
  for (int i = 0; i < flips; ++i) {
    std::vector<uint8_t> copy(data.begin(), data.begin() + std::min(limit, data.size()));
    if (copy.empty()) return;
    const size_t bit = random() % (copy.size() * 8);
    copy[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
    parse(copy);
  }
}

struct InfoDeleter {
  void operator()(vrex::media::codec_info_t* info) const {
    vrex::media::codec_info_t::FreeInstance(info);
  }
};
template <typename Info>
using InfoPtr = std::unique_ptr<Info, InfoDeleter>;

// Info::GetInstance of a key frame in memory, with `tag` and a 90 kHz clock.
template <typename Info>
InfoPtr<Info> FromKeyFrame(const std::vector<uint8_t>& key, uint64_t tag, int& error) {
  vrex::media::frame_t frame;
  frame.tag = tag;
  frame.keyFrame = true;
  frame.dtsCts.clockRate = 90000;
  frame.pData = key.data();
  frame.size = static_cast<int64_t>(key.size());
  return InfoPtr<Info>(Info::GetInstance(frame, error));
}

}  // namespace codec_fixtures
