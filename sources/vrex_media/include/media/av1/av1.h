// AV1 low-overhead OBU streams (AV1 bitstream specification 5.3 to 5.9): the OBU walk,
// sequence and frame headers, and the removal of temporal delimiters for MP4 samples.
// Field names are the specification's. The obp_* functions report failures as -1 with a
// text in OBPError; nothing here throws to its caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ms {
namespace media {
namespace av1 {

enum OBPOBUType {
  OBU_SEQUENCE_HEADER = 1,
  OBU_TEMPORAL_DELIMITER = 2,
  OBU_FRAME_HEADER = 3,
  OBU_TILE_GROUP = 4,
  OBU_METADATA = 5,
  OBU_FRAME = 6,
  OBU_REDUNDANT_FRAME_HEADER = 7,
  OBU_TILE_LIST = 8,
  OBU_PADDING = 15,
};

enum OBPFrameType {
  OBP_KEY_FRAME = 0,
  OBP_INTER_FRAME = 1,
  OBP_INTRA_ONLY_FRAME = 2,
  OBP_SWITCH_FRAME = 3
};

const char* OBUTypeToString(int type);
const char* OBUFrameTypeToString(int type);

// A caller-supplied text buffer for failure messages.
struct OBPError {
  char* error;
  size_t size;
};

struct OBPSequenceHeader {
  uint8_t seq_profile;
  uint8_t still_picture;
  uint8_t reduced_still_picture_header;
  uint8_t timing_info_present_flag;
  struct {
    uint32_t num_units_in_display_tick;
    uint32_t time_scale;
    uint8_t equal_picture_interval;
    uint32_t num_ticks_per_picture_minus_1;
  } timing_info;
  uint8_t decoder_model_info_present_flag;
  struct {
    uint8_t buffer_delay_length_minus_1;
    uint32_t num_units_in_decoding_tick;
    uint8_t buffer_removal_time_length_minus_1;
    uint8_t frame_presentation_time_length_minus_1;
  } decoder_model_info;
  uint8_t initial_display_delay_present_flag;
  uint8_t operating_points_cnt_minus_1;
  uint16_t operating_point_idc[32];
  uint8_t seq_level_idx[32];
  uint8_t seq_tier[32];
  uint8_t decoder_model_present_for_this_op[32];
  struct {
    uint64_t decoder_buffer_delay;
    uint64_t encoder_buffer_delay;
    uint8_t low_delay_mode_flag;
  } operating_parameters_info[32];
  uint8_t initial_display_delay_present_for_this_op[32];
  uint8_t initial_display_delay_minus_1[32];
  uint8_t frame_width_bits_minus_1;
  uint8_t frame_height_bits_minus_1;
  uint32_t max_frame_width_minus_1;
  uint32_t max_frame_height_minus_1;
  uint8_t frame_id_numbers_present_flag;
  uint8_t delta_frame_id_length_minus_2;
  uint8_t additional_frame_id_length_minus_1;
  uint8_t use_128x128_superblock;
  uint8_t enable_filter_intra;
  uint8_t enable_intra_edge_filter;
  uint8_t enable_interintra_compound;
  uint8_t enable_masked_compound;
  uint8_t enable_warped_motion;
  uint8_t enable_dual_filter;
  uint8_t enable_order_hint;
  uint8_t enable_jnt_comp;
  uint8_t enable_ref_frame_mvs;
  uint8_t seq_choose_screen_content_tools;
  uint8_t seq_force_screen_content_tools;
  uint8_t seq_choose_integer_mv;
  uint8_t seq_force_integer_mv;
  uint8_t order_hint_bits_minus_1;
  uint8_t OrderHintBits;
  uint8_t enable_superres;
  uint8_t enable_cdef;
  uint8_t enable_restoration;
  struct {
    uint8_t high_bitdepth;
    uint8_t twelve_bit;
    uint8_t BitDepth;
    uint8_t mono_chrome;
    uint8_t color_description_present_flag;
    uint8_t color_primaries;
    uint8_t transfer_characteristics;
    uint8_t matrix_coefficients;
    uint8_t color_range;
    uint8_t subsampling_x;
    uint8_t subsampling_y;
    uint8_t chroma_sample_position;
    uint8_t separate_uv_delta_q;
  } color_config;
  uint8_t film_grain_params_present;
};

// The uncompressed header through frame size, render size and allow_intrabc: what the
// codec information needs. Tile info, quantisation and the filters are not read.
struct OBPFrameHeader {
  uint8_t show_existing_frame;
  uint8_t frame_to_show_map_idx;
  uint32_t display_frame_id;
  uint8_t frame_type;
  uint8_t show_frame;
  uint8_t showable_frame;
  uint8_t error_resilient_mode;
  uint8_t disable_cdf_update;
  uint8_t allow_screen_content_tools;
  uint8_t force_integer_mv;
  uint32_t current_frame_id;
  uint8_t frame_size_override_flag;
  uint32_t order_hint;
  uint8_t primary_ref_frame;
  uint8_t buffer_removal_time_present_flag;
  uint32_t buffer_removal_time[32];
  uint8_t refresh_frame_flags;
  uint32_t ref_order_hint[8];
  uint8_t frame_refs_short_signaling;
  uint8_t last_frame_idx;
  uint8_t gold_frame_idx;
  uint8_t ref_frame_idx[7];
  uint32_t frame_width_minus_1;
  uint32_t frame_height_minus_1;
  uint8_t use_superres;
  uint8_t coded_denom;
  uint8_t render_and_frame_size_different;
  uint32_t render_width_minus_1;
  uint32_t render_height_minus_1;
  uint8_t allow_intrabc;
};

// What frame headers carry across frames: the sizes and types of the reference slots.
struct OBPState {
  uint32_t RefUpscaledWidth[8];
  uint32_t RefFrameHeight[8];
  uint32_t RefRenderWidth[8];
  uint32_t RefRenderHeight[8];
  uint8_t RefFrameType[8];
  uint8_t RefValid[8];
};

// Reads one OBU header at `buf`: its type, the header size (`offset`), the payload size and
// the layer ids.
int obp_get_next_obu(const uint8_t* buf, size_t buf_size, OBPOBUType* obu_type, ptrdiff_t* offset,
                     size_t* obu_size, int* temporal_id, int* spatial_id, OBPError* err);
int obp_parse_sequence_header(const uint8_t* buf, size_t buf_size, OBPSequenceHeader* seq_header,
                              OBPError* err);
int obp_parse_frame_header(const uint8_t* buf, size_t buf_size, const OBPSequenceHeader* seq_header,
                           OBPState* state, int temporal_id, int spatial_id,
                           OBPFrameHeader* frame_header, OBPError* err);

struct ParsedObu {
  OBPOBUType type;
  int temporal_id;
  int spatial_id;
  const uint8_t* pHeader;  // the OBU's first byte, in the caller's buffer
  size_t headerSize;
  const uint8_t* pPayload;
  size_t payloadSize;
};

// Walks the whole buffer. True at its end (an empty buffer gives true and no OBUs).
bool ParseObus(const uint8_t* buf, size_t size, std::vector<ParsedObu>& obus);

// The reusable parser of one temporal unit or key frame.
class State {
 public:
  State();
  // Walks the OBUs and parses each sequence header and frame header in order. False on an
  // empty buffer, a broken walk, or a header that does not parse (the text is in `error`).
  bool Parse(const uint8_t* buf, size_t size);
  // Clears the headers (not the reference state).
  void ClearHeaders();

  OBPState obpState;
  bool hasSequenceHeader = false;
  bool hasFrameHeader = false;
  OBPSequenceHeader sequenceHeader;
  OBPFrameHeader frameHeader;
  std::vector<ParsedObu> obus;
  char error[1024];
};

// Copies every OBU but temporal delimiters and empty ones to `out` (cleared first), headers
// included: sequence headers stay in the sample. False when the walk fails, `out` empty.
bool StripAV1(const uint8_t* buf, size_t size, std::vector<uint8_t>& out);

}  // namespace av1
}  // namespace media
}  // namespace ms
