// H.265 NAL units as the parser returns them (ITU-T H.265 7.3 and E.2). Field names are the
// standard's; arrays are vectors sized by the counts read.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace HEVC {

enum NALUnitType : uint8_t {
  NAL_TRAIL_N = 0,
  NAL_TRAIL_R = 1,
  NAL_TSA_N = 2,
  NAL_TSA_R = 3,
  NAL_STSA_N = 4,
  NAL_STSA_R = 5,
  NAL_RADL_N = 6,
  NAL_RADL_R = 7,
  NAL_RASL_N = 8,
  NAL_RASL_R = 9,
  NAL_BLA_W_LP = 16,
  NAL_BLA_W_RADL = 17,
  NAL_BLA_N_LP = 18,
  NAL_IDR_W_RADL = 19,
  NAL_IDR_N_LP = 20,
  NAL_CRA_NUT = 21,
  NAL_IRAP_VCL23 = 23,
  NAL_VPS = 32,
  NAL_SPS = 33,
  NAL_PPS = 34,
  NAL_AUD = 35,
  NAL_EOS_NUT = 36,
  NAL_EOB_NUT = 37,
  NAL_FD_NUT = 38,
  NAL_SEI_PREFIX = 39,
  NAL_SEI_SUFFIX = 40,
};

const char* NalUnitTypeToString(unsigned type);
// BLA, IDR and CRA pictures (16 to 21) start decoding.
inline bool IsKeyFrame(unsigned type) { return type >= 16 && type <= 21; }

struct NALHeader {
  uint32_t type = 0;
  uint32_t layer_id = 0;
  uint32_t temporal_id_plus1 = 0;
};

class NALUnit {
 public:
  explicit NALUnit(const NALHeader& header) : m_nalHeader(header) {}
  virtual ~NALUnit() = default;
  uint32_t getType() const { return m_nalHeader.type; }
  virtual std::shared_ptr<NALUnit> copy() const = 0;

  NALHeader m_nalHeader;
};

struct ProfileTierLevel {
  uint32_t general_profile_space = 0;
  uint32_t general_tier_flag = 0;
  uint32_t general_profile_idc = 0;
  uint32_t general_profile_compatibility_flag[32] = {};
  uint32_t general_progressive_source_flag = 0;
  uint32_t general_interlaced_source_flag = 0;
  uint32_t general_non_packed_constraint_flag = 0;
  uint32_t general_frame_only_constraint_flag = 0;
  uint32_t general_level_idc = 0;
  std::vector<uint32_t> sub_layer_profile_present_flag;
  std::vector<uint32_t> sub_layer_level_present_flag;
  std::vector<uint32_t> sub_layer_profile_idc;
  std::vector<uint32_t> sub_layer_level_idc;
  void toDefault() { *this = ProfileTierLevel(); }
};

struct SubLayerHrdParameters {
  std::vector<uint32_t> bit_rate_value_minus1;
  std::vector<uint32_t> cpb_size_value_minus1;
  std::vector<uint32_t> cpb_size_du_value_minus1;
  std::vector<uint32_t> bit_rate_du_value_minus1;
  std::vector<uint32_t> cbr_flag;
  void toDefault() { *this = SubLayerHrdParameters(); }
};

struct HrdParameters {
  uint32_t nal_hrd_parameters_present_flag = 0;
  uint32_t vcl_hrd_parameters_present_flag = 0;
  uint32_t sub_pic_hrd_params_present_flag = 0;
  uint32_t tick_divisor_minus2 = 0;
  uint32_t du_cpb_removal_delay_increment_length_minus1 = 0;
  uint32_t sub_pic_cpb_params_in_pic_timing_sei_flag = 0;
  uint32_t dpb_output_delay_du_length_minus1 = 0;
  uint32_t bit_rate_scale = 0;
  uint32_t cpb_size_scale = 0;
  uint32_t cpb_size_du_scale = 0;
  uint32_t initial_cpb_removal_delay_length_minus1 = 0;
  uint32_t au_cpb_removal_delay_length_minus1 = 0;
  uint32_t dpb_output_delay_length_minus1 = 0;
  std::vector<uint32_t> fixed_pic_rate_general_flag;
  std::vector<uint32_t> fixed_pic_rate_within_cvs_flag;
  std::vector<uint32_t> elemental_duration_in_tc_minus1;
  std::vector<uint32_t> low_delay_hrd_flag;
  std::vector<uint32_t> cpb_cnt_minus1;
  std::vector<SubLayerHrdParameters> nal_sub_layer_hrd_parameters;
  std::vector<SubLayerHrdParameters> vcl_sub_layer_hrd_parameters;
  void toDefault() { *this = HrdParameters(); }
};

