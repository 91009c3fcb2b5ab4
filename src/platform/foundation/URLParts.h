// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zaffo {

/// The five parts of a URL reference as written (RFC 3986, section 3); an absent part differs from
/// an empty one. Pure text processing, with no opinion on schemes. Thread: any.
struct URLParts {
  std::optional<std::string> scheme;
  std::optional<std::string> authority;
  std::string path;
  std::optional<std::string> query;
  std::optional<std::string> fragment;

  /// Splits an absolute URL or a relative reference (RFC 3986, appendix B).
  [[nodiscard]] static URLParts split(std::string_view text);

  /// What this reference means when read in a document at `base` (section 5.2.2).
  [[nodiscard]] URLParts resolvedAgainst(const URLParts& base) const;

  /// The text of the parts (section 5.3).
  [[nodiscard]] std::string join() const;
};

/// `path` without its "." and ".." segments (section 5.2.4).
[[nodiscard]] std::string removeDotSegments(std::string_view path);

/// `text` with its percent escapes decoded; no value when an escape is invalid or stands for a zero
/// byte, which no path or host may contain.
[[nodiscard]] std::optional<std::string> percentDecoded(std::string_view text);

/// `path` with every byte escaped that a URL's path may not contain as it is.
[[nodiscard]] std::string percentEncodedPath(std::string_view path);

/// `text` with the bytes escaped that a URL may not contain but people write (letters beyond ASCII,
/// quotes, braces). No value when it contains a space or a control character.
[[nodiscard]] std::optional<std::string> tidiedURLText(std::string_view text);

}  // namespace zaffo
