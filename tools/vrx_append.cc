// vrx_append: drives the operations on managed files (VREXFileUtils) on real files, for the
// crash tests and by hand.
//
// Usage: vrx_append [--crash-after-write N [--tear]] COMMAND ...
//   create DST SIZE                  a managed file: one skip chain over SIZE bytes
//   append DST SRC [new] [FIXED_HEX24 [DYNAMIC_HEX]]
//                                    append SRC to the tail partition, or as a new one
//   copy DST START_MS END_MS SRC...  a wall-clock selection of the sources as a new partition
//   delete DST START_MS END_MS [--zero]
//                                    cut the interval out of DST
//   recover DST [--salvage]          repair after a crash (tables first, then the tail); prints
//                                    the last partition kept
//   reindex DST [--dry-run]          rebuild the seek tables from the frames
//   check DST                        the partition walk only; prints its error
//   walk DST                         partitions, free space and frame count as JSON
//   loop DST LOG SEED SRC...         append the sources in turn, each as a new partition or as
//                                    growth (chosen by SEED), until the file is full; LOG gets
//                                    "B i new" before and "D i bytes" after each append, and
//                                    "F i" when the file is full
// With --crash-after-write the process kills itself with SIGKILL right after the N-th write
// that the file operations make (counted over the whole run); --tear first zeroes the second
// half of that write, as if it had not all reached the disk.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "abstraction/write_hook.h"
#include "mediaformats/errors.h"
#include "mediaformats/vrx/reader_vrex.h"
#include "mediaformats/vrx/vrex_file_utils.h"

