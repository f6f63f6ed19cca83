// Multi-line debug dumps of the H.264 parameter sets.
#include <sstream>

#include "media/h264/h264.h"

namespace ms {
namespace media {
namespace h264 {

namespace {
std::string Join(const std::vector<uint64_t>& values) {
  std::ostringstream out;
  for (size_t i = 0; i < values.size(); ++i) out << (i ? "," : "") << values[i];
  return out.str();
}
}  // namespace

std::string sps_vui_t::str() const {
  std::ostringstream o;
  o << "sps_vui: aspect_ratio_info_present_flag=" << aspect_ratio_info_present_flag
    << "\n  aspect_ratio_idc=" << aspect_ratio_idc << " sar=" << sar_width << ":" << sar_height
    << "\n  overscan_info_present_flag=" << overscan_info_present_flag
    << " overscan_appropriate_flag=" << overscan_appropriate_flag
    << "\n  video_signal_type_present_flag=" << video_signal_type_present_flag
    << " video_format=" << video_format << " video_full_range_flag=" << video_full_range_flag
    << "\n  colour_description_present_flag=" << colour_description_present_flag
    << " colour_primaries=" << colour_primaries
    << " transfer_characteristics=" << transfer_characteristics
    << " matrix_coefficients=" << matrix_coefficients
    << "\n  chroma_loc_info_present_flag=" << chroma_loc_info_present_flag
    << " top=" << chroma_sample_loc_type_top_field
    << " bottom=" << chroma_sample_loc_type_bottom_field
    << "\n  timing_info_present_flag=" << timing_info_present_flag
    << " num_units_in_tick=" << num_units_in_tick << " time_scale=" << time_scale
    << " fixed_frame_rate_flag=" << fixed_frame_rate_flag << "\n";
  return o.str();
}

std::string sps_t::str() const {
  std::ostringstream o;
  o << "sps: profile_idc=" << profile_idc << "\n  constraint_set_flags=" << constraint_set0_flag
    << constraint_set1_flag << constraint_set2_flag << constraint_set3_flag << constraint_set4_flag
    << constraint_set5_flag << " reserved_zero_2bits=" << reserved_zero_2bits
    << "\n  level_idc=" << level_idc << " seq_parameter_set_id=" << seq_parameter_set_id
    << "\n  chroma_format_idc=" << chroma_format_idc
    << " separate_colour_plane_flag=" << separate_colour_plane_flag
    << " bit_depth_luma_minus8=" << bit_depth_luma_minus8
    << " bit_depth_chroma_minus8=" << bit_depth_chroma_minus8
    << "\n  qpprime_y_zero_transform_bypass_flag=" << qpprime_y_zero_transform_bypass_flag
    << " seq_scaling_matrix_present_flag=" << seq_scaling_matrix_present_flag
    << "\n  log2_max_frame_num_minus4=" << log2_max_frame_num_minus4
    << " pic_order_cnt_type=" << pic_order_cnt_type
    << " log2_max_pic_order_cnt_lsb_minus4=" << log2_max_pic_order_cnt_lsb_minus4
    << "\n  delta_pic_order_always_zero_flag=" << delta_pic_order_always_zero_flag
    << " offset_for_non_ref_pic=" << offset_for_non_ref_pic
    << " offset_for_top_to_bottom_field=" << offset_for_top_to_bottom_field
    << " num_ref_frames_in_pic_order_cnt_cycle=" << num_ref_frames_in_pic_order_cnt_cycle
    << "\n  max_num_ref_frames=" << max_num_ref_frames
    << " gaps_in_frame_num_value_allowed_flag=" << gaps_in_frame_num_value_allowed_flag
    << "\n  pic_width_in_mbs_minus1=" << pic_width_in_mbs_minus1
    << " pic_height_in_map_units_minus1=" << pic_height_in_map_units_minus1
    << " frame_mbs_only_flag=" << frame_mbs_only_flag
    << " mb_adaptive_frame_field_flag=" << mb_adaptive_frame_field_flag
    << " direct_8x8_inference_flag=" << direct_8x8_inference_flag
    << "\n  frame_cropping_flag=" << frame_cropping_flag << " crop=" << frame_crop_left_offset
    << "," << frame_crop_right_offset << "," << frame_crop_top_offset << ","
    << frame_crop_bottom_offset << "\n  vui_parameters_present_flag=" << vui_parameters_present_flag
    << " width=" << width << " height=" << height << "\n";
  if (vui_parameters_present_flag) o << vui.str();
  return o.str();
}

std::string pps_t::str() const {
  std::ostringstream o;
  o << "pps:\n  pic_parameter_set_id=" << pic_parameter_set_id
    << " seq_parameter_set_id=" << seq_parameter_set_id
    << "\n  entropy_coding_mode_flag=" << entropy_coding_mode_flag
    << " bottom_field_pic_order_in_frame_present_flag="
    << bottom_field_pic_order_in_frame_present_flag
    << "\n  num_slice_groups_minus1=" << num_slice_groups_minus1
    << " slice_group_map_type=" << slice_group_map_type
    << " run_length_minus1=" << Join(run_length_minus1) << " top_left=" << Join(top_left)
    << " bottom_right=" << Join(bottom_right)
    << "\n  slice_group_change_direction_flag=" << slice_group_change_direction_flag
    << " slice_group_change_rate_minus1=" << slice_group_change_rate_minus1
    << " pic_size_in_map_units_minus1=" << pic_size_in_map_units_minus1
    << " slice_group_id=" << Join(slice_group_id)
    << "\n  num_ref_idx_l0_default_active_minus1=" << num_ref_idx_l0_default_active_minus1
    << " num_ref_idx_l1_default_active_minus1=" << num_ref_idx_l1_default_active_minus1
    << "\n  weighted_pred_flag=" << weighted_pred_flag
    << " weighted_bipred_idc=" << weighted_bipred_idc
    << "\n  pic_init_qp_minus26=" << pic_init_qp_minus26
    << " pic_init_qs_minus26=" << pic_init_qs_minus26
    << " chroma_qp_index_offset=" << chroma_qp_index_offset
    << "\n  deblocking_filter_control_present_flag=" << deblocking_filter_control_present_flag
    << " constrained_intra_pred_flag=" << constrained_intra_pred_flag
    << " redundant_pic_cnt_present_flag=" << redundant_pic_cnt_present_flag
    << "\n  transform_8x8_mode_flag=" << transform_8x8_mode_flag
    << " pic_scaling_matrix_present_flag=" << pic_scaling_matrix_present_flag
    << " pic_scaling_list_present_flag=" << Join(pic_scaling_list_present_flag)
    << "\n  second_chroma_qp_index_offset=" << second_chroma_qp_index_offset << "\n";
  return o.str();
}

}  // namespace h264
}  // namespace media
}  // namespace ms
