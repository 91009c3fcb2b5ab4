// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/URLParts.h"

namespace zaffo {

namespace {

constexpr auto kNone = std::string_view::npos;

bool isASCIILetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isASCIIDigit(char c) {
  return c >= '0' && c <= '9';
}

int hexValue(char c) {
  if (isASCIIDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void appendEscape(std::string& text, char byte) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  const auto value = static_cast<unsigned char>(byte);
  text += '%';
  text += digits[value >> 4];
  text += digits[value & 15];
}

/// The length of the scheme at the start of `text`; no value when it does not start with one.
size_t schemeLength(std::string_view text) {
  if (text.empty() || !isASCIILetter(text.front())) return kNone;
  const size_t end =
      text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
  return end != kNone && text[end] == ':' ? end : kNone;
}

/// Cuts `text` off at the first `mark` and returns what follows it.
std::optional<std::string> cutTail(std::string_view& text, char mark) {
  const size_t at = text.find(mark);
  if (at == kNone) return std::nullopt;
  std::string tail(text.substr(at + 1));
  text = text.substr(0, at);
  return tail;
}

/// `reference` in place of what follows the last slash of the base's path (section 5.2.3).
std::string mergedPath(const URLParts& base, const std::string& reference) {
  if (base.authority && base.path.empty()) return "/" + reference;
  const size_t slash = base.path.rfind('/');
  return slash == std::string::npos ? reference : base.path.substr(0, slash + 1) + reference;
}

}  // namespace

URLParts URLParts::split(std::string_view text) {
  URLParts parts;
  if (const size_t length = schemeLength(text); length != kNone) {
    parts.scheme = std::string(text.substr(0, length));
    text.remove_prefix(length + 1);
  }
  parts.fragment = cutTail(text, '#');
  parts.query = cutTail(text, '?');
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const size_t end = text.find('/');
    parts.authority = std::string(text.substr(0, end));
    text = end == kNone ? std::string_view() : text.substr(end);
  }
  parts.path = std::string(text);
  return parts;
}

URLParts URLParts::resolvedAgainst(const URLParts& base) const {
  URLParts target = *this;
  target.path = removeDotSegments(path);
  if (scheme) return target;
  target.scheme = base.scheme;
  if (authority) return target;
  target.authority = base.authority;
  if (path.empty()) {
    target.path = base.path;
    if (!query) target.query = base.query;
  } else if (path.front() != '/') {
    target.path = removeDotSegments(mergedPath(base, path));
  }
  return target;
}

std::string URLParts::join() const {
  std::string text;
  if (scheme) text += *scheme + ":";
  // A path starting with two slashes would be taken for an authority where there is none.
  if (authority || path.starts_with("//")) text += "//" + authority.value_or("");
  text += path;
  if (query) text += "?" + *query;
  if (fragment) text += "#" + *fragment;
  return text;
}

std::string removeDotSegments(std::string_view path) {
  std::string output;
  while (!path.empty()) {
    if (path.starts_with("../")) {
      path.remove_prefix(3);
    } else if (path.starts_with("./") || path.starts_with("/./")) {
      path.remove_prefix(2);
    } else if (path == "/.") {
      path = "/";
    } else if (path.starts_with("/../") || path == "/..") {
      path = path.size() > 3 ? path.substr(3) : std::string_view("/");
      const size_t slash = output.rfind('/');
      output.resize(slash == std::string::npos ? 0 : slash);
    } else if (path == "." || path == "..") {
      path = {};
    } else {
      const size_t end = path.find('/', 1);
      output += path.substr(0, end);
      path = end == kNone ? std::string_view() : path.substr(end);
    }
  }
  return output;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
    if (high < 0 || low < 0 || high + low == 0) return std::nullopt;
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return decoded;
}

std::string percentEncodedPath(std::string_view path) {
  std::string encoded;
  for (const char c : path) {
    const bool plain = isASCIILetter(c) || isASCIIDigit(c) ||
                       std::string_view("/-._~!$&'()*+,=:@").find(c) != kNone;
    if (plain) {
      encoded += c;
    } else {
      appendEscape(encoded, c);
    }
  }
  return encoded;
}

std::optional<std::string> tidiedURLText(std::string_view text) {
  std::string tidied;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte == 0x7F) return std::nullopt;
    const bool foreign = byte > 0x7F || std::string_view("\"<>\\^`{|}").find(c) != kNone;
    if (foreign) {
      appendEscape(tidied, c);
    } else {
      tidied += c;
    }
  }
  return tidied;
}

}  // namespace zaffo
