#include "platform/media/source/LocalFile.h"
#include "platform/foundation/MakeError.h"

#include <fcntl.h>
#include <sys/stat.h>
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
  for (;;) {
    const ssize_t count = ::pread(descriptor_, bytes.data(), bytes.size(), offset);
    if (count >= 0) return count;
    if (errno != EINTR) return -errno;
  }
}

}  // namespace zaffo::media
