// SPDX-License-Identifier: Apache-2.0
#include "platform/media/playback/ItemEnd.h"

#include <gtest/gtest.h>

namespace zaffo::media {
namespace {

CMTime seconds(int64_t value) {
  return CMTimeMake(value, 1);
}

struct Row {
  const char* what;
  CMTime duration;
  std::optional<DataEnd> pictures, sound;
  std::optional<CMTime> end;
};

constexpr std::nullopt_t kNone = std::nullopt;
DataEnd underWayAt(int64_t time) {
  return {false, seconds(time)};
}
DataEnd overAt(int64_t time) {
  return {true, seconds(time)};
}
const DataEnd kOverSomewhere{true, std::nullopt};

TEST(ItemEnd, IsTheDurationOrWhereTheDataEndsBefore) {
  const Row rows[] = {
      {"both go on", seconds(10), underWayAt(4), underWayAt(5), seconds(10)},
      {"the sound goes on", seconds(10), overAt(4), underWayAt(5), seconds(10)},
      {"the pictures go on", seconds(10), underWayAt(4), overAt(5), seconds(10)},
      {"both ended early", seconds(10), overAt(7), overAt(8), seconds(8)},
      {"the pictures last longer", seconds(10), overAt(9), overAt(8), seconds(9)},
      {"more data than told", seconds(10), overAt(12), overAt(11), seconds(10)},
      {"no sound", seconds(10), overAt(7), kNone, seconds(7)},
      {"no pictures", seconds(10), kNone, overAt(8), seconds(8)},
      {"sound that ended nobody knows where", seconds(10), overAt(7), kOverSomewhere, seconds(10)},
      {"nothing at all", seconds(10), kNone, kNone, kCMTimeZero},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(endOfItem(row.duration, row.pictures, row.sound), row.end) << row.what;
  }
}

TEST(ItemEnd, IsWhereTheDataEndsIfTheContainerDoesNotTell) {
  for (const CMTime untold : {kCMTimeIndefinite, kCMTimeInvalid, kCMTimeZero}) {
    const Row rows[] = {
        {"both go on", untold, underWayAt(4), underWayAt(5), kNone},
        {"the sound goes on", untold, overAt(4), underWayAt(5), kNone},
        {"both ended", untold, overAt(7), overAt(8), seconds(8)},
        {"no sound", untold, overAt(7), kNone, seconds(7)},
        {"no pictures", untold, kNone, overAt(8), seconds(8)},
        {"sound that ended nobody knows where", untold, overAt(7), kOverSomewhere, seconds(7)},
        {"that alone", untold, kNone, kOverSomewhere, kNone},
    };
    for (const Row& row : rows) {
      EXPECT_EQ(endOfItem(row.duration, row.pictures, row.sound), row.end) << row.what;
    }
  }
}

}  // namespace
}  // namespace zaffo::media
