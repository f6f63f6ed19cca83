// The error texts of module 13. Numbers and texts are fixed: other processes read them.
#include "avcodec/errors.h"

#include "errors/error_table.h"

namespace vrex {
namespace avcodec {

namespace internal {

const char* GetErrorDescription(uint16_t number) {
  static const char* const kTexts[] = {
    "OK",
    "Functionality not yet implemented",
    "The observer can not be NULL",
    "libav does not have required encoding support compiled in",
    "libav does not have required decoding support compiled in",
    "Could not allocate libav codec context",
    "Could not open libav codec",
    "libav avcodec_send_packet() failed",
    "libav avcodec_send_frame() failed",
    "Timestamps queue grew too big",
    "Timestamps queue is empty",
    "libav avcodec_receive_frame() failed",
    "libav avcodec_receive_packet() failed",
    "Invalid frame provided",
    "Unable to allocate software rescale context",
    "Unable to allocate software rescale frame",
    "Unable to rescale frame",
    "Annex-B to AVCC bits stream filter not available",
    "Bits stream filter failed while processing data",
    "Could not allocate libav bits stream filter context",
    "Invalid target resolution provided",
    "Requested engine not supported",
    "No streams were added to the transcoder",
    "Invalid rescaling settings",
    "No cells provided for the mosaic",
    "Invalid mosaic cell index",
    "Invalid GPU index",
    "CUDA cu* call failed",
    "NVENC nvEnc* call failed",
    "CUDA not initialized",
    "Internal state error",
    "No remote session provided",
    "Invalid remoting session address",
    "Remoting session closed",
    "Remoting session I/O error",
    "Remoting session invalid response",
    "unknown"};
  return ::vrex::errors::DescribeFromTable(kTexts, number);
}

}  // namespace internal

namespace {
::vrex::errors::InitErrors registration(13, internal::GetErrorDescription);
}  // namespace

int InitializeErrorCodes() { return 0; }

}  // namespace avcodec
}  // namespace vrex
