// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/LocalFile.h"
#include "platform/foundation/MakeError.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace zaffo::media {
namespace {

NSErrorPtr openFailed(const std::string& path, int number) {
  return makePosixError(AVErrorUnknown, "The file \"" + path + "\" cannot be opened.", number);
}

/// Such file systems cannot be asked not to wait, and have no reason to.
bool isInMemory(int descriptor) {
  struct statfs status {};
  return fstatfs(descriptor, &status) == 0 &&
         (status.f_type == TMPFS_MAGIC || status.f_type == RAMFS_MAGIC);
}

}  // namespace

Result<std::shared_ptr<const LocalFile>> LocalFile::open(const std::string& path) {
  // Opening a pipe without O_NONBLOCK would wait for its other end.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return openFailed(path, errno);
  struct stat status {};
  const int failure = fstat(descriptor, &status) != 0 ? errno
                      : S_ISDIR(status.st_mode)       ? EISDIR
                      : !S_ISREG(status.st_mode)      ? EINVAL
                                                      : 0;
  if (failure) {
    ::close(descriptor);
    return openFailed(path, failure);
  }
  return std::shared_ptr<const LocalFile>(new LocalFile(path, descriptor, status.st_size));
}

LocalFile::LocalFile(std::string path, int descriptor, int64_t size)
    : path_(std::move(path)),
      descriptor_(descriptor),
      size_(size),
      isInMemory_(isInMemory(descriptor)) {}

LocalFile::~LocalFile() {
  ::close(descriptor_);
}

int64_t LocalFile::readAt(int64_t offset, std::span<uint8_t> bytes) const {
  for (;;) {
    const ssize_t count = ::pread(descriptor_, bytes.data(), bytes.size(), offset);
    if (count >= 0) return count;
    if (errno != EINTR) return -errno;
  }
}

int64_t LocalFile::readHeld(int64_t offset, std::span<uint8_t> bytes) const {
  if (isInMemory_) return readAt(offset, bytes);
#ifdef RWF_NOWAIT
  const iovec part{bytes.data(), bytes.size()};
  const ssize_t count = ::preadv2(descriptor_, &part, 1, offset, RWF_NOWAIT);
  if (count >= 0) return count;
  if (errno != EOPNOTSUPP && errno != ENOSYS && errno != EINVAL) return -errno;
#endif
  return -EAGAIN;
}

}  // namespace zaffo::media
