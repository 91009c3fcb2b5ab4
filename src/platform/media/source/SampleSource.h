// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/foundation/Result.h"
#include "platform/media/Outcome.h"
#include "platform/media/Sample.h"
#include "platform/media/source/BufferedAhead.h"

namespace zaffo {
struct AVAssetTrack;
}

namespace zaffo::media {

/// Walks the compressed samples of one track in decode order. Thread: one at a time.
class SampleCursor {
 public:
  virtual ~SampleCursor() = default;

  /// Reads the next sample. Again: none is there yet, which the ready handler will tell. After End
  /// or Error it stays so until seek().
  [[nodiscard]] virtual Outcome next(Sample& sample) = 0;

  /// Goes to the last sync sample that decoding of what is shown at `time` can start from; the
  /// first one when `time` lies before it. Never waits. False when it cannot; what the place lacks
  /// is next()'s Error.
  [[nodiscard]] virtual bool seek(CMTime time) = 0;

  /// Why the last call failed, or the next next() will; null otherwise.
  [[nodiscard]] virtual NSErrorPtr error() const = 0;

  /// What a decoder of the samples needs to know, valid for the samples read from now on; owned by
  /// the cursor. Time bases are not part of it.
  [[nodiscard]] virtual const AVCodecParameters& codecParameters() const = 0;

  /// Called, on any thread, when next() may give more than Again. Set before the first next().
  virtual void setReadyHandler(std::function<void()> handler) { (void)handler; }
};

/// The tracks of an opened file or of a composition; parsed once, shared by all who read from it.
/// Thread: any.
class SampleSource {
 public:
  virtual ~SampleSource() = default;

  [[nodiscard]] virtual const std::vector<std::shared_ptr<const AVAssetTrack>>& tracks() const = 0;
  [[nodiscard]] virtual CMTime duration() const = 0;
  /// Why a track cannot be decoded, as far as the header tells: it is encrypted, or there is no
  /// decoder for it. Null when it can, or when only decoding will tell.
  [[nodiscard]] virtual NSErrorPtr whyNotDecoded(int trackID) const {
    static_cast<void>(trackID);
    return nullptr;
  }
  /// Why it cannot be played: why its first picture track cannot be decoded or, of sound alone, its
  /// first sound track; and of no track at all, that. Null when it can.
  [[nodiscard]] NSErrorPtr whyNotPlayed() const;
  [[nodiscard]] bool isPlayable() const { return !whyNotPlayed(); }

  /// Whether its sound tracks are parts of one sound, to be heard together; otherwise they are
  /// alternatives.
  [[nodiscard]] virtual bool soundTracksAreOne() const { return false; }
  /// Until when a track holds nothing from `time` on, as far as that is known without reading; an
  /// infinity when nothing follows.
  [[nodiscard]] virtual CMTime emptyUntil(int trackID, CMTime time) const {
    static_cast<void>(trackID);
    return time;
  }

  /// What is at hand behind the place where reading has come to.
  [[nodiscard]] virtual BufferedAhead bufferedAhead() const { return {}; }

  /// A new cursor at the start of a track. Takes microseconds: what is to be read or parsed for it
  /// is when it is first asked for a sample.
  virtual Result<std::unique_ptr<SampleCursor>> openCursor(int trackID) = 0;
};

}  // namespace zaffo::media
