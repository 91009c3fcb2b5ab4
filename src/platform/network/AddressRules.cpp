// SPDX-License-Identifier: Apache-2.0
#include "platform/network/AddressRules.h"

#include "platform/network/NetworkError.h"

namespace zaffo::network {

namespace {

NSErrorPtr refused(const std::string& why) {
  return networkError(NSURLErrorUnsupportedURL, why);
}

int portOf(const NSURL& address) {
  constexpr int kPlain = 80;
  constexpr int kSecure = 443;
  if (address.port() >= 0) return address.port();
  return address.scheme() == "https" ? kSecure : kPlain;
}

/// What a person wrote into a file of their own: an address, or a path from the file's folder on.
Result<URL> resolveInFile(const std::string& text, const NSURL& base) {
  if (text.find("://") == std::string::npos) {
    if (text.starts_with('/')) return NSURL::fileURLWithPath(text);
    const std::string& path = base.path();
    return NSURL::fileURLWithPath(path.substr(0, path.rfind('/') + 1) + text);
  }
  const URL address = NSURL::URLWithString(text);
  if (!address) return refused("\"" + text + "\" is not a file, http or https address.");
  return address;
}

}  // namespace

Result<URL> AddressRules::resolve(const std::string& text, const URL& base) const {
  if (text.size() > kLongest) return refused("An address in what was read is too long.");
  if (base->isFileURL()) return resolveInFile(text, *base);
  const URL address = NSURL::URLWithString(text, base);
  // What is of another scheme is no address at all for NSURL, which parses file, http and https.
  if (!address || !isRemote(*address)) {
    return refused("The server named an address that is not on the network.");
  }
  const bool isDowngrade = base->scheme() == "https" && address->scheme() != "https";
  if (isDowngrade && !allowsInsecure) {
    return refused("The server led from a secure address to an insecure one.");
  }
  return address;
}

bool isRemote(const NSURL& address) {
  return address.scheme() == "http" || address.scheme() == "https";
}

bool isSameOrigin(const NSURL& one, const NSURL& other) {
  return one.scheme() == other.scheme() && one.host() == other.host() &&
         portOf(one) == portOf(other);
}

}  // namespace zaffo::network
