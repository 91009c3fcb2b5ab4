// SPDX-License-Identifier: Apache-2.0
#include "platform/network/RequestFields.h"

#include <gtest/gtest.h>

namespace zaffo::network {
namespace {

const std::vector<HttpField> kToken{{"Authorization", "Bearer 1"}};
const std::vector<HttpField> kOther{{"Cookie", "id=2"}};

class RequestFieldsTest : public testing::Test {
 protected:
  [[nodiscard]] std::vector<HttpField> at(const std::string& address) const {
    return fields.forAddress(*NSURL::URLWithString(address));
  }
  void set(const std::string& base, std::vector<HttpField> given) {
    fields.set(NSURL::URLWithString(base), std::move(given));
  }
  RequestFields fields;
};

TEST_F(RequestFieldsTest, AreForTheAddressAndWhatLiesBelowIt) {
  set("https://host/videos", kToken);
  EXPECT_EQ(at("https://host/videos"), kToken);
  EXPECT_EQ(at("https://host/videos/"), kToken);
  EXPECT_EQ(at("https://host/videos/a/b.mp4?q=1"), kToken);
  EXPECT_EQ(at("https://host:443/videos/a.mp4"), kToken);
  EXPECT_TRUE(at("https://host/videos2/a.mp4").empty());
  EXPECT_TRUE(at("https://host/").empty());
}

TEST_F(RequestFieldsTest, GoToNoOtherServer) {
  set("https://host/", kToken);
  EXPECT_EQ(at("https://host/a.mp4"), kToken);
  EXPECT_TRUE(at("http://host/a.mp4").empty());
  EXPECT_TRUE(at("https://host:8443/a.mp4").empty());
  EXPECT_TRUE(at("https://host.example/a.mp4").empty());
}

TEST_F(RequestFieldsTest, OfSeveralTheNearestCount) {
  set("https://host/a/b", kOther);
  set("https://host", kToken);
  EXPECT_EQ(at("https://host/a/b/c"), kOther);
  EXPECT_EQ(at("https://host/a/c"), kToken);
}

TEST_F(RequestFieldsTest, AreReplacedAndTakenBack) {
  set("https://host/a", kToken);
  set("https://host/a", kOther);
  EXPECT_EQ(at("https://host/a"), kOther);
  set("https://host/a", {});
  EXPECT_TRUE(at("https://host/a").empty());
}

TEST_F(RequestFieldsTest, ThoseFurtherOutCountAgainOnceTheNearerAreTakenBack) {
  set("https://host", kToken);
  set("https://host/a", kOther);
  set("https://host/a", {});
  EXPECT_EQ(at("https://host/a/b"), kToken);
}

TEST(RequestFields, TellsWhatCannotStandInARequest) {
  EXPECT_TRUE(RequestFields::isValid({"X-Token", "a b\t\"c\""}));
  EXPECT_TRUE(RequestFields::isValid({"X-Token", ""}));
  EXPECT_FALSE(RequestFields::isValid({"", "a"}));
  EXPECT_FALSE(RequestFields::isValid({"X Token", "a"}));
  EXPECT_FALSE(RequestFields::isValid({"X:Token", "a"}));
  EXPECT_FALSE(RequestFields::isValid({"X-Token", "a\r\nInjected: 1"}));
  EXPECT_FALSE(RequestFields::isValid({"X-Token", std::string("a\0b", 3)}));
  EXPECT_FALSE(RequestFields::isValid({"X-Token", "a\x7f"}));
}

}  // namespace
}  // namespace zaffo::network
