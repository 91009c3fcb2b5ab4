// SPDX-License-Identifier: Apache-2.0
#include "platform/network/Representation.h"

#include <gtest/gtest.h>

#include "platform/network/NetworkError.h"

namespace zaffo::network {
namespace {

using Kind = Representation::Verdict::Kind;

HttpHead head(std::initializer_list<std::string> lines) {
  HttpHead made;
  for (const std::string& line : lines) made.addLine(line);
  return made;
}

std::string textOf(const Representation::Verdict& verdict) {
  return verdict.error ? verdict.error->localizedDescription() : "";
}

/// One that a first answer has told about: 100 bytes under the tag "a".
Representation known() {
  Representation clip("\"clip\"");
  static_cast<void>(
      clip.judge(head({"HTTP/1.1 206 X", "Content-Range: bytes 0-99/100", "ETag: \"a\""}), 0, 0));
  return clip;
}

TEST(Representation, AsksForARangeAndThenForThatOfTheSameBytes) {
  EXPECT_EQ(Representation("x").fieldsFor(0, {}), (std::vector<HttpField>{{"Range", "bytes=0-"}}));
  EXPECT_EQ(known().fieldsFor(50, 60),
            (std::vector<HttpField>{{"Range", "bytes=50-59"}, {"If-Range", "\"a\""}}));
}

TEST(Representation, InDoubtAsksWhetherItIsAnother) {
  Representation clip = known();
  clip.doubt();
  EXPECT_EQ(clip.fieldsFor(50, 60),
            (std::vector<HttpField>{{"Range", "bytes=0-"}, {"If-None-Match", "\"a\""}}));
  EXPECT_EQ(clip.judge(head({"HTTP/1.1 503 X"}), 0, 0).kind, Kind::Later);
  EXPECT_TRUE(clip.isInDoubt());
  EXPECT_EQ(clip.judge(head({"HTTP/1.1 304 X"}), 0, 0).kind, Kind::Same);
  EXPECT_FALSE(clip.isInDoubt());
  EXPECT_EQ(clip.size(), 100);
}

TEST(Representation, InDoubtTellsTheSameBytesFromOthers) {
  for (const char* const tag : {"ETag: \"a\"", "ETag: \"b\"", "X: nothing"}) {
    Representation clip = known();
    clip.doubt();
    const auto verdict =
        clip.judge(head({"HTTP/1.1 206 X", "Content-Range: bytes 0-99/100", tag}), 0, 0);
    EXPECT_EQ(verdict.kind, Kind::Body);
    EXPECT_EQ(verdict.isAnother, std::string(tag) != "ETag: \"a\"") << tag;
    EXPECT_FALSE(clip.isInDoubt());
  }
  Representation clip = known();
  clip.doubt();
  EXPECT_TRUE(clip.judge(head({"HTTP/1.1 200 X", "Content-Length: 7"}), 0, 0).isAnother);
  EXPECT_EQ(clip.size(), 7);
}

TEST(Representation, InDoubtGoesByTheDateWhereThereIsNoTag) {
  Representation clip("x");
  (void)clip.judge(head({"HTTP/1.1 200 X", "Content-Length: 7", "Last-Modified: Monday"}), 0, 0);
  clip.doubt();
  EXPECT_EQ(clip.fieldsFor(0, {}),
            (std::vector<HttpField>{{"Range", "bytes=0-"}, {"If-Modified-Since", "Monday"}}));
}

TEST(Representation, LearnsSizeAndRangesFromTheFirstAnswer) {
  EXPECT_EQ(known().size(), 100);
  EXPECT_TRUE(known().servesRanges());
  Representation whole("x");
  const auto verdict = whole.judge(head({"HTTP/1.1 200 X", "Content-Length: 7"}), 0, 0);
  EXPECT_EQ(verdict.kind, Kind::Body);
  EXPECT_EQ(whole.size(), 7);
  EXPECT_FALSE(whole.servesRanges());
  EXPECT_TRUE(whole.fieldsFor(0, {}).empty());
}

TEST(Representation, ReadsFromTheStartWhatIgnoresTheRange) {
  auto clip = known();
  const auto verdict = clip.judge(head({"HTTP/1.1 200 X", "Content-Length: 100"}), 50, 0);
  EXPECT_EQ(verdict.kind, Kind::Body);
  EXPECT_EQ(verdict.offset, 0);
}

TEST(Representation, IsNoLongerPlayedOnceItChanged) {
  for (const auto& answer :
       {head({"HTTP/1.1 200 X", "Content-Length: 100", "ETag: \"b\""}),
        head({"HTTP/1.1 200 X", "Content-Length: 101"}),
        head({"HTTP/1.1 206 X", "Content-Range: bytes 50-99/100", "ETag: \"b\""}),
        head({"HTTP/1.1 206 X", "Content-Range: bytes 50-100/101"}), head({"HTTP/1.1 416 X"})}) {
    auto clip = known();
    const auto verdict = clip.judge(answer, 50, 0);
    EXPECT_EQ(verdict.kind, Kind::Refused);
    EXPECT_EQ(textOf(verdict), "\"clip\" changed while it was played.");
  }
}

TEST(Representation, TakesNoOtherRangeThanItAskedFor) {
  for (const auto& answer :
       {head({"HTTP/1.1 206 X", "Content-Range: bytes 40-99/100"}),
        head({"HTTP/1.1 206 X", "Content-Range: bytes 60-99/100"}),
        head({"HTTP/1.1 206 X", "Content-Range: bytes 50-99/100", "Content-Length: 51"})}) {
    auto clip = known();
    EXPECT_EQ(textOf(clip.judge(answer, 50, 0)),
              "The server of \"clip\" sent another range than it was asked for.");
  }
  for (const auto& answer :
       {head({"HTTP/1.1 206 X"}),
        head({"HTTP/1.1 206 X", "Content-Range: bytes 50-9223372036854775807/*"})}) {
    auto clip = known();
    EXPECT_EQ(textOf(clip.judge(answer, 50, 0)),
              "The server of \"clip\" did not say which range it sent.");
  }
}

TEST(Representation, EndsWhereTheServerSays) {
  Representation empty("x");
  EXPECT_EQ(empty.judge(head({"HTTP/1.1 416 X", "Content-Range: bytes */0"}), 0, 0).kind,
            Kind::End);
  EXPECT_EQ(empty.size(), 0);
  auto clip = known();
  EXPECT_EQ(clip.judge(head({"HTTP/1.1 416 X", "Content-Range: bytes */100"}), 100, 0).kind,
            Kind::End);
  Representation other("x");
  EXPECT_EQ(other.judge(head({"HTTP/1.1 416 X", "Content-Range: bytes */9"}), 5, 0).kind,
            Kind::Refused);
}

TEST(Representation, TellsTroubleThatMayPassFromThatWhichWillNot) {
  const auto judged = [](const std::string& status) {
    return Representation("\"clip\"").judge(head({"HTTP/1.1 " + status, "Retry-After: 3"}), 0, 0);
  };
  for (const char* const status : {"429 X", "500 X", "502 X", "503 X", "504 X"}) {
    EXPECT_EQ(judged(status).kind, Kind::Later);
    EXPECT_EQ(judged(status).retryAfter, 3);
  }
  EXPECT_EQ(judged("404 X").kind, Kind::Refused);
  EXPECT_EQ(textOf(judged("404 X")), "\"clip\" does not exist (404).");
  EXPECT_EQ(judged("404 X").error->code(), NSURLErrorFileDoesNotExist);
  EXPECT_EQ(textOf(judged("403 X")), "\"clip\" may not be read (403).");
  EXPECT_EQ(textOf(judged("401 X")), "\"clip\" may be read by those signed in only (401).");
  EXPECT_EQ(textOf(judged("418 X")), "\"clip\" is refused by the server (418).");
  EXPECT_EQ(textOf(judged("304 X")), "\"clip\" is refused by the server (304).");
}

TEST(Representation, TakesNothingCompressed) {
  Representation clip("\"clip\"");
  EXPECT_EQ(textOf(clip.judge(head({"HTTP/1.1 200 X", "Content-Encoding: gzip"}), 0, 0)),
            "The server of \"clip\" compressed the file, which it must not.");
}

TEST(Representation, FollowsARedirectThatSaysWhere) {
  Representation clip("x");
  EXPECT_EQ(clip.judge(head({"HTTP/1.1 302 X", "Location: /b"}), 0, 0).kind, Kind::Redirect);
  EXPECT_EQ(clip.judge(head({"HTTP/1.1 302 X"}), 0, 0).kind, Kind::Refused);
}

}  // namespace
}  // namespace zaffo::network
