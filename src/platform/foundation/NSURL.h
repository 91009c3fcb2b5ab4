#pragma once

#include <memory>
#include <string>

#include "platform/Export.h"

namespace zaffo {

/// The address of a video: file, http or https. Immutable and shared. Thread: any.
class ZAFFO_EXPORT NSURL {
 public:
  /// Parses an absolute URL ("file:///a%20b.mp4", "https://host/x?y"). Null when it is malformed.
  [[nodiscard]] static std::shared_ptr<const NSURL> URLWithString(const std::string& text);

  /// Parses `text` relative to `base` (RFC 3986, section 5.2). Null when it is malformed.
  [[nodiscard]] static std::shared_ptr<const NSURL> URLWithString(
      const std::string& text, const std::shared_ptr<const NSURL>& base);

  /// The file URL of a path; a relative path is taken from the working directory.
  [[nodiscard]] static std::shared_ptr<const NSURL> fileURLWithPath(const std::string& path);

  [[nodiscard]] const std::string& absoluteString() const { return absoluteString_; }
  [[nodiscard]] const std::string& scheme() const { return scheme_; }  ///< lower case
  [[nodiscard]] const std::string& host() const { return host_; }      ///< lower case; may be empty
  [[nodiscard]] int port() const { return port_; }                     ///< -1 when not given
  [[nodiscard]] const std::string& path() const { return path_; }      ///< escapes decoded
  [[nodiscard]] const std::string& query() const { return query_; }    ///< as written
  [[nodiscard]] bool isFileURL() const { return scheme_ == "file"; }
  [[nodiscard]] std::string lastPathComponent() const;

 private:
  NSURL() = default;

  std::string absoluteString_, scheme_, host_, path_, query_;
  int port_ = -1;
};

}  // namespace zaffo
