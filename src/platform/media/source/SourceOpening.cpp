// SPDX-License-Identifier: Apache-2.0
#include "platform/media/source/SourceOpening.h"

namespace zaffo::media {

Outcome SourceOpening::step() {
  const bool ended = task_.run([this] { opened_.emplace(FileSampleSource::open(bytes_, task_)); });
  if (!ended) return Outcome::Again;
  return *opened_ ? Outcome::Ready : Outcome::Error;
}

}  // namespace zaffo::media
