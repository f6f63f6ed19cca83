// Codec tags: 64-bit values holding ASCII, first letter in the top byte, zero padded. The
// first letter is the kind: 'V' video, 'A' audio, 'I' image, 'S' subtitle.
#pragma once

#include <cstdint>
#include <string>

namespace vrex {
namespace media {

constexpr uint64_t TAG_VH264 = 0x5648323634000000ull;
constexpr uint64_t TAG_VH265 = 0x5648323635000000ull;
constexpr uint64_t TAG_VAV1 = 0x5641563100000000ull;
constexpr uint64_t TAG_VVP6 = 0x5656503600000000ull;  // "vp8" and "vp9" alike
constexpr uint64_t TAG_VJPEG = 0x564A504547000000ull;
constexpr uint64_t TAG_APCMLE = 0x4150434D4C450000ull;
constexpr uint64_t TAG_AMP3 = 0x414D503300000000ull;
constexpr uint64_t TAG_AAAC = 0x4141414300000000ull;
constexpr uint64_t TAG_AG711A = 0x4147373131410000ull;
constexpr uint64_t TAG_AG711U = 0x4147373131550000ull;
constexpr uint64_t TAG_ASPEEX = 0x4153504545580000ull;
constexpr uint64_t TAG_AOPUS = 0x414F505553000000ull;
constexpr uint64_t TAG_AC3 = 0x4143330000000000ull;
constexpr uint64_t TAG_SSRT = 0x5353525400000000ull;
constexpr uint64_t TAG_SSUB = 0x5353554200000000ull;
constexpr uint64_t TAG_IJPEG = 0x494A504547000000ull;
constexpr uint64_t TAG_UNK = 0x554E4B0000000000ull;
constexpr uint64_t TAG_VUNK = 0x56554E4B00000000ull;  // a video codec not known here
constexpr uint64_t TAG_AUNK = 0x41554E4B00000000ull;  // an audio codec not known here

// The kind letter: 'V', 'A', 'I' or 'S', and 'U' for anything else.
char tagKind(uint64_t tag);
// "h264" -> TAG_VH264 and so on; exact and case sensitive; anything else is TAG_UNK.
uint64_t stringToTag(const std::string& name);
// TAG_VH264 -> "h264"; TAG_VVP6 -> "vp8"; anything not in the table -> "unknown".
const char* tagToCodecName(uint64_t tag);
// The tag's letters, top byte first, up to the first zero byte: TAG_VH264 -> "VH264".
std::string tagToString(uint64_t tag);

}  // namespace media
}  // namespace vrex
