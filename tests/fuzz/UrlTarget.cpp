// SPDX-License-Identifier: Apache-2.0

// Parses the bytes as an address, alone and relative to others, and as the path of a file.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "platform/foundation/NSURL.h"

namespace zaffo {
namespace {

using fuzz::require;
using URL = std::shared_ptr<const NSURL>;

/// What is true of every address, however it came about.
void examine(const URL& url) {
  if (!url) return;
  const std::string& scheme = url->scheme();
  require(scheme == "file" || scheme == "http" || scheme == "https", "the scheme is a known one");
  require(url->isFileURL() || !url->host().empty(), "a remote address has a host");
  require(url->port() >= -1 && url->port() <= 65535, "the port is in its range");
  require(url->path().find('\0') == std::string::npos, "no path is cut short by a zero byte");
  const std::string last = url->lastPathComponent();
  require(last == "/" || last.find('/') == std::string::npos, "the last component is one");

  const URL again = NSURL::URLWithString(url->absoluteString());
  require(again != nullptr, "an address can be parsed again");
  require(again->absoluteString() == url->absoluteString() && again->host() == url->host() &&
              again->port() == url->port() && again->path() == url->path() &&
              again->query() == url->query(),
          "an address means the same when parsed again");
}

void examinePath(const std::string& path) {
  const URL url = NSURL::fileURLWithPath(path);
  examine(url);
  if (!path.starts_with('/') || path.find('\0') != std::string::npos) return;
  require(url && url->isFileURL() && url->path() == path, "a path comes back out of its address");
}

}  // namespace
}  // namespace zaffo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  using namespace zaffo;
  const std::string text(data, data + size);
  const URL url = NSURL::URLWithString(text);
  examine(url);
  examinePath(text);
  examinePath("/" + text);
  // The first line is an address of its own, and what the rest is relative to.
  const std::size_t line = text.find('\n');
  const URL base = NSURL::URLWithString(text.substr(0, line));
  examine(base);
  const std::string rest = line == std::string::npos ? text : text.substr(line + 1);
  examine(NSURL::URLWithString(rest, base));
  examine(NSURL::URLWithString(rest, NSURL::URLWithString("http://host/a/b/c?d")));
  examine(NSURL::URLWithString(rest, NSURL::URLWithString("file:///a/b/c")));
  return 0;
}
