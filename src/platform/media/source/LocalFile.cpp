#include "platform/media/source/LocalFile.h"
#include "platform/dispatch/OutsideWait.h"
#include "platform/foundation/MakeError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace zaffo::media {
namespace {

NSErrorPtr openFailed(const std::string& path, int number) {
  return makePosixError(AVErrorUnknown, "The file \"" + path + "\" cannot be opened.", number);
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
    : path_(std::move(path)), descriptor_(descriptor), size_(size) {}

LocalFile::~LocalFile() {
  ::close(descriptor_);
}

int64_t LocalFile::readAt(int64_t offset, std::span<uint8_t> bytes) const {
  int64_t held = 0;
  if (readHeld(offset, bytes, held)) return held;
  const OutsideWait wait;
  for (;;) {
    const ssize_t count = ::pread(descriptor_, bytes.data(), bytes.size(), offset);
    if (count >= 0) return count;
    if (errno != EINTR) return -errno;
  }
}

/// Reads what the system holds in memory; false when that is not all that is to be had. Mostly it
/// is, and then nobody's place need be taken.
bool LocalFile::readHeld([[maybe_unused]] int64_t offset, [[maybe_unused]] std::span<uint8_t> bytes,
                         [[maybe_unused]] int64_t& count) const {
#ifdef RWF_NOWAIT
  const iovec part{bytes.data(), bytes.size()};
  count = ::preadv2(descriptor_, &part, 1, offset, RWF_NOWAIT);
  const auto wanted = static_cast<int64_t>(bytes.size());
  return count == wanted || (count >= 0 && offset + count >= size_);
#else
  return false;
#endif
}

}  // namespace zaffo::media
