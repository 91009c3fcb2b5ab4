// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace zaffo {

/// Whether the page at `address` belongs to the process.
inline bool isMapped(const void* address) {
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  unsigned char resident = 0;
  return mincore(reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(address) / page * page), 1,
                 &resident) == 0;
}

}  // namespace zaffo
