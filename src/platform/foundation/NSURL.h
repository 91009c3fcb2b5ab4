// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>

#include "platform/Export.h"

namespace zaffo {

struct URLParts;

/// The address of a video: file, http or https. Immutable and shared. Thread: any.
///
/// The parsing functions return null for anything malformed: another scheme, no host in an http or
/// https address, a port that is not a number up to 65535, an invalid percent escape or one for a
/// zero byte, a space or control character. Letters beyond ASCII, quotes and braces are accepted
/// and percent-escaped.
class ZAFFO_EXPORT NSURL {
 public:
  /// Parses an absolute URL ("file:///a%20b.mp4", "https://host/x?y"). Null when it is malformed.
  [[nodiscard]] static std::shared_ptr<const NSURL> URLWithString(const std::string& text);

  /// Parses `text` relative to `base` (RFC 3986, section 5.2), or on its own when `base` is null.
  /// Null when it is malformed.
  [[nodiscard]] static std::shared_ptr<const NSURL> URLWithString(
      const std::string& text, const std::shared_ptr<const NSURL>& base);

  /// The file URL of a path; a relative path is resolved against the working directory, and an
  /// empty one is the working directory. Dot segments are kept, since they may lead through a
  /// symbolic link.
  [[nodiscard]] static std::shared_ptr<const NSURL> fileURLWithPath(const std::string& path);

  /// The whole address as written, except that scheme and host are in lower case.
  [[nodiscard]] const std::string& absoluteString() const { return absoluteString_; }
  [[nodiscard]] const std::string& scheme() const { return scheme_; }  ///< lower case
  /// Lower case, escapes decoded, an IPv6 address without its brackets; may be empty for files.
  [[nodiscard]] const std::string& host() const { return host_; }
  [[nodiscard]] int port() const { return port_; }                   ///< -1 when not given
  [[nodiscard]] const std::string& path() const { return path_; }    ///< escapes decoded
  [[nodiscard]] const std::string& query() const { return query_; }  ///< as written
  [[nodiscard]] bool isFileURL() const { return scheme_ == "file"; }

  /// The last part of the path, escapes decoded, a closing slash left out; "/" for the root, empty
  /// for an empty path.
  [[nodiscard]] std::string lastPathComponent() const;

 private:
  NSURL() = default;

  [[nodiscard]] static std::shared_ptr<const NSURL> create(URLParts parts);
  [[nodiscard]] bool takeAuthority(std::string& authority);

  std::string absoluteString_, scheme_, host_, path_, query_;
  int port_ = -1;
};

}  // namespace zaffo
