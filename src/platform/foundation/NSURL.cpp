// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSURL.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <utility>

#include "platform/foundation/URLParts.h"

namespace zaffo {

namespace {

constexpr unsigned kHighestPort = 65535;

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

/// -1 for an empty text; no value for one that is not a port.
std::optional<int> parsedPort(const std::string& text) {
  if (text.empty()) return -1;
  unsigned port = 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stopped != end || port > kHighestPort) {
    return std::nullopt;
  }
  return static_cast<int>(port);
}

bool isIPv6Literal(const std::string& host) {
  return host.size() > 2 && host.front() == '[' && host.back() == ']' &&
         host.find_first_not_of("0123456789abcdef:.", 1) == host.size() - 1;
}

}  // namespace

std::shared_ptr<const NSURL> NSURL::URLWithString(const std::string& text) {
  const auto tidied = tidiedURLText(text);
  return tidied ? create(URLParts::split(*tidied)) : nullptr;
}

std::shared_ptr<const NSURL> NSURL::URLWithString(const std::string& text,
                                                  const std::shared_ptr<const NSURL>& base) {
  if (!base) return URLWithString(text);
  const auto tidied = tidiedURLText(text);
  if (!tidied) return nullptr;
  return create(URLParts::split(*tidied).resolvedAgainst(URLParts::split(base->absoluteString_)));
}

std::shared_ptr<const NSURL> NSURL::fileURLWithPath(const std::string& path) {
  std::error_code error;
  std::filesystem::path full = path;
  // Not std::filesystem::absolute, which fails for an empty path.
  if (full.is_relative()) full = std::filesystem::current_path(error) / full;
  URLParts parts;
  parts.scheme = "file";
  parts.authority = "";
  parts.path = percentEncodedPath(full.string());
  return create(std::move(parts));
}

std::shared_ptr<const NSURL> NSURL::create(URLParts parts) {
  if (!parts.scheme) return nullptr;
  *parts.scheme = lowered(*parts.scheme);
  const bool remote = *parts.scheme == "http" || *parts.scheme == "https";
  if (!remote && *parts.scheme != "file") return nullptr;

  const auto url = std::shared_ptr<NSURL>(new NSURL);
  if (parts.authority && !url->takeAuthority(*parts.authority)) return nullptr;
  const auto path = percentDecoded(parts.path);
  const bool escapesAreWhole = path && percentDecoded(parts.query.value_or("")) &&
                               percentDecoded(parts.fragment.value_or(""));
  if (!escapesAreWhole) return nullptr;
  if (remote ? url->host_.empty() : !path->starts_with('/')) return nullptr;

  url->absoluteString_ = parts.join();
  url->scheme_ = *parts.scheme;
  url->path_ = *path;
  url->query_ = parts.query.value_or("");
  return url;
}

/// Reads host and port out of "user@HOST:port" and lowers the host in place.
bool NSURL::takeAuthority(std::string& authority) {
  const size_t at = authority.rfind('@');
  const std::string user = at == std::string::npos ? "" : authority.substr(0, at + 1);
  std::string host = lowered(authority.substr(user.size()));
  const size_t colon = host.find(':', host.starts_with('[') ? host.find(']') : 0);
  const auto port = parsedPort(colon == std::string::npos ? "" : host.substr(colon + 1));
  const std::string portText = colon == std::string::npos ? "" : host.substr(colon);
  host.resize(host.size() - portText.size());
  if (!port || !percentDecoded(user)) return false;

  if (isIPv6Literal(host)) {
    host_ = host.substr(1, host.size() - 2);
  } else {
    const auto decoded = percentDecoded(host);
    if (!decoded || host.find_first_of("[]") != std::string::npos) return false;
    host_ = *decoded;
  }
  port_ = *port;
  authority = user + host + portText;
  return true;
}

std::string NSURL::lastPathComponent() const {
  const size_t end = path_.find_last_not_of('/');
  if (end == std::string::npos) return path_.empty() ? "" : "/";
  const size_t slash = path_.rfind('/', end);
  const size_t begin = slash == std::string::npos ? 0 : slash + 1;
  return path_.substr(begin, end + 1 - begin);
}

}  // namespace zaffo
