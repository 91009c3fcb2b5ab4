// SPDX-License-Identifier: Apache-2.0
#include "platform/network/RequestFields.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace zaffo::network {

namespace {

/// The part of a path within which others lie: "/a" and "/a/" both are "/a/".
std::string folderOf(const NSURL& base) {
  std::string path = base.path();
  if (!path.ends_with('/')) path += '/';
  return path;
}

bool isBelow(const NSURL& address, const NSURL& base) {
  return isSameOrigin(address, base) && folderOf(address).starts_with(folderOf(base));
}

bool isNameCharacter(char c) {
  static constexpr std::string_view kOthers = "!#$%&'*+-.^_`|~";
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         kOthers.find(c) != std::string_view::npos;
}

bool isControl(char c) {
  return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
}

}  // namespace

bool RequestFields::isValid(const HttpField& field) {
  return !field.first.empty() && std::ranges::all_of(field.first, isNameCharacter) &&
         std::ranges::none_of(field.second, isControl);
}

void RequestFields::set(URL base, std::vector<HttpField> fields) {
  std::erase_if(given_, [&base](const Given& given) {
    return given.base->absoluteString() == base->absoluteString();
  });
  if (!fields.empty()) given_.push_back({std::move(base), std::move(fields)});
}

std::vector<HttpField> RequestFields::forAddress(const NSURL& address) const {
  const Given* nearest = nullptr;
  for (const Given& given : given_) {
    if (!isBelow(address, *given.base)) continue;
    if (!nearest || folderOf(*given.base).size() > folderOf(*nearest->base).size()) {
      nearest = &given;
    }
  }
  return nearest ? nearest->fields : std::vector<HttpField>();
}

}  // namespace zaffo::network
