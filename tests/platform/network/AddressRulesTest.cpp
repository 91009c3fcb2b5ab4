// SPDX-License-Identifier: Apache-2.0
#include "platform/network/AddressRules.h"

#include <gtest/gtest.h>

#include "platform/network/NetworkError.h"

namespace zaffo::network {
namespace {

URL url(const std::string& text) {
  return NSURL::URLWithString(text);
}

std::string resolved(const std::string& text, const std::string& base, AddressRules rules = {}) {
  const auto address = rules.resolve(text, url(base));
  return address ? (*address)->absoluteString() : "refused";
}

TEST(AddressRules, LetTheNetworkNameWhatIsOnTheNetwork) {
  EXPECT_EQ(resolved("b.mp4?x=1", "https://a/f/c.m3u8"), "https://a/f/b.mp4?x=1");
  EXPECT_EQ(resolved("//other/b", "https://a/f/c"), "https://other/b");
  EXPECT_EQ(resolved("http://other/b", "http://a/c"), "http://other/b");
  EXPECT_EQ(resolved("https://other/b", "http://a/c"), "https://other/b");
}

TEST(AddressRules, NeverLetTheNetworkNameAFileOrAnotherScheme) {
  for (const char* const trick :
       {"file:///etc/passwd", "FILE:///etc/passwd", "file:/etc/passwd", "data:text/plain,x",
        "concat:/etc/passwd|/etc/hosts", "ftp://a/b", "gopher://a/b", "dict://a/b",
        "javascript:alert(1)", "pipe:0", "unix:/run/x", "subfile:/etc/passwd",
        " file:///etc/passwd", "\tfile:///etc/passwd", "http://", "http:///etc/passwd",
        "crypto:file:/etc/passwd", "hls+file:///etc/passwd"}) {
    EXPECT_EQ(resolved(trick, "http://a/c"), "refused") << trick;
    EXPECT_EQ(resolved(trick, "https://a/c", {.allowsInsecure = true}), "refused") << trick;
  }
}

TEST(AddressRules, LetWhatCameByHttpsNameHttpsAloneUnlessItIsAllowed) {
  EXPECT_EQ(resolved("http://a/b", "https://a/c"), "refused");
  EXPECT_EQ(resolved("http://a/b", "https://a/c", {.allowsInsecure = true}), "http://a/b");
  const auto refused = AddressRules().resolve("http://a/b", url("https://a/c"));
  EXPECT_EQ(refused.error()->domain(), NSURLErrorDomain);
  EXPECT_EQ(refused.error()->code(), NSURLErrorUnsupportedURL);
}

TEST(AddressRules, BoundTheLengthOfAnAddress) {
  const std::string path(AddressRules::kLongest, 'x');
  EXPECT_EQ(resolved("/" + path, "http://a/c"), "refused");
  EXPECT_EQ(resolved(path.substr(1), "http://a/c"), "http://a/" + path.substr(1));
}

TEST(AddressRules, TellOneOriginFromAnother) {
  EXPECT_TRUE(isSameOrigin(*url("https://a/b"), *url("https://a:443/c?d")));
  EXPECT_TRUE(isSameOrigin(*url("http://A:80/b"), *url("http://a/")));
  EXPECT_FALSE(isSameOrigin(*url("http://a/b"), *url("https://a/b")));
  EXPECT_FALSE(isSameOrigin(*url("http://a/b"), *url("http://a:81/b")));
  EXPECT_FALSE(isSameOrigin(*url("http://a/b"), *url("http://b.a/b")));
}

}  // namespace
}  // namespace zaffo::network
