// OperationProcessMediaDirectExport: an MP4 or VRX of a closed range straight to a socket, with
// its exact length in a head before the body (an HTTP response, or "binme" frames), and no
// temporary file. The range is read twice: the first pass only counts the bytes the writer
// makes, the second streams them behind the head.
//
//   http:  "HTTP/1.1 200 OK\r\nContent-Type: <video/mp4 | application/octet-stream>\r\n
//          Cache-Control: no-cache, no-store, must-revalidate\r\nPragma: no-cache\r\nExpires: 0\r\n
//          x-accel-buffering: no\r\nx-start-timestamp: <ms>\r\nContent-Length: <n>\r\n
//          Connection: close\r\n\r\n" then the body
//   binme: 01 01 00 00 | length (4) | {"success":true,"timestamp":<ms>}
//          02 01 00 00 | length (4) | {"size":<n>}   then the body
//
// A failure in the first pass sends nothing, so the caller can still answer the request its own
// way; one in the second leaves a short body, which "Connection: close" makes visible. The
// progress stays 0 in the first pass.
#pragma once

#include <atomic>
#include <string>

#include "vidora/operation_process_media.h"

namespace vrex {
namespace nodejs {
namespace vidora {

class OperationProcessMediaDirectExport : public OperationProcessMedia {
 public:
  enum phase_t { PHASE_METADATA_GATHERING = 0, PHASE_NETWORK_STREAMING = 1 };
  enum transport_t { TRANSPORT_NONE = 0, TRANSPORT_BINME = 1, TRANSPORT_HTTP = 2 };

  OperationProcessMediaDirectExport(Napi::Env& env, long id, const ProcessMediaParams& params);

  bool WriteMP4Data(const unsigned char* data, size_t size) override;
  bool WriteVREXData(const mediaformats::WriterVREX::message_t& message) override;
  bool SeekIntoMP4Data(long offset, long whence) override;
  void WriteMP4Complete() override {}

 protected:
  int Init(const std::string& dstFile) override;
  int ProcessData(vrex::common::IOBuffer& buffer, int fd, unsigned long maxRead,
                  int& waitSeconds) override;
  int GetProgress() override;
  // Appends the head of the transport to the present buffer.
  virtual void GenerateHeader();

 private:
  int EndPass();
  // Counts `size` produced bytes; true when they are to go out (the second pass), after the
  // head once.
  bool Count(unsigned long size, long headAdjustment);

  std::atomic<int> _phase{PHASE_METADATA_GATHERING};
  const transport_t _format;
  unsigned long _mdatSize = 0;
  const bool _trace;
  long _gatherStart = 0;
  long _streamStart = 0;
  std::atomic<long> _totalStreamSize{0};  // bytes the writer made in this pass
  std::atomic<long> _totalGatherSize{0};  // the size of the body, known after the first pass
  bool _mustWriteHeader = true;
  const std::string _contentType;
};

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