struct ShortTermRefPicSet {
  uint32_t inter_ref_pic_set_prediction_flag = 0;
  uint32_t delta_idx_minus1 = 0;
  uint32_t delta_rps_sign = 0;
  uint32_t abs_delta_rps_minus1 = 0;
  std::vector<uint32_t> used_by_curr_pic_flag;
  std::vector<uint32_t> use_delta_flag;
  uint32_t num_negative_pics = 0;
  uint32_t num_positive_pics = 0;
  std::vector<uint32_t> delta_poc_s0_minus1;
  std::vector<uint32_t> used_by_curr_pic_s0_flag;
  std::vector<uint32_t> delta_poc_s1_minus1;
  std::vector<uint32_t> used_by_curr_pic_s1_flag;
  uint32_t numDeltaPocs = 0;  // NumDeltaPocs of this set, which later sets predict from
  void toDefault() { *this = ShortTermRefPicSet(); }
};

struct ScalingListData {
  uint32_t scaling_list_pred_mode_flag[4][6] = {};
  uint32_t scaling_list_pred_matrix_id_delta[4][6] = {};
  int32_t scaling_list_dc_coef_minus8[4][6] = {};
  void toDefault() { *this = ScalingListData(); }
};

struct VuiParameters {
  uint32_t aspect_ratio_info_present_flag = 0;
  uint32_t aspect_ratio_idc = 0;
  uint32_t sar_width = 0;
  uint32_t sar_height = 0;
  uint32_t overscan_info_present_flag = 0;
  uint32_t overscan_appropriate_flag = 0;
  uint32_t video_signal_type_present_flag = 0;
  uint32_t video_format = 0;
  uint32_t video_full_range_flag = 0;
  uint32_t colour_description_present_flag = 0;
  uint32_t colour_primaries = 0;
  uint32_t transfer_characteristics = 0;
  uint32_t matrix_coeffs = 0;
  uint32_t chroma_loc_info_present_flag = 0;
  uint32_t chroma_sample_loc_type_top_field = 0;
  uint32_t chroma_sample_loc_type_bottom_field = 0;
  uint32_t neutral_chroma_indication_flag = 0;
  uint32_t field_seq_flag = 0;
  uint32_t frame_field_info_present_flag = 0;
  uint32_t default_display_window_flag = 0;
  uint32_t def_disp_win_left_offset = 0;
  uint32_t def_disp_win_right_offset = 0;
  uint32_t def_disp_win_top_offset = 0;
  uint32_t def_disp_win_bottom_offset = 0;
  uint32_t vui_timing_info_present_flag = 0;
  uint32_t vui_num_units_in_tick = 0;
  uint32_t vui_time_scale = 0;
  uint32_t vui_poc_proportional_to_timing_flag = 0;
  uint32_t vui_num_ticks_poc_diff_one_minus1 = 0;
  uint32_t vui_hrd_parameters_present_flag = 0;
  HrdParameters hrd_parameters;
  uint32_t bitstream_restriction_flag = 0;
  uint32_t tiles_fixed_structure_flag = 0;
  uint32_t motion_vectors_over_pic_boundaries_flag = 0;
  uint32_t restricted_ref_pic_lists_flag = 0;
  uint32_t min_spatial_segmentation_idc = 0;
  uint32_t max_bytes_per_pic_denom = 0;
  uint32_t max_bits_per_min_cu_denom = 0;
  uint32_t log2_max_mv_length_horizontal = 0;
  uint32_t log2_max_mv_length_vertical = 0;
  void toDefault() { *this = VuiParameters(); }
};

class VPS : public NALUnit {
 public:
  using NALUnit::NALUnit;
  std::shared_ptr<NALUnit> copy() const override { return std::make_shared<VPS>(*this); }

