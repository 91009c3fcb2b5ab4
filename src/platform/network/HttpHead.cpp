// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpHead.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <limits>

namespace zaffo::network {

namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r\n";
  const auto begin = text.find_first_not_of(kSpace);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kSpace) - begin + 1);
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

/// A number of digits alone, or null.
std::optional<int64_t> number(std::string_view text) {
  int64_t value = 0;
  const char* const end = text.data() + text.size();
  if (text.empty() || text.front() == '-') return std::nullopt;
  const auto [stop, failure] = std::from_chars(text.data(), end, value);
  if (failure != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

std::optional<ContentRange> ContentRange::parse(std::string_view text) {
  constexpr std::string_view kUnit = "bytes ";
  if (!lowerCase(text).starts_with(kUnit)) return std::nullopt;
  text.remove_prefix(kUnit.size());
  const auto slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto span = trimmed(text.substr(0, slash));
  const auto total = trimmed(text.substr(slash + 1));
  ContentRange range;
  range.size = number(total);
  if (!range.size && total != "*") return std::nullopt;
  if (span == "*") return range;
  const auto dash = span.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const auto first = number(span.substr(0, dash));
  const auto last = number(span.substr(dash + 1));
  if (!first || !last || *last < *first || (range.size && *last >= *range.size)) {
    return std::nullopt;
  }
  range.first = *first;
  range.last = *last;
  return range;
}

CacheControl CacheControl::parse(std::string_view text) {
  constexpr std::string_view kMaxAge = "max-age=";
  CacheControl control;
  while (!text.empty()) {
    const auto comma = std::min(text.find(','), text.size());
    const std::string directive = lowerCase(trimmed(text.substr(0, comma)));
    text.remove_prefix(std::min(comma + 1, text.size()));
    if (directive == "no-store") control.forbidsKeeping = true;
    if (directive.starts_with("no-cache")) control.demandsAsking = true;
    if (!directive.starts_with(kMaxAge)) continue;
    std::string_view seconds = std::string_view(directive).substr(kMaxAge.size());
    if (seconds.starts_with('"')) seconds = seconds.substr(1, seconds.find_last_not_of('"'));
    control.maxAge = number(seconds);
  }
  return control;
}

bool Validator::contradicts(const Validator& other) const {
  if (!entityTag.empty() && !other.entityTag.empty()) return entityTag != other.entityTag;
  return !lastModified.empty() && !other.lastModified.empty() && lastModified != other.lastModified;
}

std::string Validator::forIfRange() const {
  if (entityTag.empty()) return lastModified;
  return entityTag.starts_with("W/") ? std::string() : entityTag;
}

void HttpHead::addLine(std::string_view line) {
  line = trimmed(line);
  if (line.starts_with("HTTP/")) {
    fields_.clear();
    const auto space = line.find(' ');
    status_ = space == std::string_view::npos
                  ? 0
                  : static_cast<int>(number(line.substr(space + 1, 3)).value_or(0));
    return;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string name = lowerCase(trimmed(line.substr(0, colon)));
  const std::string value(trimmed(line.substr(colon + 1)));
  const bool isNew = fields_.emplace(name, value).second;
  if (!isNew && name == "cache-control") fields_[name] += ", " + value;
}

const std::string& HttpHead::field(const std::string& name) const {
  static const std::string none;
  const auto found = fields_.find(name);
  return found == fields_.end() ? none : found->second;
}

std::optional<int64_t> HttpHead::contentLength() const {
  return number(field("content-length"));
}

std::optional<ContentRange> HttpHead::contentRange() const {
  return ContentRange::parse(field("content-range"));
}

Validator HttpHead::validator() const {
  return {field("etag"), field("last-modified")};
}

CacheControl HttpHead::cacheControl() const {
  return CacheControl::parse(field("cache-control"));
}

int64_t HttpHead::age() const {
  const std::string& text = field("age");
  const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  // One beyond all bounds is very old.
  return number(text).value_or(isNumber ? std::numeric_limits<int64_t>::max() : 0);
}

std::optional<int64_t> HttpHead::retryAfter(int64_t now) const {
  const std::string& text = field("retry-after");
  if (text.empty()) return std::nullopt;
  if (const auto seconds = number(text)) return seconds;
  const auto date = static_cast<int64_t>(curl_getdate(text.c_str(), nullptr));
  if (date < 0) return std::nullopt;
  return std::max<int64_t>(0, date - now);
}

bool HttpHead::isPlain() const {
  const std::string encoding = lowerCase(field("content-encoding"));
  return encoding.empty() || encoding == "identity";
}

}  // namespace zaffo::network
