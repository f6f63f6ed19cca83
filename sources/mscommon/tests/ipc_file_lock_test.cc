// IPCFileLock against flock(1) in a child process, and LockClosure between threads.
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "mscommon/ipc_file_lock.h"
#include "mscommon/lock_closure.h"
#include "exclusion_check.h"
#include "temp_dir.h"

extern char** environ;

namespace ms {
namespace {

using vrex::abstraction::TempDir;

// Runs a command under /bin/sh with `path` as $1 and returns its exit status.
int ShellStatus(const std::string& command, const std::string& path) {
  const std::string line = "sh -c '" + command + "' sh '" + path + "'";
  const int status = std::system(line.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Whether another process could take the flock now: flock(1) exits 7 when it cannot.
bool OtherProcessCanLock(const std::string& path, bool shared) {
  return ShellStatus(std::string("flock -n -E 7 ") + (shared ? "-s" : "-x") + " \"$1\" true", path) == 0;
}

// A child process that holds flock on a file until it is released (its stdin closes).
class ChildHolder {
 public:
  ChildHolder(const std::string& path, bool shared) {
    int in[2], out[2];
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    const std::string mode = shared ? "-s" : "-x";
    const char* argv[] = {"flock", mode.c_str(), path.c_str(), "-c", "echo locked; read line", nullptr};
    EXPECT_EQ(posix_spawnp(&_pid, "flock", &actions, nullptr, const_cast<char**>(argv), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    _stdin = in[1];
    char buffer[16] = {};
    EXPECT_EQ(read(out[0], buffer, 7), 7);  // "locked\n": the child holds the lock now
    EXPECT_EQ(std::string(buffer), "locked\n");
    close(out[0]);
  }
  ~ChildHolder() { Release(); }
  void Release() {
    if (_pid <= 0) return;
    close(_stdin);
    int status = 0;
    waitpid(_pid, &status, 0);
    _pid = 0;
  }

 private:
  pid_t _pid = 0;
  int _stdin = -1;
};

long MillisSince(std::chrono::steady_clock::time_point start) {
  return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                               std::chrono::steady_clock::now() - start).count());
}

// A child process holds the file: our attempts are granted where the two modes go together; a
// refused one waits out its whole time limit, no longer, and a wait ends when the child lets go.
TEST(IPCFileLockTest, ChildHolderAdmitsWhatItsModeAllows) {
  TempDir dir;
  const std::string path = dir.File("a.vrx");
  struct {
    bool childShared, shared;
    unsigned long millis;
    bool granted;
  } cases[] = {{false, true, 0, false},
               {false, false, 0, false},
               {false, true, IPCFileLock::kDEFAULT_TIMEOUT_MS, false},
               {true, true, 0, true},
               {true, false, 200, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.childShared << c.shared << " " << c.millis);
    ChildHolder child(path, c.childShared);
    IPCFileLock lock(path, c.shared);
    ASSERT_TRUE(lock.IsInitialized());
    EXPECT_EQ(lock.TryLock(), c.granted);
    EXPECT_EQ(lock.IsLocked(), c.granted);
    if (c.granted) continue;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(lock.TryLockFor(c.millis));
    EXPECT_GE(MillisSince(start), static_cast<long>(c.millis));
    EXPECT_LT(MillisSince(start), static_cast<long>(c.millis) + 5000);
    EXPECT_FALSE(lock.IsLocked());
  }
  ChildHolder child(path, false);
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    child.Release();
  });
  IPCFileLock lock(path, false);
  EXPECT_TRUE(lock.TryLockFor(IPCFileLock::kDEFAULT_TIMEOUT_MS));
  release.join();
}

TEST(IPCFileLockTest, OurLocksAreSeenByOtherProcesses) {
  TempDir dir;
  const std::string path = dir.File("a.vrx");
  struct {
    bool shared;
    bool otherShared;
    bool otherCanLock;
  } cases[] = {{false, true, false}, {false, false, false}, {true, true, true}, {true, false, false}};
  for (const auto& c : cases) {
    IPCFileLock lock(path, c.shared);
    ASSERT_TRUE(lock.Lock());
    EXPECT_EQ(OtherProcessCanLock(path, c.otherShared), c.otherCanLock) << c.shared << c.otherShared;
    ASSERT_TRUE(lock.Unlock());
    EXPECT_TRUE(OtherProcessCanLock(path, c.otherShared)) << "after Unlock";
    ASSERT_TRUE(lock.TryLock());
  }
  EXPECT_TRUE(OtherProcessCanLock(path, false)) << "the destructor closed the descriptor";
}

TEST(IPCFileLockTest, TwoObjectsInOneProcessExcludeEachOther) {
  TempDir dir;
  const std::string path = dir.File("a.vrx");
  IPCFileLock first(path, false);
  ASSERT_TRUE(first.TryLock());
  IPCFileLock second(path, true);
  EXPECT_FALSE(second.TryLockFor(0));
  first.Unlock();
  EXPECT_TRUE(second.TryLockFor(0));
}

TEST(IPCFileLockTest, UnopenableFilesAreNeverLocked) {
  TempDir dir;
  const std::string readOnly = dir.File("read-only.vrx");
  ASSERT_EQ(chmod(readOnly.c_str(), 0444), 0);
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  // Root may write anything: open the file as an unprivileged user, as the service runs.
  const bool root = geteuid() == 0;
  if (root) {
    ASSERT_EQ(seteuid(65534), 0);
  }
  std::unique_ptr<IPCFileLock> locks[] = {
      std::make_unique<IPCFileLock>(readOnly, true),
      std::make_unique<IPCFileLock>(dir.path() + "/missing.vrx", true),
      std::make_unique<IPCFileLock>("", false),
  };
  if (root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  for (auto& lock : locks) {
    EXPECT_FALSE(lock->IsInitialized()) << lock->Name();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(lock->TryLockFor(IPCFileLock::kDEFAULT_TIMEOUT_MS)) << lock->Name();
    EXPECT_LT(MillisSince(start), 1000) << "no waiting on an unopened file: " << lock->Name();
    EXPECT_FALSE(lock->Lock());
    EXPECT_FALSE(lock->TryLock());
    EXPECT_FALSE(lock->Unlock());
  }
}

// A FIFO that nobody reads cannot be opened for writing without waiting for a reader: the lock
// must give up at once, not hold its thread for ever. Tried in a child process that an alarm
// ends should the open block.
TEST(IPCFileLockTest, FifoWithoutReaderIsNeverLockedAndNeverWaits) {
  TempDir dir;
  const std::string fifo = dir.path() + "/fifo.vrx";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    alarm(30);
    IPCFileLock lock(fifo, true);
    const bool refused = !lock.IsInitialized() && !lock.TryLockFor(IPCFileLock::kDEFAULT_TIMEOUT_MS);
    _exit(refused ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(LockClosureTest, HoldsBothLayersUntilUnlockAll) {
  TempDir dir;
  std::vector<CombinedLock> locks(3);
  for (int i = 0; i < 3; ++i) {
    const std::string path = dir.File("f" + std::to_string(i));
    ASSERT_EQ(locks[i].fileLock.Init(path.c_str(), i == 1), 0);
    locks[i].ipcLock = std::make_shared<IPCFileLock>(path, i == 1);
  }
  LockClosure closure(locks);
  ASSERT_TRUE(closure.IsLocked());
  for (size_t i = 0; i < locks.size(); ++i) {
    if (i + 1 < locks.size()) {
      EXPECT_TRUE(locks[i].fileLock < locks[i + 1].fileLock);
    }
    EXPECT_TRUE(locks[i].fileLock.IsLocked());
    EXPECT_EQ(OtherProcessCanLock(locks[i].fileLock.path, true), locks[i].fileLock.IsShared());
  }
  closure.UnlockAll();
  for (const CombinedLock& lock : locks) {
    EXPECT_FALSE(lock.fileLock.IsLocked());
    EXPECT_FALSE(lock.ipcLock->IsLocked());
    EXPECT_TRUE(OtherProcessCanLock(lock.fileLock.path, false));
  }
  std::vector<CombinedLock> none;
  EXPECT_TRUE(LockClosure(none).IsLocked());
}

// Threads take both layers of random overlapping file sets, each with descriptors of its own.
// A wrong order would deadlock (flock waits without limit here); exclusive holders must be alone.
TEST(LockClosureTest, SortedClosuresOverlappingFromManyThreadsNeverDeadlock) {
  TempDir dir;
  constexpr int kFiles = 5;
  std::vector<std::string> paths;
  for (int i = 0; i < kFiles; ++i) paths.push_back(dir.File(std::to_string(i)));
  vidora_testing::ExclusionCheck check(kFiles);
  vidora_testing::RunThreads(8, [&](unsigned seed) {
    std::mt19937 random(seed);
    for (int round = 0; round < 150; ++round) {
      std::vector<CombinedLock> locks;
      std::vector<std::pair<int, bool>> held;
      for (int f = kFiles - 1; f >= 0; --f) {
        if (random() % 2 == 0) continue;
        const bool shared = random() % 3 == 0;
        locks.emplace_back();
        ASSERT_EQ(locks.back().fileLock.Init(paths[f].c_str(), shared), 0);
        locks.back().ipcLock = std::make_shared<IPCFileLock>(paths[f], shared);
        held.emplace_back(f, shared);
      }
      LockClosure closure(locks);
      ASSERT_TRUE(closure.IsLocked());
      check.Hold(held);
      closure.UnlockAll();
      if (round % 50 == 0) {
        ASSERT_TRUE(closure.LockAll());
        closure.UnlockAll();
      }
    }
  });
  EXPECT_EQ(check.violations(), 0);
}

}  // namespace
}  // namespace ms
