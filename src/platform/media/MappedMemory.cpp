// SPDX-License-Identifier: Apache-2.0
#include "platform/media/MappedMemory.h"

#include <sys/mman.h>

namespace zaffo::media {

MappedMemory::MappedMemory(std::size_t bytes, Pages pages) {
  int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#if defined(MAP_POPULATE)
  if (pages == Pages::AtOnce) flags |= MAP_POPULATE;
#else
  static_cast<void>(pages);
#endif
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, -1, 0);
  if (memory == MAP_FAILED) return;
  data_ = memory;
  size_ = bytes;
}

MappedMemory::~MappedMemory() {
  if (data_) munmap(data_, size_);
}

}  // namespace zaffo::media