namespace {

using vrex::mediaformats::last_partition_info_t;
using vrex::mediaformats::VREXFileUtils;

long crashAfterWrite = -1;
bool tear = false;
long writes = 0;

void CrashAtWrite(int fd, long length) {
  if (++writes != crashAfterWrite) return;
  if (tear) {
    const long end = lseek(fd, 0, SEEK_CUR);
    const long half = length / 2;
    const std::vector<char> zeros(static_cast<size_t>(length - half), 0);
    if (pwrite(fd, zeros.data(), zeros.size(), end - (length - half)) < 0) _exit(3);
  }
  raise(SIGKILL);
}

int Fail(const char* what, int err) {
  fprintf(stderr, "vrx_append: %s failed: err=0x%08x\n", what, static_cast<unsigned>(err));
  return 1;
}

std::vector<unsigned char> Hex(const std::string& text) {
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

int Create(const std::string& dst, long size) {
  const int err = VREXFileUtils::VRXFileCreate(dst, size, 0640);
  return err < 0 ? Fail("create", err) : 0;
}

int Append(const std::string& dst, const std::string& src, bool createNew,
           const std::vector<unsigned char>& fixed, const std::vector<unsigned char>& dynamic) {
  const long added = VREXFileUtils::VRXFileAppend(src, dst, fixed.data(),
                                                  dynamic.empty() ? nullptr : dynamic.data(),
                                                  dynamic.size(), createNew);
  if (added < 0) return Fail("append", static_cast<int>(added));
  printf("{\"added\":%ld}\n", added);
  return 0;
}

int Copy(const std::string& dst, long start, long end, const std::vector<std::string>& srcs) {
  const long required = VREXFileUtils::VRXFileCopy(srcs, start, end, dst);
  if (required < 0) return Fail("copy", static_cast<int>(required));
  printf("{\"required\":%ld}\n", required);
  return 0;
}

int Delete(const std::string& dst, long start, long end, bool zero) {
  const int err = VREXFileUtils::VRXFileDeleteContent(dst, start, end, zero);
  printf("{\"result\":%d}\n", err);
  return err < 0 ? 1 : 0;
}

int Recover(const std::string& dst, bool salvage) {
  last_partition_info_t info;
  const int err = VREXFileUtils::VRXFileRecover(dst, &info, salvage);
  printf("{\"result\":%d,\"offset\":%ld,\"size\":%ld,\"startMillis\":%ld,\"endMillis\":%ld}\n", err,
         info.bounds._offset, info.bounds._size, info.startMillis, info.endMillis);
  return err < 0 ? 1 : 0;
}

int Walk(const std::string& dst) {
  int err = 0;
  auto reader = vrex::mediaformats::ReaderVREX::Create(nullptr, dst.c_str(), true, 0, -1, err);
  if (!reader) return Fail("walk", err);
  printf("{\"partitions\":[");
  const char* separator = "";
  while (const auto* partition = reader->ReadPartition(vrex::mediaformats::PARTITION_LAST_TIMESTAMP_NONE, err)) {
    printf("%s{\"offset\":%ld,\"size\":%ld,\"contents\":[%ld,%ld],\"seekPoints\":%lu}", separator,
           partition->_offset, partition->_size, partition->_contents._offset,
           partition->_contents._size, partition->_seekPointsCount);
    separator = ",";
  }
  const int partitionsErr = err;
  long frames = 0;
  while (reader->ReadFrame(err) != nullptr) ++frames;
  printf("],\"partitionsErr\":%d,\"frames\":%ld,\"framesErr\":%d}\n", partitionsErr, frames, err);
  return partitionsErr < 0 || err < 0 ? 1 : 0;
}

void Log(int fd, const std::string& line) {
  if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) _exit(4);
}

int Loop(const std::string& dst, const std::string& log, unsigned seed,
         const std::vector<std::string>& srcs) {
  const int logFd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (logFd < 0) return Fail("log", -1);
  std::mt19937 random(seed);
  static const unsigned char kFixed[12] = {'c', 'r', 'a', 's', 'h', '-', 'l', 'o', 'o', 'p', 0, 1};
  for (size_t i = 0; i < srcs.size(); ++i) {
    const bool createNew = random() % 3 == 0;
    Log(logFd, "B " + std::to_string(i) + " " + std::to_string(createNew) + "\n");
    const long added = VREXFileUtils::VRXFileAppend(srcs[i], dst, kFixed, nullptr, 0, createNew);
    if (added == vrex::mediaformats::ERR_MEDIAFORMATS_NOT_ENOUGH_SPACE) {
      Log(logFd, "F " + std::to_string(i) + "\n");
      return 0;
    }
    if (added < 0) return Fail("append", static_cast<int>(added));
    Log(logFd, "D " + std::to_string(i) + " " + std::to_string(added) + "\n");
  }
  return 0;
}

int Usage() {
  fprintf(stderr,
          "usage: vrx_append [--crash-after-write N [--tear]] create DST SIZE | append DST SRC "
          "[new] [FIXED [DYNAMIC]] | copy DST START END SRC... | delete DST START END [--zero] | "
          "recover DST [--salvage] | reindex DST [--dry-run] | check DST | walk DST | "
          "loop DST LOG SEED SRC...\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  while (!args.empty() && args[0].rfind("--", 0) == 0) {
    if (args[0] == "--crash-after-write" && args.size() > 1) {
      crashAfterWrite = std::stol(args[1]);
      args.erase(args.begin(), args.begin() + 2);
    } else if (args[0] == "--tear") {
      tear = true;
      args.erase(args.begin());
    } else {
      return Usage();
    }
  }
  if (crashAfterWrite > 0) vrex::abstraction::internal::SetWriteHook(CrashAtWrite);
  if (args.size() < 2) return Usage();
  const std::string& command = args[0];
  const std::string& dst = args[1];
  if (command == "create" && args.size() == 3) return Create(dst, std::stol(args[2]));
  if (command == "append" && args.size() >= 3 && args.size() <= 6) {
    const bool createNew = args.size() > 3 && args[3] == "new";
    const size_t metadata = createNew ? 4 : 3;
    std::vector<unsigned char> fixed = args.size() > metadata ? Hex(args[metadata]) : std::vector<unsigned char>();
    fixed.resize(12, 0);
    const std::vector<unsigned char> dynamic = args.size() > metadata + 1 ? Hex(args[metadata + 1]) : std::vector<unsigned char>();
    return Append(dst, args[2], createNew, fixed, dynamic);
  }
  if (command == "copy" && args.size() >= 5) {
    return Copy(dst, std::stol(args[2]), std::stol(args[3]),
                std::vector<std::string>(args.begin() + 4, args.end()));
  }
  if (command == "delete" && (args.size() == 4 || (args.size() == 5 && args[4] == "--zero"))) {
    return Delete(dst, std::stol(args[2]), std::stol(args[3]), args.size() == 5);
  }
  if (command == "recover" && args.size() <= 3) return Recover(dst, args.size() == 3 && args[2] == "--salvage");
  if (command == "reindex" && args.size() <= 3) {
    const int err = VREXFileUtils::VRXFileReindex(dst, args.size() == 3 && args[2] == "--dry-run");
    printf("{\"result\":%d}\n", err);
    return err < 0 ? 1 : 0;
  }
  if (command == "check" && args.size() == 2) {
    const int err = VREXFileUtils::VRXFileCheckPartitions(dst);
    printf("{\"check\":%d}\n", err);
    return err < 0 ? 1 : 0;
  }
  if (command == "walk" && args.size() == 2) return Walk(dst);
  if (command == "loop" && args.size() >= 5) {
    return Loop(dst, args[2], static_cast<unsigned>(std::stoul(args[3])),
                std::vector<std::string>(args.begin() + 4, args.end()));
  }
  return Usage();
}
