// SPDX-License-Identifier: Apache-2.0
#include "doubles/StalledStorage.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>

namespace zaffo {
namespace {

struct Gate {
  std::mutex mutex;
  std::condition_variable opened;
  std::optional<struct stat> file;
  int waiting = 0;

  [[nodiscard]] bool stops(int descriptor) const {
    struct stat status {};
    return file && fstat(descriptor, &status) == 0 && status.st_dev == file->st_dev &&
           status.st_ino == file->st_ino;
  }
};

/// Never destroyed: threads may read until the very end.
Gate& gate() {
  static auto* const only = new Gate;
  return *only;
}

bool isStalled(int descriptor) {
  const std::lock_guard lock(gate().mutex);
  return gate().stops(descriptor);
}

void waitWhileStalled(int descriptor) {
  std::unique_lock lock(gate().mutex);
  if (!gate().stops(descriptor)) return;
  ++gate().waiting;
  gate().opened.wait(lock, [descriptor] { return !gate().stops(descriptor); });
  --gate().waiting;
}

}  // namespace

StalledStorage::StalledStorage(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) throw std::runtime_error("there is no file " + path);
  const std::lock_guard lock(gate().mutex);
  gate().file = status;
}

void StalledStorage::release() {
  const std::lock_guard lock(gate().mutex);
  gate().file.reset();
  gate().opened.notify_all();
}

int StalledStorage::waiting() {
  const std::lock_guard lock(gate().mutex);
  return gate().waiting;
}

}  // namespace zaffo

// In the place of the system's, for all of the program.
extern "C" {

ssize_t pread(int descriptor, void* bytes, size_t count, off_t offset) {
  zaffo::waitWhileStalled(descriptor);
  return syscall(SYS_pread64, descriptor, bytes, count, offset);
}

ssize_t preadv2(int descriptor, const iovec* parts, int count, off_t offset, int flags) {
  if ((flags & RWF_NOWAIT) && zaffo::isStalled(descriptor)) {
    errno = EAGAIN;
    return -1;
  }
  zaffo::waitWhileStalled(descriptor);
  return syscall(SYS_preadv2, descriptor, parts, count, offset, 0L, flags);
}
}
