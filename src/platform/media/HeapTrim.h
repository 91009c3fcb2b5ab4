#pragma once

namespace zaffo::media {

/// Has memory that was freed given back to the system half a second from now, once for all who ask
/// until then. A decoder that goes leaves holes in the heap that are larger than what is kept of
/// its work. Returns at once; the work, a fraction of a millisecond, is a background worker's.
/// Nothing where the C library has no such call. Thread: any.
void trimHeapSoon();

}  // namespace zaffo::media
