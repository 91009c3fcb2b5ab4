// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/foundation/Result.h"

namespace zaffo::media {

/// Bytes of a file or of a remote resource, which need not be here yet. Nothing here ever waits:
/// who reads takes what is held, and has the rest brought. Thread: any, several at once.
class ByteSource {
 public:
  /// Bytes that somebody waits for. Letting go of it gives up: the handler is not called any more
  /// once the destructor has returned (which waits for one that runs, unless it runs inside of it).
  class Want {
   public:
    virtual ~Want() = default;
  };

  /// What is here behind the place where reading has come to, without a gap.
  struct Ahead {
    bool isAll = true;   ///< also what lies before the place
    bool isRest = true;  ///< all that follows
    bool isFull = true;  ///< no more is brought until some of it is read
    int64_t count = 0;   ///< bytes, where that is not the rest
  };

  virtual ~ByteSource() = default;

  /// Copies what is held from `offset` on: the number of bytes, 0 at the end, -EAGAIN where the
  /// first of them is not here, another negative errno when it will not come (see error()).
  [[nodiscard]] virtual int64_t readHeld(int64_t offset, std::span<uint8_t> bytes) = 0;

  /// Has `count` bytes from `offset` on brought here and kept at least for as long as the Want is.
  /// `handler` is called once, on any thread and never inside this call, when they are all here, or
  /// those up to the end are, or one of them will not come.
  [[nodiscard]] virtual std::unique_ptr<Want> want(int64_t offset, int64_t count,
                                                   std::function<void()> handler) = 0;

  /// Where bytes come bit by bit, so many are worth going on with for one who can do with fewer
  /// than he asked for.
  [[nodiscard]] virtual int64_t worthGoingOn() const { return std::numeric_limits<int64_t>::max(); }

  /// Where reading has come to is where somebody read or wanted last, of all who do. Local storage
  /// counts as being here.
  [[nodiscard]] virtual Ahead ahead() const { return {}; }

  /// Bytes in all; null while that is not known.
  [[nodiscard]] virtual std::optional<int64_t> size() const = 0;
  /// Why a read failed last; null when none did.
  [[nodiscard]] virtual NSErrorPtr error() const = 0;
  /// What a person knows it by: a path or an address.
  [[nodiscard]] virtual const std::string& name() const = 0;
};

}  // namespace zaffo::media
