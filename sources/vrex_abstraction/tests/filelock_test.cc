// File identity and the in-process file locks, checked against stat(1) and between threads.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "abstraction/errors.h"
#include "abstraction/filelock.h"
#include "abstraction/filelock_closure.h"
#include "exclusion_check.h"
#include "filelock/file_locks.h"
#include "temp_dir.h"

namespace vrex {
namespace abstraction {
namespace {

std::string Shell(const std::string& command) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[256];
  while (fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
  pclose(pipe);
  return out;
}

// Waits (without a time limit) until `n` threads wait in the process's lock table.
void AwaitWaiters(unsigned n) {
  while (internal::FileLocks::Instance().Waiters() != n) std::this_thread::yield();
}

TEST(FileIdTest, FieldsMatchStatAndStatfs) {
  TempDir dir;
  const std::string path = dir.File("a.vrx", "0123456789");
  file_id_t id;
  ASSERT_EQ(id.Init(path), 0);
  // %d device, %i inode, %s size; -f %t the file-system type in hex.
  EXPECT_EQ(Shell("stat -c '%d %i %s' " + path),
            std::to_string(id.device) + " " + std::to_string(id.inode) + " " + std::to_string(id.size) + "\n");
  EXPECT_EQ(id.path, path);
  EXPECT_EQ(std::stol(Shell("stat -f -c %t " + path), nullptr, 16), id.fileSystemType);
}

TEST(FileIdTest, IdentityAndFailures) {
  TempDir dir;
  const std::string a = dir.File("a");
  const std::string b = dir.File("b");
  const std::string link = dir.path() + "/link-to-a";
  ASSERT_EQ(::link(a.c_str(), link.c_str()), 0);
  const std::string relativeA = dir.path() + "/../" + dir.path().substr(5) + "/a";

  file_id_t idA, idB, idLink, idRelative;
  ASSERT_EQ(idA.Init(a), 0);
  ASSERT_EQ(idB.Init(b), 0);
  ASSERT_EQ(idLink.Init(link), 0);
  ASSERT_EQ(idRelative.Init(relativeA), 0);
  EXPECT_TRUE(idA.IsSameFile(idLink));
  EXPECT_TRUE(idA.IsSameFile(idRelative));
  EXPECT_FALSE(idA.IsSameFile(idB));
  EXPECT_FALSE(idA < idLink || idLink < idA);
  EXPECT_TRUE(idA < idB || idB < idA);

  struct {
    std::string path;
    int expected;
  } failures[] = {
      {dir.path() + "/missing", file_id_t::kFILE_NOT_FOUND},
      {a + "/below-a-file", static_cast<int>(0x80000014u)},  // ENOTDIR
      {"", file_id_t::kFILE_NOT_FOUND},
  };
  for (const auto& c : failures) {
    file_id_t id;
    id.inode = 7;
    EXPECT_EQ(id.Init(c.path), c.expected) << c.path;
    EXPECT_EQ(id.inode, 0u) << "Init clears the object first";
  }
}

TEST(FileLockTest, InitAndLockFailures) {
  TempDir dir;
  const std::string path = dir.File("a");
  file_lock_t twice;
  ASSERT_EQ(twice.Init(path.c_str(), true), 0);
  EXPECT_EQ(twice.Init(path.c_str(), true), static_cast<int>(0x80010009u));

  file_lock_t nullPath;
  EXPECT_EQ(nullPath.Init(nullptr, true), static_cast<int>(0x80010002u));

  file_lock_t uninitialised;
  EXPECT_EQ(uninitialised.Lock(), static_cast<int>(0x8001000Au));
  EXPECT_FALSE(uninitialised.IsLocked());

  file_lock_t missing;
  EXPECT_EQ(missing.Init((dir.path() + "/missing").c_str(), false), file_id_t::kFILE_NOT_FOUND);
  EXPECT_EQ(missing.Lock(), static_cast<int>(0x8001000Au));
}

TEST(FileLockTest, HardLinksExcludeEachOther) {
  TempDir dir;
  const std::string a = dir.File("a");
  const std::string link = dir.path() + "/b";
  ASSERT_EQ(::link(a.c_str(), link.c_str()), 0);

  file_lock_t first;
  ASSERT_EQ(first.Init(a.c_str(), false), 0);
  ASSERT_EQ(first.Lock(), 0);

  std::atomic<bool> secondLocked{false};
  std::thread other([&] {
    file_lock_t second;
    ASSERT_EQ(second.Init(link.c_str(), true), 0);
    ASSERT_EQ(second.Lock(), 0);
    secondLocked = true;
  });
  AwaitWaiters(1);
  EXPECT_FALSE(secondLocked);
  EXPECT_EQ(internal::FileLocks::Instance().Holders(first), 1u);
  first.Unlock();
  other.join();
  EXPECT_TRUE(secondLocked);
  EXPECT_EQ(internal::FileLocks::Instance().Holders(first), 0u) << "the destructor unlocked";
}

TEST(FileLockTest, SharedHoldersAccumulateBeforeAnExclusiveWaiter) {
  TempDir dir;
  const std::string path = dir.File("a");
  std::array<file_lock_t, 3> readers;
  for (file_lock_t& reader : readers) {
    ASSERT_EQ(reader.Init(path.c_str(), true), 0);
    ASSERT_EQ(reader.Lock(), 0);
  }
  EXPECT_EQ(internal::FileLocks::Instance().Holders(readers[0]), 3u);

  std::atomic<bool> writerLocked{false};
  std::thread writer([&] {
    file_lock_t lock;
    ASSERT_EQ(lock.Init(path.c_str(), false), 0);
    ASSERT_EQ(lock.Lock(), 0);
    writerLocked = true;
  });
  AwaitWaiters(1);
  for (unsigned i = 0; i < 2; ++i) {
    readers[i].Unlock();
    EXPECT_FALSE(readers[i].IsLocked());
    EXPECT_EQ(internal::FileLocks::Instance().Holders(readers[2]), 2 - i);
    AwaitWaiters(1);
    EXPECT_FALSE(writerLocked) << "after " << i + 1 << " unlocks";
  }
  readers[2].Unlock();
  writer.join();
  EXPECT_TRUE(writerLocked);
}

TEST(FileLockTest, SecondLockUnlocksFirstAndMoveCarriesTheLock) {
  TempDir dir;
  const std::string path = dir.File("a");
  file_lock_t lock;
  ASSERT_EQ(lock.Init(path.c_str(), true), 0);
  ASSERT_EQ(lock.Lock(), 0);
  ASSERT_EQ(lock.Lock(), 0);
  EXPECT_EQ(internal::FileLocks::Instance().Holders(lock), 1u);

  file_lock_t moved(std::move(lock));
  EXPECT_TRUE(moved.IsLocked());
  EXPECT_FALSE(lock.IsLocked());
  lock.Unlock();
  EXPECT_EQ(internal::FileLocks::Instance().Holders(moved), 1u);
  moved.Unlock();
  EXPECT_EQ(internal::FileLocks::Instance().Holders(moved), 0u);
}

TEST(FileLocksTest, ShutdownReleasesWaitersWithTheTimeoutCode) {
  TempDir dir;
  file_id_t id;
  ASSERT_EQ(id.Init(dir.File("a")), 0);
  auto* table = new internal::FileLocks();
  ASSERT_EQ(table->Lock(id, false), 0);
  int waiterResult = 0;
  std::thread waiter([&] { waiterResult = table->Lock(id, true); });
  while (table->Waiters() != 1) std::this_thread::yield();
  delete table;
  waiter.join();
  EXPECT_EQ(waiterResult, static_cast<int>(0x80000004u));
}

// The process ends (exit(), with its static destructors) while other threads still take and
// drop file locks, as worker threads do when the host exits in the middle of a listing: the
// table must outlive them, and the process must end with its own status.
TEST(FileLocksTest, ExitWhileThreadsLockEndsTheProcessCleanly) {
  TempDir dir;
  const std::string path = dir.File("a");
  for (int round = 0; round < 5; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      std::atomic<int> started{0};
      for (int i = 0; i < 8; ++i) {
        std::thread([&path, &started, i] {
          file_lock_t lock;
          if (lock.Init(path.c_str(), i % 4 != 0) != 0) _exit(3);
          ++started;
          // Mostly outside the table, as a task is between its lock calls.
          for (;;) {
            lock.Lock();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            lock.Unlock();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
          }
        }).detach();
      }
      while (started.load() != 8) std::this_thread::yield();
      exit(7);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "round " << round << " ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 7) << "round " << round;
  }
}

// Threads lock random overlapping sets of files through sorted closures. Exclusive holders
// must be alone on their files, and the test must end: a wrong order would deadlock it.
TEST(FileLocksClosureTest, SortedClosuresNeverDeadlock) {
  TempDir dir;
  constexpr int kFiles = 6;
  std::vector<std::string> paths;
  for (int i = 0; i < kFiles; ++i) paths.push_back(dir.File("f" + std::to_string(i)));
  vidora_testing::ExclusionCheck check(kFiles);
  vidora_testing::RunThreads(8, [&](unsigned seed) {
    std::mt19937 random(seed);
    for (int round = 0; round < 300; ++round) {
      std::vector<file_lock_t> locks;
      for (int f = kFiles - 1; f >= 0; --f) {  // the closure has sorting to do
        if (random() % 2 == 0) continue;
        locks.emplace_back();
        ASSERT_EQ(locks.back().Init(paths[f].c_str(), random() % 3 == 0), 0);
      }
      file_locks_closure_t closure(locks);
      ASSERT_TRUE(closure.IsLocked());
      std::vector<std::pair<int, bool>> held;
      for (size_t i = 0; i < locks.size(); ++i) {
        if (i + 1 < locks.size()) {
          ASSERT_TRUE(locks[i] < locks[i + 1]);
        }
        held.emplace_back(locks[i].path.back() - '0', locks[i].IsShared());
      }
      check.Hold(held);
      closure.UnlockAll();
    }
  });
  EXPECT_EQ(check.violations(), 0);
}

TEST(FileLocksClosureTest, EmptyAndFailingClosures) {
  std::vector<file_lock_t> none;
  EXPECT_TRUE(file_locks_closure_t(none).IsLocked());

  std::vector<file_lock_t> uninitialised(1);
  file_locks_closure_t closure(uninitialised);
  EXPECT_FALSE(closure.IsLocked());
  EXPECT_EQ(closure.Error(), static_cast<int>(0x8001000Au));
}

TEST(SetFileGroupAccessTest, ModeBecomes0660) {
  TempDir dir;
  const std::string path = dir.File("a");
  chmod(path.c_str(), 0604);
  const std::string groupBefore = Shell("stat -c %g " + path);
  ASSERT_TRUE(SetFileGroupAccess(path.c_str()));
  EXPECT_EQ(Shell("stat -c %a " + path), "660\n");
  if (Shell("getent group " + std::string(groupName)).empty()) {
    EXPECT_EQ(Shell("stat -c %g " + path), groupBefore) << "no such group: the group stays";
  } else {
    EXPECT_EQ(Shell("stat -c %G " + path), std::string(groupName) + "\n");
  }
  EXPECT_FALSE(SetFileGroupAccess((dir.path() + "/missing").c_str()));
}

}  // namespace
}  // namespace abstraction
}  // namespace vrex
