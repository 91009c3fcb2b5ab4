// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSURL.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace zaffo {
namespace {

std::string resolved(const std::string& text, const std::string& base) {
  const auto url = NSURL::URLWithString(text, NSURL::URLWithString(base));
  return url ? url->absoluteString() : "malformed";
}

TEST(NSURL, ReadsTheParts) {
  const auto url = NSURL::URLWithString("https://user:pw@Example.COM:8443/a%20b/c.mp4?x=%31&y#t=3");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->scheme(), "https");
  EXPECT_EQ(url->host(), "example.com");
  EXPECT_EQ(url->port(), 8443);
  EXPECT_EQ(url->path(), "/a b/c.mp4");
  EXPECT_EQ(url->query(), "x=%31&y");
  EXPECT_EQ(url->lastPathComponent(), "c.mp4");
  EXPECT_FALSE(url->isFileURL());
}

TEST(NSURL, KeepsTheAddressAsWrittenButForSchemeAndHostCase) {
  EXPECT_EQ(NSURL::URLWithString("HTTP://Me@HOST:80/A%2fb/../C?Q#F")->absoluteString(),
            "http://Me@host:80/A%2fb/../C?Q#F");
  EXPECT_EQ(NSURL::URLWithString("http://h")->absoluteString(), "http://h");
  EXPECT_EQ(NSURL::URLWithString("http://h/?")->absoluteString(), "http://h/?");
}

TEST(NSURL, HasNoPortUnlessGiven) {
  EXPECT_EQ(NSURL::URLWithString("http://h/")->port(), -1);
  EXPECT_EQ(NSURL::URLWithString("http://h:/")->port(), -1);
  EXPECT_EQ(NSURL::URLWithString("http://h:0/")->port(), 0);
  EXPECT_EQ(NSURL::URLWithString("http://h:65535/")->port(), 65535);
}

TEST(NSURL, ReadsAnIPv6Host) {
  const auto url = NSURL::URLWithString("http://[::1]:8080/x");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->host(), "::1");
  EXPECT_EQ(url->port(), 8080);
  EXPECT_EQ(NSURL::URLWithString("http://[FE80::1]/")->host(), "fe80::1");
}

TEST(NSURL, ReadsFileURLsOfAllThreeForms) {
  for (const char* text : {"file:///a%20b.mp4", "file:/a%20b.mp4", "file://localhost/a%20b.mp4"}) {
    const auto url = NSURL::URLWithString(text);
    ASSERT_TRUE(url) << text;
    EXPECT_TRUE(url->isFileURL());
    EXPECT_EQ(url->path(), "/a b.mp4");
  }
}

TEST(NSURL, EscapesWhatPeopleWriteIntoAddresses) {
  const auto url = NSURL::URLWithString("https://h/caf\xC3\xA9/{1}.mp4?q=\"\xC3\xA9\"");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), "https://h/caf%C3%A9/%7B1%7D.mp4?q=%22%C3%A9%22");
  EXPECT_EQ(url->path(), "/caf\xC3\xA9/{1}.mp4");
}

TEST(NSURL, IsNullForAMalformedAddress) {
  const std::vector<std::string> malformed = {"",
                                              "clip.mp4",
                                              "/clip.mp4",
                                              "//host/clip.mp4",
                                              "://host/",
                                              "1http://host/",
                                              "http:",
                                              "http://",
                                              "http:///clip.mp4",
                                              "http://:80/",
                                              "https://user@/",
                                              "http://h:99999/",
                                              "http://h:65536/",
                                              "http://h:-1/",
                                              "http://h:8a/",
                                              "http://h: 80/",
                                              "http://h/%",
                                              "http://h/%4",
                                              "http://h/%zz",
                                              "http://h/?%g0",
                                              "http://h/#%1",
                                              "http://h/a b",
                                              "http://h/\n",
                                              "http://h/\x7F",
                                              "http://h/%00",
                                              "http://%00/",
                                              "http://%zz/",
                                              "http://[::1/",
                                              "http://[]/",
                                              "http://[x]/",
                                              "http://a]b/",
                                              "http://%4@h/",
                                              "file:",
                                              "file:clip.mp4",
                                              "file://host",
                                              "ftp://h/clip.mp4",
                                              "concat:/a|/b",
                                              "data:video/mp4;base64,AA",
                                              std::string("http://h/\0x", 11)};
  for (const auto& text : malformed) EXPECT_FALSE(NSURL::URLWithString(text)) << text;
}