  uint32_t vps_video_parameter_set_id = 0;
  uint32_t vps_max_layers_minus1 = 0;
  uint32_t vps_max_sub_layers_minus1 = 0;
  uint32_t vps_temporal_id_nesting_flag = 0;
  ProfileTierLevel profile_tier_level;
  uint32_t vps_sub_layer_ordering_info_present_flag = 0;
  std::vector<uint32_t> vps_max_dec_pic_buffering_minus1;
  std::vector<uint32_t> vps_max_num_reorder_pics;
  std::vector<uint32_t> vps_max_latency_increase_plus1;
  uint32_t vps_max_layer_id = 0;
  uint32_t vps_num_layer_sets_minus1 = 0;
  uint32_t vps_timing_info_present_flag = 0;
  uint32_t vps_num_units_in_tick = 0;
  uint32_t vps_time_scale = 0;
  uint32_t vps_poc_proportional_to_timing_flag = 0;
  uint32_t vps_num_ticks_poc_diff_one_minus1 = 0;
  uint32_t vps_num_hrd_parameters = 0;
  std::vector<uint32_t> hrd_layer_set_idx;
  std::vector<uint32_t> cprms_present_flag;
  std::vector<HrdParameters> hrd_parameters;
  uint32_t vps_extension_flag = 0;
};

class SPS : public NALUnit {
 public:
  using NALUnit::NALUnit;
  std::shared_ptr<NALUnit> copy() const override { return std::make_shared<SPS>(*this); }

  uint32_t sps_video_parameter_set_id = 0;
  uint32_t sps_max_sub_layers_minus1 = 0;
  uint32_t sps_temporal_id_nesting_flag = 0;
  ProfileTierLevel profile_tier_level;
  uint32_t sps_seq_parameter_set_id = 0;
  uint32_t chroma_format_idc = 0;
  uint32_t separate_colour_plane_flag = 0;
  uint32_t pic_width_in_luma_samples = 0;
  uint32_t pic_height_in_luma_samples = 0;
  uint32_t conformance_window_flag = 0;
  uint32_t conf_win_left_offset = 0;
  uint32_t conf_win_right_offset = 0;
  uint32_t conf_win_top_offset = 0;
  uint32_t conf_win_bottom_offset = 0;
  uint32_t bit_depth_luma_minus8 = 0;
  uint32_t bit_depth_chroma_minus8 = 0;
  uint32_t log2_max_pic_order_cnt_lsb_minus4 = 0;
  uint32_t sps_sub_layer_ordering_info_present_flag = 0;
  std::vector<uint32_t> sps_max_dec_pic_buffering_minus1;
  std::vector<uint32_t> sps_max_num_reorder_pics;
  std::vector<uint32_t> sps_max_latency_increase_plus1;
  uint32_t log2_min_luma_coding_block_size_minus3 = 0;
  uint32_t log2_diff_max_min_luma_coding_block_size = 0;
  uint32_t log2_min_luma_transform_block_size_minus2 = 0;
  uint32_t log2_diff_max_min_luma_transform_block_size = 0;
  uint32_t max_transform_hierarchy_depth_inter = 0;
  uint32_t max_transform_hierarchy_depth_intra = 0;
  uint32_t scaling_list_enabled_flag = 0;
  uint32_t sps_scaling_list_data_present_flag = 0;
  ScalingListData scaling_list_data;
  uint32_t amp_enabled_flag = 0;
  uint32_t sample_adaptive_offset_enabled_flag = 0;
  uint32_t pcm_enabled_flag = 0;
  uint32_t pcm_sample_bit_depth_luma_minus1 = 0;
  uint32_t pcm_sample_bit_depth_chroma_minus1 = 0;
  uint32_t log2_min_pcm_luma_coding_block_size_minus3 = 0;
  uint32_t log2_diff_max_min_pcm_luma_coding_block_size = 0;
  uint32_t pcm_loop_filter_disabled_flag = 0;
  uint32_t num_short_term_ref_pic_sets = 0;
  std::vector<ShortTermRefPicSet> short_term_ref_pic_set;
  uint32_t long_term_ref_pics_present_flag = 0;
  uint32_t num_long_term_ref_pics_sps = 0;
  std::vector<uint32_t> lt_ref_pic_poc_lsb_sps;
  std::vector<uint32_t> used_by_curr_pic_lt_sps_flag;
  uint32_t sps_temporal_mvp_enabled_flag = 0;
  uint32_t strong_intra_smoothing_enabled_flag = 0;
  uint32_t vui_parameters_present_flag = 0;
  VuiParameters vui_parameters;
  uint32_t sps_extension_present_flag = 0;
};

class PPS : public NALUnit {
 public:
  using NALUnit::NALUnit;
  std::shared_ptr<NALUnit> copy() const override { return std::make_shared<PPS>(*this); }

