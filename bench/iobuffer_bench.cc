// IOBuffer as a stream's staging area: 64 KiB blocks appended and consumed, against a plain
// memcpy of the same bytes (the least any copy into a buffer can cost).
#include <cstring>
#include <vector>

#include "bench_ratio.h"
#include "common/iobuffer.h"

namespace {

constexpr uint32_t kBlock = 64 * 1024;

std::vector<uint8_t> Block() {
  std::vector<uint8_t> block(kBlock);
  for (uint32_t i = 0; i < kBlock; ++i) block[i] = static_cast<uint8_t>(i * 31);
  return block;
}

void BM_Memcpy64K(benchmark::State& state) {
  const std::vector<uint8_t> src = Block();
  std::vector<uint8_t> dst(kBlock);
  for (auto _ : state) {
    memcpy(dst.data(), src.data(), kBlock);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBlock);
}
BENCHMARK(BM_Memcpy64K);

// A consumer that keeps up: every block is consumed whole, so Recycle keeps the data at the
// front and nothing ever moves.
void BM_IOBufferAppendConsume64K(benchmark::State& state) {
  const std::vector<uint8_t> src = Block();
  vrex::common::IOBuffer buffer;
  for (auto _ : state) {
    buffer.ReadFromBuffer(src.data(), kBlock);
    benchmark::DoNotOptimize(buffer.GetPointer());
    buffer.Ignore(kBlock);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBlock);
}
BENCHMARK(BM_IOBufferAppendConsume64K);

// A consumer that lags every other block by 4 KiB, as a socket does when it takes less than
// is offered: the leftover moves to the front before the next append.
void BM_IOBufferAppendLaggingConsume64K(benchmark::State& state) {
  const std::vector<uint8_t> src = Block();
  vrex::common::IOBuffer buffer;
  bool lag = false;
  for (auto _ : state) {
    buffer.ReadFromBuffer(src.data(), kBlock);
    benchmark::DoNotOptimize(buffer.GetPointer());
    const uint32_t available = buffer.GetAvailableBytesCount();
    buffer.Ignore(lag ? available - 4096 : available);
    lag = !lag;
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBlock);
}
BENCHMARK(BM_IOBufferAppendLaggingConsume64K);

// Handing a filled buffer to the next stage and back: two allocation swaps, whatever the
// size.
void BM_IOBufferHandOver64K(benchmark::State& state) {
  const std::vector<uint8_t> src = Block();
  vrex::common::IOBuffer stage, next;
  stage.ReadFromBuffer(src.data(), kBlock);
  for (auto _ : state) {
    next.ReadFromInputBufferWithIgnore(stage);
    stage.ReadFromInputBufferWithIgnore(next);
    benchmark::DoNotOptimize(stage.GetPointer());
  }
}
BENCHMARK(BM_IOBufferHandOver64K);

}  // namespace

int main(int argc, char** argv) { return vidora_bench::RunWithRatios(argc, argv, "BM_Memcpy64K"); }
