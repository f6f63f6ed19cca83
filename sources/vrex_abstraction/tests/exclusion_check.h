// Threads that lock overlapping sets of a few files, and a check that readers and writers
// never meet: each holder records itself while it holds its files, and a writer must find
// its file free of everyone else.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace vidora_testing {

class ExclusionCheck {
 public:
  explicit ExclusionCheck(size_t files) : _readers(files), _writers(files) {}

  // Records the holders of `held` (file, shared) for a moment, then takes them off again.
  void Hold(const std::vector<std::pair<int, bool>>& held) {
    for (const auto& [file, shared] : held) {
      if (shared) {
        ++_readers[file];
        if (_writers[file] != 0) ++_violations;
      } else if (++_writers[file] != 1 || _readers[file] != 0) {
        ++_violations;
      }
    }
    std::this_thread::yield();
    for (const auto& [file, shared] : held) --(shared ? _readers : _writers)[file];
  }
  int violations() const { return _violations; }

 private:
  std::vector<std::atomic<int>> _readers, _writers;
  std::atomic<int> _violations{0};
};

// Runs `body(seed)` on `count` threads at once, with the seeds 1 to `count`, and waits for all.
inline void RunThreads(unsigned count, const std::function<void(unsigned)>& body) {
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= count; ++seed) threads.emplace_back(body, seed);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace vidora_testing
