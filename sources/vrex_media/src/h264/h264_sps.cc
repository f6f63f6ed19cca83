// H.264 SPS and VUI parsing (ITU-T H.264 7.3.2.1.1, E.1.1) and the cropped resolution.
#include <algorithm>
#include <iterator>

#include "abstraction/errors.h"
#include "abstraction/logging.h"
#include "h264_syntax.h"
#include "media/errors.h"
#include "media/h264/h264.h"

namespace ms {
namespace media {
namespace h264 {

using vrex::media::ERR_MEDIA_CODEC_PARAMETERS;

namespace {
constexpr uint64_t kMaxLog2Minus4 = 12;

int Fail(const char* what, int err) {
  LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! Cannot read " << what
       << " errorCode=" << err;
  return err;
}

// The profiles whose SPS carries chroma_format_idc and what belongs to it. 135 is left out
// on purpose.
bool HasChromaBlock(uint64_t profile) {
  static const uint64_t kProfiles[] = {44, 83, 86, 100, 110, 118, 122, 128, 134, 138, 139, 244};
  return std::find(std::begin(kProfiles), std::end(kProfiles), profile) != std::end(kProfiles);
}

int ParseChromaBlock(BitsReaderState& bits, sps_t& sps) {
  int err = bits.ReadUEG(sps.chroma_format_idc);
  if (err < 0) return Fail("chroma_format_idc", err);
  if (sps.chroma_format_idc == 3 && (err = bits.ReadBits(1, sps.separate_colour_plane_flag)) < 0)
    return Fail("separate_colour_plane_flag", err);
  if ((err = bits.ReadUEG(sps.bit_depth_luma_minus8)) < 0 ||
      (err = bits.ReadUEG(sps.bit_depth_chroma_minus8)) < 0 ||
      (err = bits.ReadBits(1, sps.qpprime_y_zero_transform_bypass_flag)) < 0 ||
      (err = bits.ReadBits(1, sps.seq_scaling_matrix_present_flag)) < 0)
    return Fail("bit_depth_luma_minus8 to seq_scaling_matrix_present_flag", err);
  if (sps.seq_scaling_matrix_present_flag)
    VREX_CHECK(SkipScalingLists(bits, sps.chroma_format_idc != 3 ? 8 : 12,
                                "codec_info_video_h264_t::ParseSPS", nullptr));
  return 0;
}

int ParsePicOrderCount(BitsReaderState& bits, sps_t& sps) {
  int err = 0;
  if (sps.pic_order_cnt_type == 0) {
    if ((err = bits.ReadUEG(sps.log2_max_pic_order_cnt_lsb_minus4)) < 0)
      return Fail("log2_max_pic_order_cnt_lsb_minus4", err);
    if (sps.log2_max_pic_order_cnt_lsb_minus4 > kMaxLog2Minus4) {
      LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! "
              "log2_max_pic_order_cnt_lsb_minus4 > kMaxLog2Minus4"
           << sps.log2_max_pic_order_cnt_lsb_minus4 << " > " << kMaxLog2Minus4;
      return VREX_ERROR(ERR_MEDIA_CODEC_PARAMETERS);
    }
  } else if (sps.pic_order_cnt_type == 1) {
    long nonRef = 0;
    long topToBottom = 0;
    if ((err = bits.ReadBits(1, sps.delta_pic_order_always_zero_flag)) < 0 ||
        (err = bits.ReadSEG(nonRef)) < 0 || (err = bits.ReadSEG(topToBottom)) < 0 ||
        (err = bits.ReadUEG(sps.num_ref_frames_in_pic_order_cnt_cycle)) < 0)
      return Fail("delta_pic_order_always_zero_flag to num_ref_frames_in_pic_order_cnt_cycle", err);
    sps.offset_for_non_ref_pic = nonRef;
    sps.offset_for_top_to_bottom_field = topToBottom;
    // Each value takes at least one bit: a count beyond the bits left fails on its own.
    for (uint64_t i = 0; i < sps.num_ref_frames_in_pic_order_cnt_cycle; ++i) {
      long ignored = 0;
      if ((err = bits.ReadSEG(ignored)) < 0) {
        LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! Cannot read offset_for_ref_frame["
             << i << "] errorCode=" << err;
        return err;
      }
    }
  }
  return 0;
}

int ParseCropping(BitsReaderState& bits, sps_t& sps) {
  int err = 0;
  if ((err = bits.ReadBits(1, sps.direct_8x8_inference_flag)) < 0 ||
      (err = bits.ReadBits(1, sps.frame_cropping_flag)) < 0)
    return Fail("direct_8x8_inference_flag or frame_cropping_flag", err);
  if (sps.frame_cropping_flag && ((err = bits.ReadUEG(sps.frame_crop_left_offset)) < 0 ||
                                  (err = bits.ReadUEG(sps.frame_crop_right_offset)) < 0 ||
                                  (err = bits.ReadUEG(sps.frame_crop_top_offset)) < 0 ||
                                  (err = bits.ReadUEG(sps.frame_crop_bottom_offset)) < 0))
    return Fail("frame_crop_{left, right, top, bottom}_offset", err);
  return 0;
}
}  // namespace

int ParseSPS(const uint8_t* nal, size_t size, sps_t& sps) {
  if (size < 1)
    return Fail("profile_idc to seq_parameter_set_id",
                VREX_ERROR(vrex::abstraction::ERR_ABSTRACTION_RANGE_NOT_AVAILABLE));
  BitsReaderState bits(nal + 1, size - 1);
  int err = 0;
  if ((err = bits.ReadBits(8, sps.profile_idc)) < 0 ||
      (err = bits.ReadBits(1, sps.constraint_set0_flag)) < 0 ||
      (err = bits.ReadBits(1, sps.constraint_set1_flag)) < 0 ||
      (err = bits.ReadBits(1, sps.constraint_set2_flag)) < 0 ||
      (err = bits.ReadBits(1, sps.constraint_set3_flag)) < 0 ||
      (err = bits.ReadBits(1, sps.constraint_set4_flag)) < 0 ||
      (err = bits.ReadBits(1, sps.constraint_set5_flag)) < 0 ||
      (err = bits.ReadBits(2, sps.reserved_zero_2bits)) < 0 ||
      (err = bits.ReadBits(8, sps.level_idc)) < 0 ||
      (err = bits.ReadUEG(sps.seq_parameter_set_id)) < 0)
    return Fail("profile_idc to seq_parameter_set_id", err);
  if (HasChromaBlock(sps.profile_idc)) VREX_CHECK(ParseChromaBlock(bits, sps));

  if ((err = bits.ReadUEG(sps.log2_max_frame_num_minus4)) < 0 ||
      (err = bits.ReadUEG(sps.pic_order_cnt_type)) < 0)
    return Fail("log2_max_frame_num_minus4 to pic_order_cnt_type", err);
  if (sps.log2_max_frame_num_minus4 > kMaxLog2Minus4) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! log2_max_frame_num_minus4 > "
            "kMaxLog2Minus4"
         << sps.log2_max_frame_num_minus4 << " > " << kMaxLog2Minus4;
    return VREX_ERROR(ERR_MEDIA_CODEC_PARAMETERS);
  }
  VREX_CHECK(ParsePicOrderCount(bits, sps));

