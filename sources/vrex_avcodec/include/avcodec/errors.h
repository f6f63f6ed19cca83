// Error codes of module 13 (vrex::avcodec); their texts stand in errors.cc beside the module's sources.
#pragma once

#include "errors/errors.h"

namespace vrex {
namespace avcodec {

constexpr uint16_t kErrorModule = 13;

enum : int {
  ERR_AVCODEC_NOT_IMPLEMENTED = ::vrex::errors::MakeError(13, 1),  // "Functionality not yet implemented"
  ERR_AVCODEC_NULL_OBSERVER = ::vrex::errors::MakeError(13, 2),  // "The observer can not be NULL"
  ERR_AVCODEC_NO_ENCODER = ::vrex::errors::MakeError(13, 3),  // "libav does not have required encoding support compiled in"
  ERR_AVCODEC_NO_DECODER = ::vrex::errors::MakeError(13, 4),  // "libav does not have required decoding support compiled in"
  ERR_AVCODEC_ALLOC_CODEC_CONTEXT = ::vrex::errors::MakeError(13, 5),  // "Could not allocate libav codec context"
  ERR_AVCODEC_OPEN_CODEC = ::vrex::errors::MakeError(13, 6),  // "Could not open libav codec"
  ERR_AVCODEC_SEND_PACKET = ::vrex::errors::MakeError(13, 7),  // "libav avcodec_send_packet() failed"
  ERR_AVCODEC_SEND_FRAME = ::vrex::errors::MakeError(13, 8),  // "libav avcodec_send_frame() failed"
  ERR_AVCODEC_TIMESTAMPS_QUEUE_FULL = ::vrex::errors::MakeError(13, 9),  // "Timestamps queue grew too big"
  ERR_AVCODEC_TIMESTAMPS_QUEUE_EMPTY = ::vrex::errors::MakeError(13, 10),  // "Timestamps queue is empty"
  ERR_AVCODEC_RECEIVE_FRAME = ::vrex::errors::MakeError(13, 11),  // "libav avcodec_receive_frame() failed"
  ERR_AVCODEC_RECEIVE_PACKET = ::vrex::errors::MakeError(13, 12),  // "libav avcodec_receive_packet() failed"
  ERR_AVCODEC_INVALID_FRAME = ::vrex::errors::MakeError(13, 13),  // "Invalid frame provided"
  ERR_AVCODEC_ALLOC_RESCALE_CONTEXT = ::vrex::errors::MakeError(13, 14),  // "Unable to allocate software rescale context"
  ERR_AVCODEC_ALLOC_RESCALE_FRAME = ::vrex::errors::MakeError(13, 15),  // "Unable to allocate software rescale frame"
  ERR_AVCODEC_RESCALE = ::vrex::errors::MakeError(13, 16),  // "Unable to rescale frame"
  ERR_AVCODEC_NO_BSF = ::vrex::errors::MakeError(13, 17),  // "Annex-B to AVCC bits stream filter not available"
  ERR_AVCODEC_BSF_FAILED = ::vrex::errors::MakeError(13, 18),  // "Bits stream filter failed while processing data"
  ERR_AVCODEC_ALLOC_BSF = ::vrex::errors::MakeError(13, 19),  // "Could not allocate libav bits stream filter context"
  ERR_AVCODEC_INVALID_RESOLUTION = ::vrex::errors::MakeError(13, 20),  // "Invalid target resolution provided"
  ERR_AVCODEC_ENGINE_NOT_SUPPORTED = ::vrex::errors::MakeError(13, 21),  // "Requested engine not supported"
  ERR_AVCODEC_NO_STREAMS = ::vrex::errors::MakeError(13, 22),  // "No streams were added to the transcoder"
  ERR_AVCODEC_INVALID_RESCALING = ::vrex::errors::MakeError(13, 23),  // "Invalid rescaling settings"
  ERR_AVCODEC_NO_MOSAIC_CELLS = ::vrex::errors::MakeError(13, 24),  // "No cells provided for the mosaic"
  ERR_AVCODEC_INVALID_MOSAIC_CELL = ::vrex::errors::MakeError(13, 25),  // "Invalid mosaic cell index"
  ERR_AVCODEC_INVALID_GPU = ::vrex::errors::MakeError(13, 26),  // "Invalid GPU index"
  ERR_AVCODEC_CUDA_CALL = ::vrex::errors::MakeError(13, 27),  // "CUDA cu* call failed"
  ERR_AVCODEC_NVENC_CALL = ::vrex::errors::MakeError(13, 28),  // "NVENC nvEnc* call failed"
  ERR_AVCODEC_CUDA_NOT_INITIALIZED = ::vrex::errors::MakeError(13, 29),  // "CUDA not initialized"
  ERR_AVCODEC_INTERNAL_STATE = ::vrex::errors::MakeError(13, 30),  // "Internal state error"
  ERR_AVCODEC_NO_REMOTE_SESSION = ::vrex::errors::MakeError(13, 31),  // "No remote session provided"
  ERR_AVCODEC_INVALID_SESSION_ADDRESS = ::vrex::errors::MakeError(13, 32),  // "Invalid remoting session address"
  ERR_AVCODEC_SESSION_CLOSED = ::vrex::errors::MakeError(13, 33),  // "Remoting session closed"
  ERR_AVCODEC_SESSION_IO = ::vrex::errors::MakeError(13, 34),  // "Remoting session I/O error"
  ERR_AVCODEC_SESSION_INVALID_RESPONSE = ::vrex::errors::MakeError(13, 35),  // "Remoting session invalid response"
};

// Pulls this module's registration into the link. Returns 0.
int InitializeErrorCodes();

namespace internal {
const char* GetErrorDescription(uint16_t number);
}  // namespace internal

}  // namespace avcodec
}  // namespace vrex
