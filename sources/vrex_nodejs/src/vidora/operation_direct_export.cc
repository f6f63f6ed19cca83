// OperationProcessMediaDirectExport: the two passes, the counting sinks and the heads.
#include "vidora/operation_direct_export.h"

#include <string>

#include "abstraction/logging.h"
#include "common/clock.h"
#include "common/process_env.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace nodejs {
namespace vidora {

namespace {

OperationProcessMediaDirectExport::transport_t TransportOf(const std::string& name) {
  if (name == "http") return OperationProcessMediaDirectExport::TRANSPORT_HTTP;
  if (name == "binme") return OperationProcessMediaDirectExport::TRANSPORT_BINME;
  return OperationProcessMediaDirectExport::TRANSPORT_NONE;
}

long NowMillis() { return static_cast<long>(common::GetTimestampMillis()); }

}  // namespace

OperationProcessMediaDirectExport::OperationProcessMediaDirectExport(Napi::Env& env, long id,
                                                                     const ProcessMediaParams& params)
    : OperationProcessMedia(env, id, params),
      _format(TransportOf(params.transportFormat)),
      _trace(common::process_env.traceExportDirect != 0),
      _contentType(params.outputFormat == "mp4" ? "video/mp4" : "application/octet-stream") {}

int OperationProcessMediaDirectExport::Init(const std::string& dstFile) {
  LOGI << "#-> OperationProcessMediaDirectExport::Init actionId=" << ActionId() << " phase=" << _phase;
  const long started = NowMillis();
  if (_phase == PHASE_METADATA_GATHERING) _gatherStart = started;
  ResetPass();
  int result = InitLocks(dstFile);
  if (result != 0) {
    LOGE << "<-# OperationProcessMediaDirectExport::Init InitLocks() FAILED! err=" << result;
    return result;
  }
  ms::LockClosure closure(_locks);
  if (!closure.IsLocked()) {
    LOGE << "<-# OperationProcessMediaDirectExport::Init FAILED! Unable to lock files.";
    return -1;
  }
  if (NowMillis() - started > 5000) {
    LOGI << "    OperationProcessMediaDirectExport::Init long lock acquisition in " << NowMillis() - started
         << " ms dst=" << dstFile;
  }
  result = InitReader();
  if (result != 0) {
    LOGE << "<-# OperationProcessMediaDirectExport::Init InitReader() FAILED! err=" << result;
    return result;
  }
  result = InitWriter();
  if (result != 0) {
    LOGE << "<-# OperationProcessMediaDirectExport::Init InitWriter() FAILED! err=" << result;
    return result;
  }
  if (_params.outputFormat == "mp4" && _mdatSize != 0) {
    static_cast<mediaformats::WriterMP4*>(_writer.get())->MdatSize(_mdatSize);
  }
  result = PositionReader(_params.wallClockStartMillis, _params.wallClockEndMillis);
  if (result != 0) {
    LOGE << "<-# OperationProcessMediaDirectExport::Init PositionReader() FAILED! err=" << result;
    return result;
  }
  LOGI << "<-# OperationProcessMediaDirectExport::Init actionId: " << ActionId() << " dstFilePath=" << dstFile;
  return 0;
}

int OperationProcessMediaDirectExport::ProcessData(vrex::common::IOBuffer& buffer, int fd, unsigned long,
                                                   int&) {
  if (IsComplete()) {
    LOGD << "<-# OperationProcessMediaDirectExport::ProcessData OK (complete)";
    return 0;
  }
  _sink = &buffer;
  _destFd = fd;
  // A wait for more data is a failure here: the length must be known, so the range is closed.
  const int result = ReadForward(buffer, 1, _params.enableKeyFrameFirst);
  if (result < 0) {
    LOGE << "<-# OperationProcessMediaDirectExport::ProcessData FAILED! ReadForward() err=" << result;
    return result;
  }
  if (!IsComplete()) return 0;
  return EndPass();
}

int OperationProcessMediaDirectExport::EndPass() {
  if (!_writer) {
    LOGE << "<-# OperationProcessMediaDirectExport::ProcessData FAILED! _writer is NULL";
    return VREX_ERROR(::vrex::errors::MakeError(12, 39));
  }
  if (_params.outputFormat == "mp4") {
    auto* writer = static_cast<mediaformats::WriterMP4*>(_writer.get());
    const int flushed = writer->Flush();
    if (flushed < 0) {
      LOGE << "<-# OperationProcessMediaDirectExport::ProcessData FAILED! WriterMP4 Flush() err=" << flushed;
      return flushed;
    }
    if (_phase == PHASE_METADATA_GATHERING) _mdatSize = writer->MdatSize();
  }
  _writer.reset();
  if (_phase == PHASE_NETWORK_STREAMING) {
    LOGI << "\tOperationProcessMediaDirectExport::ProcessData actionId=" << ActionId() << " PHASE_NETWORK_STREAMING in "
         << NowMillis() - _streamStart << " ms _mdatSize=" << _mdatSize << " total_gather_size_=" << _totalGatherSize
         << " total_stream_size=" << _totalStreamSize
         << " ####################### PHASE_NETWORK_STREAMING END #######################";
    return 0;
  }
  _streamStart = NowMillis();
  LOGI << "\tOperationProcessMediaDirectExport::ProcessData actionId=" << ActionId() << " PHASE_METADATA_GATHERING in "
       << _streamStart - _gatherStart << " ms _mdatSize=" << _mdatSize << " total_gather_size_=" << _totalGatherSize
       << " ####################### PHASE_METADATA_GATHERING END #######################";
  _phase = PHASE_NETWORK_STREAMING;
  const int result = Init(_params.dstFileName);
  if (result < 0) {
    LOGE << "<-# OperationProcessMediaDirectExport::ProcessData FAILED! Init() err=" << result;
    return result;
  }
  SetComplete(false);
  return 0;
}

bool OperationProcessMediaDirectExport::Count(unsigned long size, long headAdjustment) {
  if (_phase == PHASE_METADATA_GATHERING) {
    _totalStreamSize += static_cast<long>(size);
    return false;
  }
  if (_mustWriteHeader) {
    _totalGatherSize = _totalStreamSize - headAdjustment;
    _mustWriteHeader = false;
    GenerateHeader();
    _totalStreamSize = 0;
  }
  _totalStreamSize += static_cast<long>(size);
  return true;
}

bool OperationProcessMediaDirectExport::WriteMP4Data(const unsigned char* data, size_t size) {
  // The first pass also counted the 8 bytes of the mdat size that its Flush patched in; the
  // second announces the size and writes it in place.
  if (Count(size, 8)) AppendToSink(data, size);
  return true;
}

bool OperationProcessMediaDirectExport::WriteVREXData(const mediaformats::WriterVREX::message_t& message) {
  for (int i = 0; i < message.count; ++i) {
    if (Count(message.pieces[i].iov_len, 0)) AppendToSink(message.pieces[i].iov_base, message.pieces[i].iov_len);
  }
  return true;
}

bool OperationProcessMediaDirectExport::SeekIntoMP4Data(long, long) { return true; }

int OperationProcessMediaDirectExport::GetProgress() {
  const long total = _totalGatherSize;
  if (_phase == PHASE_METADATA_GATHERING || _totalStreamSize == 0 || total <= 0) return 0;
  const float share = static_cast<float>(_totalStreamSize) / static_cast<float>(total);
  return static_cast<int>(share * 100.0f);
}

void OperationProcessMediaDirectExport::GenerateHeader() {
  const std::string start = std::to_string(FirstServedWallClock());
  const std::string length = std::to_string(static_cast<long>(_totalGatherSize));
  if (_format == TRANSPORT_HTTP) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: " + _contentType +
                             "\r\nCache-Control: no-cache, no-store, must-revalidate\r\nPragma: no-cache\r\n"
                             "Expires: 0\r\nx-accel-buffering: no\r\nx-start-timestamp: " + start +
                             "\r\nContent-Length: " + length + "\r\nConnection: close\r\n\r\n";
    AppendToSink(head.data(), head.size());
  } else if (_format == TRANSPORT_BINME) {
    const std::string messages[][2] = {{"\x01\x01", "{\"success\":true,\"timestamp\":" + start + "}"},
                                       {"\x02\x01", "{\"size\":" + length + "}"}};
    for (const auto& message : messages) {
      vrex::common::IOBuffer frame;
      frame.ReadFromByte(static_cast<uint8_t>(message[0][0]));
      frame.ReadFromByte(static_cast<uint8_t>(message[0][1]));
      frame.ReadFromU16(0, true);
      frame.ReadFromU32(static_cast<uint32_t>(message[1].size()), true);
      frame.ReadFromString(message[1]);
      AppendToSink(frame.GetPointer() + frame.GetConsumed(), frame.GetAvailableBytesCount());
    }
  }
}

}  // namespace vidora
}  // namespace nodejs
}  // namespace vrex