  if ((err = bits.ReadUEG(sps.max_num_ref_frames)) < 0 ||
      (err = bits.ReadBits(1, sps.gaps_in_frame_num_value_allowed_flag)) < 0 ||
      (err = bits.ReadUEG(sps.pic_width_in_mbs_minus1)) < 0 ||
      (err = bits.ReadUEG(sps.pic_height_in_map_units_minus1)) < 0 ||
      (err = bits.ReadBits(1, sps.frame_mbs_only_flag)) < 0)
    return Fail("max_num_ref_frames to frame_mbs_only_flag", err);
  if (!sps.frame_mbs_only_flag && (err = bits.ReadBits(1, sps.mb_adaptive_frame_field_flag)) < 0)
    return Fail("mb_adaptive_frame_field_flag", err);
  VREX_CHECK(ParseCropping(bits, sps));
  if ((err = bits.ReadBits(1, sps.vui_parameters_present_flag)) < 0)
    return Fail("vui_parameters_present_flag", err);
  if (sps.vui_parameters_present_flag && (err = ParseSPSVUI(bits, sps.vui)) < 0) {
    LOGE << "<-# codec_info_video_h264_t::ParseSPS FAILED! ParseSPSVUI() FAILED! errorCode=" << err;
    return err;
  }
  sps.ComputeResolution();
  return 0;
}

int ParseSPSVUI(BitsReaderState& bits, sps_vui_t& vui) {
  constexpr uint64_t kExtendedSar = 255;
  VREX_CHECK(bits.ReadBits(1, vui.aspect_ratio_info_present_flag));
  if (vui.aspect_ratio_info_present_flag) {
    VREX_CHECK(bits.ReadBits(8, vui.aspect_ratio_idc));
    if (vui.aspect_ratio_idc == kExtendedSar) {
      VREX_CHECK(bits.ReadBits(16, vui.sar_width));
      VREX_CHECK(bits.ReadBits(16, vui.sar_height));
    }
  }
  VREX_CHECK(bits.ReadBits(1, vui.overscan_info_present_flag));
  if (vui.overscan_info_present_flag) VREX_CHECK(bits.ReadBits(1, vui.overscan_appropriate_flag));
  VREX_CHECK(bits.ReadBits(1, vui.video_signal_type_present_flag));
  if (vui.video_signal_type_present_flag) {
    VREX_CHECK(bits.ReadBits(3, vui.video_format));
    VREX_CHECK(bits.ReadBits(1, vui.video_full_range_flag));
    VREX_CHECK(bits.ReadBits(1, vui.colour_description_present_flag));
    if (vui.colour_description_present_flag) {
      VREX_CHECK(bits.ReadBits(8, vui.colour_primaries));
      VREX_CHECK(bits.ReadBits(8, vui.transfer_characteristics));
      VREX_CHECK(bits.ReadBits(8, vui.matrix_coefficients));
    }
  }
  VREX_CHECK(bits.ReadBits(1, vui.chroma_loc_info_present_flag));
  if (vui.chroma_loc_info_present_flag) {
    VREX_CHECK(bits.ReadUEG(vui.chroma_sample_loc_type_top_field));
    VREX_CHECK(bits.ReadUEG(vui.chroma_sample_loc_type_bottom_field));
  }
  VREX_CHECK(bits.ReadBits(1, vui.timing_info_present_flag));
  if (vui.timing_info_present_flag) {
    VREX_CHECK(bits.ReadBits(32, vui.num_units_in_tick));
    VREX_CHECK(bits.ReadBits(32, vui.time_scale));
    VREX_CHECK(bits.ReadBits(1, vui.fixed_frame_rate_flag));
  }
  return 0;
}

// Crop units by chroma format, kept as this system has always computed them: monochrome with
// frame_mbs_only_flag 1 uses 2x2 where the standard says 1x1.
void sps_t::ComputeResolution() {
  uint32_t cropUnitX = 1;
  uint32_t cropUnitY = 1;
  if (chroma_format_idc == 0 || chroma_format_idc == 1 || chroma_format_idc == 2) {
    if (!separate_colour_plane_flag) {
      cropUnitX = 2;
      cropUnitY = chroma_format_idc == 2   ? (frame_mbs_only_flag ? 1 : 2)
                  : chroma_format_idc == 1 ? (frame_mbs_only_flag ? 2 : 4)
                                           : 2;
    }
  } else if (chroma_format_idc == 3 && !frame_mbs_only_flag) {
    cropUnitY = 2;
  }
  uint32_t cropX = 0;
  uint32_t cropY = 0;
  if (frame_cropping_flag) {
    cropX = cropUnitX * static_cast<uint32_t>(frame_crop_left_offset + frame_crop_right_offset);
    cropY = cropUnitY * static_cast<uint32_t>(frame_crop_top_offset + frame_crop_bottom_offset);
  }
  width = static_cast<uint32_t>((static_cast<uint32_t>(pic_width_in_mbs_minus1) + 1) * 16 - cropX);
  height =
      static_cast<uint32_t>((2 - static_cast<uint32_t>(frame_mbs_only_flag)) *
                                (static_cast<uint32_t>(pic_height_in_map_units_minus1) + 1) * 16 -
                            cropY);
}

}  // namespace h264
}  // namespace media
}  // namespace ms
