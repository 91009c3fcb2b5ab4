// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace zaffo::media {

/// Has the holes that a decoder leaves in the heap given back to the system half a second from now,
/// once for all who ask until then: those of the workers that asked, and no others. FFmpeg takes
/// a decoder's tables from the heap, where what is kept of its work lies between them.
///
/// Nothing waits for it, and nothing is asked of the heap but a few blocks such as decoders have:
/// their pages are let go while they are ours, then they are freed. Returns at once; the work is
/// the background workers'. Thread: any.
void returnHolesSoon();

/// Does so now, for the holes of the calling thread.
void returnHoles();
/// The same after `bytes` and more than decoders have were freed at once.
void returnHolesOf(std::size_t bytes);

}  // namespace zaffo::media
