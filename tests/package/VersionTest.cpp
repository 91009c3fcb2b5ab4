// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "ZaffoPlayback.h"

namespace {

TEST(Version, NumberIsADoubleFoundByItsPlainName) {
  const void* symbol = dlsym(RTLD_DEFAULT, "ZaffoPlaybackVersionNumber");
  ASSERT_NE(symbol, nullptr) << dlerror();
  EXPECT_EQ(symbol, &ZaffoPlaybackVersionNumber);
  EXPECT_DOUBLE_EQ(*static_cast<const double*>(symbol), ZAFFO_TEST_VERSION_NUMBER);
}

TEST(Version, StringIsFoundByItsPlainName) {
  const void* symbol = dlsym(RTLD_DEFAULT, "ZaffoPlaybackVersionString");
  ASSERT_NE(symbol, nullptr) << dlerror();
  EXPECT_STREQ(*static_cast<const char* const*>(symbol), ZAFFO_TEST_VERSION_STRING);
}

}  // namespace