  uint32_t pps_pic_parameter_set_id = 0;
  uint32_t pps_seq_parameter_set_id = 0;
  uint32_t dependent_slice_segments_enabled_flag = 0;
  uint32_t output_flag_present_flag = 0;
  uint32_t num_extra_slice_header_bits = 0;
  uint32_t sign_data_hiding_enabled_flag = 0;
  uint32_t cabac_init_present_flag = 0;
  uint32_t num_ref_idx_l0_default_active_minus1 = 0;
  uint32_t num_ref_idx_l1_default_active_minus1 = 0;
  int32_t init_qp_minus26 = 0;
  uint32_t constrained_intra_pred_flag = 0;
  uint32_t transform_skip_enabled_flag = 0;
  uint32_t cu_qp_delta_enabled_flag = 0;
  uint32_t diff_cu_qp_delta_depth = 0;
  int32_t pps_cb_qp_offset = 0;
  int32_t pps_cr_qp_offset = 0;
  uint32_t pps_slice_chroma_qp_offsets_present_flag = 0;
  uint32_t weighted_pred_flag = 0;
  uint32_t weighted_bipred_flag = 0;
  uint32_t transquant_bypass_enabled_flag = 0;
  uint32_t tiles_enabled_flag = 0;
  uint32_t entropy_coding_sync_enabled_flag = 0;
  uint32_t num_tile_columns_minus1 = 0;
  uint32_t num_tile_rows_minus1 = 0;
  uint32_t uniform_spacing_flag = 0;
  std::vector<uint32_t> column_width_minus1;
  std::vector<uint32_t> row_height_minus1;
  uint32_t loop_filter_across_tiles_enabled_flag = 0;
  uint32_t pps_loop_filter_across_slices_enabled_flag = 0;
  uint32_t deblocking_filter_control_present_flag = 0;
  uint32_t deblocking_filter_override_enabled_flag = 0;
  uint32_t pps_deblocking_filter_disabled_flag = 0;
  int32_t pps_beta_offset_div2 = 0;
  int32_t pps_tc_offset_div2 = 0;
  uint32_t pps_scaling_list_data_present_flag = 0;
  ScalingListData scaling_list_data;
  uint32_t lists_modification_present_flag = 0;
  uint32_t log2_parallel_merge_level_minus2 = 0;
  uint32_t slice_segment_header_extension_present_flag = 0;
  uint32_t pps_extension_present_flag = 0;
};

class AUD : public NALUnit {
 public:
  using NALUnit::NALUnit;
  std::shared_ptr<NALUnit> copy() const override { return std::make_shared<AUD>(*this); }
  uint32_t pic_type = 0;
};

// One SEI message: its type and size, and the payload bytes as they stood (emulation
// prevention removed). Payloads this system reads have a class of their own below.
class SeiMessage {
 public:
  virtual ~SeiMessage() = default;
  uint32_t payloadType = 0;
  uint32_t payloadSize = 0;
  std::vector<uint8_t> payload;
};

class RecoveryPoint : public SeiMessage {
 public:
  int32_t recovery_poc_cnt = 0;
  uint32_t exact_match_flag = 0;
  uint32_t broken_link_flag = 0;
};

class UserDataUnregistered : public SeiMessage {
 public:
  uint8_t uuid_iso_iec_11578[16] = {};
  std::vector<uint8_t> user_data_payload_byte;
};

class ActiveParameterSets : public SeiMessage {
 public:
  uint32_t active_video_parameter_set_id = 0;
  uint32_t self_contained_cvs_flag = 0;
  uint32_t no_parameter_set_update_flag = 0;
  uint32_t num_sps_ids_minus1 = 0;
  std::vector<uint32_t> active_seq_parameter_set_id;
};

class MasteringDisplayInfo : public SeiMessage {
 public:
  uint16_t display_primaries_x[3] = {};
  uint16_t display_primaries_y[3] = {};
  uint16_t white_point_x = 0;
  uint16_t white_point_y = 0;
  uint32_t max_display_mastering_luminance = 0;
  uint32_t min_display_mastering_luminance = 0;
};

class ContentLightLevelInfo : public SeiMessage {
 public:
  uint16_t max_content_light_level = 0;
  uint16_t max_pic_average_light_level = 0;
};

class SEI : public NALUnit {
 public:
  using NALUnit::NALUnit;
  std::shared_ptr<NALUnit> copy() const override { return std::make_shared<SEI>(*this); }
  std::vector<std::shared_ptr<SeiMessage>> sei_message;
};

}  // namespace HEVC
