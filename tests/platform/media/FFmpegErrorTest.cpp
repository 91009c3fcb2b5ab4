// SPDX-License-Identifier: Apache-2.0
#include "platform/media/FFmpegError.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/media/FFmpegCommon.h"

namespace zaffo::media {
namespace {

TEST(FFmpegError, AnErrorHasADomainACodeAndATextForAPerson) {
  const NSErrorPtr error = makeError(AVErrorDecodeFailed, "It is broken.");
  EXPECT_EQ(error->domain(), AVFoundationErrorDomain);
  EXPECT_EQ(error->code(), AVErrorDecodeFailed);
  EXPECT_EQ(error->localizedDescription(), "It is broken.");
  EXPECT_EQ(error->underlyingError(), nullptr);
}

TEST(FFmpegError, WhatFFmpegSaidLiesBeneath) {
  const NSErrorPtr error = makeFFmpegError(AVErrorUnknown, "It is broken.", AVERROR_INVALIDDATA);
  EXPECT_EQ(error->code(), AVErrorUnknown);
  ASSERT_TRUE(error->underlyingError());
  EXPECT_EQ(error->underlyingError()->domain(), FFmpegErrorDomain);
  EXPECT_EQ(error->underlyingError()->code(), AVERROR_INVALIDDATA);
  EXPECT_EQ(error->underlyingError()->localizedDescription(),
            "Invalid data found when processing input");
}

TEST(FFmpegError, WhatTheSystemSaidLiesBeneath) {
  const NSErrorPtr error = makePosixError(AVErrorUnknown, "It is not there.", ENOENT);
  ASSERT_TRUE(error->underlyingError());
  EXPECT_EQ(error->underlyingError()->domain(), NSPOSIXErrorDomain);
  EXPECT_EQ(error->underlyingError()->code(), ENOENT);
  EXPECT_EQ(error->underlyingError()->localizedDescription(), "No such file or directory");
}

TEST(FFmpegError, WhoeverWantsNoErrorGetsNone) {
  setError(nullptr, makeError(AVErrorUnknown, "unheard"));
  NSErrorPtr error;
  setError(&error, makeError(AVErrorUnknown, "heard"));
  EXPECT_TRUE(error);
}

}  // namespace
}  // namespace zaffo::media
