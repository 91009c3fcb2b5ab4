// SPDX-License-Identifier: Apache-2.0
#include "fuzz/MemoryFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/FuzzTarget.h"

namespace zaffo::fuzz {

MemoryFile::MemoryFile()
    : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {
  require(descriptor_ >= 0, "there are files in memory");
}

MemoryFile::~MemoryFile() {
  ::close(descriptor_);
}

void MemoryFile::setContent(std::span<const uint8_t> bytes) const {
  require(ftruncate(descriptor_, 0) == 0, "a file in memory can be emptied");
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t count = pwrite(descriptor_, bytes.data() + written, bytes.size() - written,
                                 static_cast<off_t>(written));
    require(count > 0, "a file in memory can be written");
    written += static_cast<std::size_t>(count);
  }
}

}  // namespace zaffo::fuzz