TEST(NSURL, ResolvesReferencesAsTheStandardLists) {
  // RFC 3986, section 5.4.
  const std::vector<std::pair<std::string, std::string>> examples = {
      {"g", "http://a/b/c/g"},
      {"./g", "http://a/b/c/g"},
      {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"},
      {"//g", "http://g"},
      {"?y", "http://a/b/c/d;p?y"},
      {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"},
      {"g#s", "http://a/b/c/g#s"},
      {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"},
      {"g;x", "http://a/b/c/g;x"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {"", "http://a/b/c/d;p?q"},
      {".", "http://a/b/c/"},
      {"./", "http://a/b/c/"},
      {"..", "http://a/b/"},
      {"../", "http://a/b/"},
      {"../g", "http://a/b/g"},
      {"../..", "http://a/"},
      {"../../", "http://a/"},
      {"../../g", "http://a/g"},
      {"../../../g", "http://a/g"},
      {"../../../../g", "http://a/g"},
      {"/./g", "http://a/g"},
      {"/../g", "http://a/g"},
      {"g.", "http://a/b/c/g."},
      {".g", "http://a/b/c/.g"},
      {"g..", "http://a/b/c/g.."},
      {"..g", "http://a/b/c/..g"},
      {"./../g", "http://a/b/g"},
      {"./g/.", "http://a/b/c/g/"},
      {"g/./h", "http://a/b/c/g/h"},
      {"g/../h", "http://a/b/c/h"},
      {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
      {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"g?y/../x", "http://a/b/c/g?y/../x"},
      {"g#s/./x", "http://a/b/c/g#s/./x"},
      {"g#s/../x", "http://a/b/c/g#s/../x"}};
  for (const auto& [reference, expected] : examples) {
    EXPECT_EQ(resolved(reference, "http://a/b/c/d;p?q"), expected) << reference;
  }
}

TEST(NSURL, ResolvesAgainstABaseWithoutAPath) {
  EXPECT_EQ(resolved("seg.ts", "http://h"), "http://h/seg.ts");
  EXPECT_EQ(resolved("?x", "http://h"), "http://h?x");
}

TEST(NSURL, ResolvesAgainstAFile) {
  EXPECT_EQ(resolved("b.mp4", "file:///videos/list.m3u8"), "file:///videos/b.mp4");
  EXPECT_EQ(resolved("b.mp4", "file:/videos/list.m3u8"), "file:/videos/b.mp4");
}

TEST(NSURL, TakesAnAbsoluteReferenceForItself) {
  EXPECT_EQ(resolved("https://other/x", "http://h/y"), "https://other/x");
  EXPECT_EQ(resolved("data:video/mp4,AA", "http://h/y"), "malformed");
  EXPECT_EQ(resolved("a b", "http://h/y"), "malformed");
}

TEST(NSURL, TakesATextAloneWithoutABase) {
  EXPECT_TRUE(NSURL::URLWithString("http://h/x", nullptr));
  EXPECT_FALSE(NSURL::URLWithString("x", nullptr));
}

TEST(NSURL, FileURLSurvivesAnyPath) {
  const std::string path = "/a b/100%/#1?\xC3\xA9/[x];'\"\n.mp4";
  const auto url = NSURL::fileURLWithPath(path);
  ASSERT_TRUE(url);
  EXPECT_TRUE(url->isFileURL());
  EXPECT_EQ(url->path(), path);
  EXPECT_EQ(url->query(), "");
  const auto again = NSURL::URLWithString(url->absoluteString());
  ASSERT_TRUE(again);
  EXPECT_EQ(again->path(), path);
}

TEST(NSURL, FileURLOfARelativePathStartsAtTheWorkingDirectory) {
  const std::string here = std::filesystem::current_path().string();
  EXPECT_EQ(NSURL::fileURLWithPath("clip.mp4")->path(), here + "/clip.mp4");
  EXPECT_EQ(NSURL::fileURLWithPath("../clip.mp4")->path(), here + "/../clip.mp4");
  EXPECT_EQ(NSURL::fileURLWithPath("")->path(), here + "/");
}

TEST(NSURL, FileURLIsNullForAPathWithAZeroByte) {
  EXPECT_FALSE(NSURL::fileURLWithPath(std::string("/a\0b", 4)));
}

TEST(NSURL, LastPathComponentIsDecodedAndWithoutASlash) {
  EXPECT_EQ(NSURL::URLWithString("http://h/a/b%20c.mp4?x/y")->lastPathComponent(), "b c.mp4");
  EXPECT_EQ(NSURL::URLWithString("http://h/a/b//")->lastPathComponent(), "b");
  EXPECT_EQ(NSURL::URLWithString("http://h/")->lastPathComponent(), "/");
  EXPECT_EQ(NSURL::URLWithString("http://h")->lastPathComponent(), "");
}

TEST(NSURL, TakesNoPathForAHostWhenDotSegmentsLeaveTwoSlashes) {
  const auto base = NSURL::URLWithString("http://base/x");
  for (const std::string text : {"file:/.//a/b", "file:/c/..//a/b"}) {
    const auto url = NSURL::URLWithString(text, base);
    ASSERT_TRUE(url) << text;
    EXPECT_EQ(url->absoluteString(), "file:////a/b");
    EXPECT_EQ(url->host(), "");
    EXPECT_EQ(url->path(), "//a/b");
    const auto again = NSURL::URLWithString(url->absoluteString());
    ASSERT_TRUE(again) << text;
    EXPECT_EQ(again->path(), "//a/b");
    EXPECT_EQ(again->host(), "");
  }
}

TEST(NSURL, ReadsBackWhateverItAccepts) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::minstd_rand random(seed);
  const std::string alphabet = "htp:/fileHOST[]@?#%.;0aF&= \xC3\xA9\x01";
  const std::vector<std::string> starts = {"", "http://h", "file:///", "https://h:1/"};
  const auto base = NSURL::URLWithString("http://base/x/y?z");
  int accepted = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string text = starts[random() % starts.size()];
    for (auto length = random() % 12; length > 0; --length) {
      text += alphabet[random() % alphabet.size()];
    }
    for (const auto& url : {NSURL::URLWithString(text), NSURL::URLWithString(text, base)}) {
      if (!url) continue;
      ++accepted;
      const auto again = NSURL::URLWithString(url->absoluteString());
      ASSERT_TRUE(again) << text << " became " << url->absoluteString();
      EXPECT_EQ(again->absoluteString(), url->absoluteString());
      EXPECT_EQ(again->path(), url->path());
      EXPECT_EQ(again->host(), url->host());
    }
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace zaffo
