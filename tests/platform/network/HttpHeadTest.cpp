// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpHead.h"

#include <gtest/gtest.h>

namespace zaffo::network {
namespace {

HttpHead head(std::initializer_list<const char*> lines) {
  HttpHead made;
  for (const char* const line : lines) made.addLine(line);
  return made;
}

TEST(HttpHead, HasTheStatusAndTheFieldsOfTheLastAnswer) {
  const auto last = head({"HTTP/1.1 103 Early Hints\r\n", "Link: x\r\n", "\r\n", "HTTP/2 200\r\n",
                          "Content-LENGTH:  12 \r\n", "a line without a colon\r\n", "\r\n"});
  EXPECT_EQ(last.status(), 200);
  EXPECT_EQ(last.field("content-length"), "12");
  EXPECT_EQ(last.contentLength(), 12);
  EXPECT_EQ(last.field("link"), "");
}

TEST(HttpHead, TakesNoLengthThatIsNone) {
  for (const char* const length : {"-1", "", "12x", "1 2", "99999999999999999999", "+5"}) {
    HttpHead with = head({"HTTP/1.1 200 OK"});
    with.addLine(std::string("Content-Length: ") + length);
    EXPECT_EQ(with.contentLength(), std::nullopt) << length;
  }
}

TEST(HttpHead, KnowsWhenBytesAreEncoded) {
  EXPECT_TRUE(head({"HTTP/1.1 200 OK"}).isPlain());
  EXPECT_TRUE(head({"HTTP/1.1 200 OK", "Content-Encoding: Identity"}).isPlain());
  EXPECT_FALSE(head({"HTTP/1.1 200 OK", "Content-Encoding: gzip"}).isPlain());
}

TEST(HttpHead, ReadsRetryAfterAsSecondsAndAsADate) {
  constexpr int64_t kNow = 784'111'777 - 30;
  const auto after = [](const std::string& value) {
    HttpHead with = head({"HTTP/1.1 429 Too Many"});
    with.addLine("Retry-After: " + value);
    return with.retryAfter(kNow);
  };
  EXPECT_EQ(after("7"), 7);
  EXPECT_EQ(after("Sun, 06 Nov 1994 08:49:37 GMT"), 30);
  EXPECT_EQ(after("Sun, 06 Nov 1994 08:00:00 GMT"), 0);
  EXPECT_EQ(after("soon"), std::nullopt);
  EXPECT_EQ(head({"HTTP/1.1 503 X"}).retryAfter(kNow), std::nullopt);
}

TEST(ContentRange, IsReadInAllItsForms) {
  const auto part = ContentRange::parse("bytes 5-9/20");
  ASSERT_TRUE(part);
  EXPECT_EQ(part->first, 5);
  EXPECT_EQ(part->last, 9);
  EXPECT_EQ(part->size, 20);
  EXPECT_EQ(ContentRange::parse("Bytes 5-9/*")->size, std::nullopt);
  const auto none = ContentRange::parse("bytes */20");
  ASSERT_TRUE(none);
  EXPECT_LT(none->last, none->first);
  EXPECT_EQ(none->size, 20);
}

TEST(ContentRange, IsRefusedWhereItContradictsItself) {
  for (const char* const text : {"", "bytes", "bytes 5-9", "items 5-9/20", "bytes 9-5/20",
                                 "bytes 5-20/20", "bytes -9/20", "bytes 5-/20", "bytes 5-9/x"}) {
    EXPECT_FALSE(ContentRange::parse(text)) << text;
  }
}

TEST(Validator, ContradictsOneOfTheSameKindOnly) {
  const Validator tagged{"\"a\"", "Monday"};
  EXPECT_FALSE(tagged.contradicts({"\"a\"", "Tuesday"}));
  EXPECT_TRUE(tagged.contradicts({"\"b\"", "Monday"}));
  EXPECT_TRUE(tagged.contradicts({"", "Tuesday"}));
  EXPECT_FALSE(tagged.contradicts({"", ""}));
}

TEST(Validator, AsksWithNothingWeak) {
  EXPECT_EQ((Validator{"\"a\"", "Monday"}).forIfRange(), "\"a\"");
  EXPECT_EQ((Validator{"W/\"a\"", "Monday"}).forIfRange(), "");
  EXPECT_EQ((Validator{"", "Monday"}).forIfRange(), "Monday");
}

}  // namespace
}  // namespace zaffo::network
