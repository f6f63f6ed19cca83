// H.264 parameter set syntax (ITU-T H.264 7.3.2.1 and 7.3.2.2, VUI from E.1.1): what the
// program keeps of an SPS and a PPS. Field names are the standard's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "media/bitsreaderstate.h"

namespace ms {
namespace media {
namespace h264 {

enum NALUnitType : uint8_t {
  NAL_UNSPECIFIED = 0,
  NAL_SLICE = 1,
  NAL_DPA = 2,
  NAL_DPB = 3,
  NAL_DPC = 4,
  NAL_IDR_SLICE = 5,
  NAL_SEI = 6,
  NAL_SPS = 7,
  NAL_PPS = 8,
  NAL_AUD = 9,
  NAL_END_SEQUENCE = 10,
  NAL_END_STREAM = 11,
  NAL_FILLER_DATA = 12,
  NAL_SPS_EXT = 13,
  NAL_PREFIX = 14,
  NAL_SUBSET_SPS = 15,
  NAL_DEPTH_SPS = 16,
};

// "Slice", "IDR Slice", "SPS"...; "Unknown" past 16.
const char* NalUnitTypeToString(unsigned type);
// Only an IDR slice starts a decodable sequence.
inline bool IsKeyFrame(unsigned type) { return type == NAL_IDR_SLICE; }

// VUI up to fixed_frame_rate_flag; HRD and bitstream restriction are never read.
struct sps_vui_t {
  uint64_t aspect_ratio_info_present_flag = 0;
  uint64_t aspect_ratio_idc = 0;
  uint64_t sar_width = 0;
  uint64_t sar_height = 0;
  uint64_t overscan_info_present_flag = 0;
  uint64_t overscan_appropriate_flag = 0;
  uint64_t video_signal_type_present_flag = 0;
  uint64_t video_format = 0;
  uint64_t video_full_range_flag = 0;
  uint64_t colour_description_present_flag = 0;
  uint64_t colour_primaries = 0;
  uint64_t transfer_characteristics = 0;
  uint64_t matrix_coefficients = 0;
  uint64_t chroma_loc_info_present_flag = 0;
  uint64_t chroma_sample_loc_type_top_field = 0;
  uint64_t chroma_sample_loc_type_bottom_field = 0;
  uint64_t timing_info_present_flag = 0;
  uint64_t num_units_in_tick = 0;
  uint64_t time_scale = 0;
  uint64_t fixed_frame_rate_flag = 0;

  std::string str() const;
};

struct sps_t {
  uint64_t profile_idc = 0;
  uint64_t constraint_set0_flag = 0;
  uint64_t constraint_set1_flag = 0;
  uint64_t constraint_set2_flag = 0;
  uint64_t constraint_set3_flag = 0;
  uint64_t constraint_set4_flag = 0;
  uint64_t constraint_set5_flag = 0;
  uint64_t reserved_zero_2bits = 0;
  uint64_t level_idc = 0;
  uint64_t seq_parameter_set_id = 0;
  uint64_t chroma_format_idc = 1;  // inferred 4:2:0 when absent
  uint64_t separate_colour_plane_flag = 0;
  uint64_t bit_depth_luma_minus8 = 0;
  uint64_t bit_depth_chroma_minus8 = 0;
  uint64_t qpprime_y_zero_transform_bypass_flag = 0;
  uint64_t seq_scaling_matrix_present_flag = 0;
  uint64_t log2_max_frame_num_minus4 = 0;
  uint64_t pic_order_cnt_type = 0;
  uint64_t log2_max_pic_order_cnt_lsb_minus4 = 0;
  uint64_t delta_pic_order_always_zero_flag = 0;
  int64_t offset_for_non_ref_pic = 0;
  int64_t offset_for_top_to_bottom_field = 0;
  uint64_t num_ref_frames_in_pic_order_cnt_cycle = 0;
  uint64_t max_num_ref_frames = 0;
  uint64_t gaps_in_frame_num_value_allowed_flag = 0;
  uint64_t pic_width_in_mbs_minus1 = 0;
  uint64_t pic_height_in_map_units_minus1 = 0;
  uint64_t frame_mbs_only_flag = 0;
  uint64_t mb_adaptive_frame_field_flag = 0;
  uint64_t direct_8x8_inference_flag = 0;
  uint64_t frame_cropping_flag = 0;
  uint64_t frame_crop_left_offset = 0;
  uint64_t frame_crop_right_offset = 0;
  uint64_t frame_crop_top_offset = 0;
  uint64_t frame_crop_bottom_offset = 0;
  uint64_t vui_parameters_present_flag = 0;
  sps_vui_t vui;
  bool debug = false;
  uint64_t width = 0;  // computed by ComputeResolution
  uint64_t height = 0;

  // Cropped picture size from the macroblock counts and crop offsets.
  void ComputeResolution();
  std::string str() const;
};

struct pps_t {
  uint64_t pic_parameter_set_id = 0;
  uint64_t seq_parameter_set_id = 0;
  uint64_t entropy_coding_mode_flag = 0;
  uint64_t bottom_field_pic_order_in_frame_present_flag = 0;
  uint64_t num_slice_groups_minus1 = 0;
  uint64_t slice_group_map_type = 0;
  std::vector<uint64_t> run_length_minus1;
  std::vector<uint64_t> top_left;
  std::vector<uint64_t> bottom_right;
  uint64_t slice_group_change_direction_flag = 0;
  uint64_t slice_group_change_rate_minus1 = 0;
  uint64_t pic_size_in_map_units_minus1 = 0;
  std::vector<uint64_t> slice_group_id;
  uint64_t num_ref_idx_l0_default_active_minus1 = 0;
  uint64_t num_ref_idx_l1_default_active_minus1 = 0;
  uint64_t weighted_pred_flag = 0;
  uint64_t weighted_bipred_idc = 0;
  int64_t pic_init_qp_minus26 = 0;
  int64_t pic_init_qs_minus26 = 0;
  int64_t chroma_qp_index_offset = 0;
  uint64_t deblocking_filter_control_present_flag = 0;
  uint64_t constrained_intra_pred_flag = 0;
  uint64_t redundant_pic_cnt_present_flag = 0;
  uint64_t transform_8x8_mode_flag = 0;
  uint64_t pic_scaling_matrix_present_flag = 0;
  std::vector<uint64_t> pic_scaling_list_present_flag;
  int64_t second_chroma_qp_index_offset = 0;

  std::string str() const;
};

// Parses an SPS NAL unit (`nal` at the header byte, emulation prevention already removed).
// Returns 0, ERR_MEDIA_CODEC_PARAMETERS for values out of the standard's range, or the bit
// reader's code when the unit ends early.
int ParseSPS(const uint8_t* nal, size_t size, sps_t& sps);
int ParseSPSVUI(BitsReaderState& bits, sps_vui_t& vui);
// Parses a PPS NAL unit; `chromaFormatIdc` is that of the SPS it refers to (it sizes the
// scaling lists).
int ParsePPS(const uint8_t* nal, size_t size, uint64_t chromaFormatIdc, pps_t& pps);

// Removes emulation prevention in place: each 00 00 03 loses its 03. Returns the new size.
size_t StripEmulationPrevention(uint8_t* data, size_t size);

}  // namespace h264
}  // namespace media
}  // namespace ms
