// SPDX-License-Identifier: Apache-2.0
#include "platform/foundation/NSError.h"

#include <gtest/gtest.h>

namespace zaffo {
namespace {

TEST(NSError, KeepsDomainCodeTextsAndTheErrorUnderneath) {
  const auto cause = NSError::create("posix", 2);
  const auto error = NSError::create("com.zaffoapp.co", 500, {{"path", "/clip.mp4"}}, cause);
  EXPECT_EQ(error->domain(), "com.zaffoapp.co");
  EXPECT_EQ(error->code(), 500);
  EXPECT_EQ(error->userInfo().at("path"), "/clip.mp4");
  EXPECT_EQ(error->underlyingError(), cause);
  EXPECT_EQ(cause->underlyingError(), nullptr);
}

TEST(NSError, DescribesItselfWithItsOwnText) {
  const auto error = NSError::create("d", 1, {{NSLocalizedDescriptionKey, "The server is gone."}});
  EXPECT_EQ(error->localizedDescription(), "The server is gone.");
}

TEST(NSError, DescribesItselfByDomainAndCodeWithoutAText) {
  EXPECT_EQ(NSError::create("com.zaffoapp.media", 4567)->localizedDescription(),
            "The operation couldn't be completed. (com.zaffoapp.media error 4567.)");
  EXPECT_EQ(NSError::create("d", -3)->localizedDescription(),
            "The operation couldn't be completed. (d error -3.)");
}

TEST(NSError, TellsALogItsDomainCodeAndText) {
  const auto error = NSError::create("d", 7, {{NSLocalizedDescriptionKey, "The server is gone."}});
  EXPECT_EQ(error->description(), "Error Domain=d Code=7 \"The server is gone.\"");
  EXPECT_EQ(NSError::create("d", -3)->description(),
            "Error Domain=d Code=-3 \"The operation couldn't be completed. (d error -3.)\"");
}

TEST(NSError, TextIsUnderThePlatformsKey) {
  EXPECT_STREQ(NSLocalizedDescriptionKey, "NSLocalizedDescription");
}

TEST(NSErrorException, CarriesItsErrorAndSaysItsText) {
  const auto error = NSError::create("d", 1, {{NSLocalizedDescriptionKey, "No asset."}});
  try {
    throw NSErrorException(error);
  } catch (const std::exception& exception) {
    EXPECT_STREQ(exception.what(), "No asset.");
    const auto* raised = dynamic_cast<const NSErrorException*>(&exception);
    ASSERT_NE(raised, nullptr);
    EXPECT_EQ(raised->error(), error);
  }
}

TEST(NSErrorException, StandsWithoutAnError) {
  const NSErrorException exception(nullptr);
  EXPECT_EQ(exception.error(), nullptr);
  EXPECT_STREQ(exception.what(), "The operation couldn't be completed.");
}

}  // namespace
}  // namespace zaffo
