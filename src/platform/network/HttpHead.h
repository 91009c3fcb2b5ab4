// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace zaffo::network {

/// No file is as long: what lies up to here may be added to without a thought.
inline constexpr int64_t kFarthest = std::numeric_limits<int64_t>::max() / 2;

/// What "Content-Range: bytes 0-99/200" says.
struct ContentRange {
  int64_t first = 0;
  int64_t last = -1;            ///< inclusive; below `first` for "bytes */200"
  std::optional<int64_t> size;  ///< null for "*"

  /// Null for what is malformed, of another unit or contradicts itself.
  [[nodiscard]] static std::optional<ContentRange> parse(std::string_view text);
};

/// By which two answers are known to be of the same bytes. Empty where the server says nothing.
struct Validator {
  std::string entityTag;     ///< with quotes, and W/ where it is weak
  std::string lastModified;  ///< as the server wrote it

  /// Whether both say something of the same kind, and not the same.
  [[nodiscard]] bool contradicts(const Validator& other) const;
  /// What an If-Range may hold; empty when nothing is strong enough.
  [[nodiscard]] std::string forIfRange() const;

  bool operator==(const Validator&) const = default;
};

/// What "Cache-Control: no-cache, max-age=60" says.
struct CacheControl {
  bool forbidsKeeping = false;    ///< no-store
  bool demandsAsking = false;     ///< no-cache
  std::optional<int64_t> maxAge;  ///< seconds

  /// What is malformed says nothing.
  [[nodiscard]] static CacheControl parse(std::string_view text);
};

/// Status and header fields of an answer. Pure. Thread: any.
class HttpHead {
 public:
  /// Takes one line as it came. A status line begins a new head.
  void addLine(std::string_view line);

  [[nodiscard]] int status() const { return status_; }
  /// The value of a field, by its name in lower case; empty when there is none. The first counts,
  /// save of Cache-Control, whose lines are one list.
  [[nodiscard]] const std::string& field(const std::string& name) const;

  [[nodiscard]] std::optional<int64_t> contentLength() const;
  [[nodiscard]] std::optional<ContentRange> contentRange() const;
  [[nodiscard]] Validator validator() const;
  [[nodiscard]] CacheControl cacheControl() const;
  /// Seconds that the answer lay in caches on its way.
  [[nodiscard]] int64_t age() const;
  /// Seconds that Retry-After asks to wait, as a number or a date; null when it does not.
  /// `now` is in seconds since 1970.
  [[nodiscard]] std::optional<int64_t> retryAfter(int64_t now) const;
  /// Whether the bytes come as they are, neither compressed nor otherwise encoded.
  [[nodiscard]] bool isPlain() const;

 private:
  int status_ = 0;
  std::map<std::string, std::string> fields_;
};

}  // namespace zaffo::network
