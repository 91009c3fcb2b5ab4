// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <memory>
#include <utility>

#include "platform/foundation/NSError.h"

namespace zaffo {

/// What the fast path adds to the platform's asset reader.
struct AVAssetReaderExtension {
  /// Why there are no more samples. Thrown; never leaves the fast path. Thread: any.
  class ReadError final : public std::exception {
   public:
    enum class Case {
      Failed = 0,      ///< the asset reader has failed; error() says why
      Canceled = 1,    ///< the reader was cancelled, or gives no samples though it has not ended
      ReachedEnd = 2,  ///< every sample of the time range has been delivered
    };

    /// The domain under which it is passed on as an NSError; the code is the case's number.
    static constexpr const char* domain = "ZaffoPlayback.AVAssetReaderExtension.ReadError";

    [[nodiscard]] static ReadError failed(NSErrorPtr error);
    [[nodiscard]] static ReadError canceled() { return ReadError(Case::Canceled, nullptr); }
    [[nodiscard]] static ReadError reachedEnd() { return ReadError(Case::ReachedEnd, nullptr); }

    [[nodiscard]] Case kind() const { return kind_; }
    /// For Failed, the reader's own error; null otherwise.
    [[nodiscard]] const NSErrorPtr& error() const { return error_; }

    /// Domain and number only: the reader's own error is not part of it.
    [[nodiscard]] NSErrorPtr asNSError() const;
    [[nodiscard]] const char* what() const noexcept override { return domain; }

   private:
    ReadError(Case kind, NSErrorPtr error) : kind_(kind), error_(std::move(error)) {}

    Case kind_;
    NSErrorPtr error_;
  };
};

}  // namespace zaffo
