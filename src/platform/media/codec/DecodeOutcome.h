#pragma once

namespace zaffo::media {

enum class DecodeOutcome {
  Ok,     ///< taken, or a frame was given
  Again,  ///< send: receive first; receive: send first
  End,    ///< drained
  Error,  ///< see error(); the decoder can go on with a later sample
};

}  // namespace zaffo::media
