// SPDX-License-Identifier: Apache-2.0
#include "feed/ClipLists.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "doubles/MainLoopUntil.h"
#include "doubles/ManualTime.h"
#include "feed/TemporaryFolder.h"

namespace zaffo::feed {
namespace {

using testing::ElementsAre;

class ClipListsTest : public testing::Test {
 protected:
  std::shared_ptr<const NSURL> file(const std::string& name, const std::string& text = "") const {
    if (!text.empty()) std::ofstream(folder.file(name)) << text;
    return NSURL::fileURLWithPath(folder.file(name));
  }
  /// What comes of it: names, and titles behind a colon.
  static std::vector<std::string> read(const URLs& urls) {
    std::optional<Clips> clips;
    readClipLists(urls, [&](Clips found) { clips = std::move(found); });
    EXPECT_TRUE(runMainLoopUntil([&] { return clips.has_value(); }, 20 * kNanosecondsPerSecond));
    std::vector<std::string> names;
    for (const auto& clip : clips.value_or(Clips())) {
      names.push_back(clip.url->lastPathComponent() + (clip.title.empty() ? "" : ":" + clip.title));
    }
    return names;
  }
  const TemporaryFolder folder;
};

TEST_F(ClipListsTest, WithoutAListNothingIsWaitedFor) {
  bool isDone = false;
  readClipLists({file("a.mp4"), file("b.mp4")}, [&](const Clips& clips) {
    isDone = true;
    EXPECT_EQ(clips.size(), 2U);
  });
  EXPECT_TRUE(isDone);
}

TEST_F(ClipListsTest, AListStandsForItsClips) {
  const auto first = file("one.m3u", "#EXTM3U\n#EXTINF:12,A title\nb.mp4\nc.mp4\n");
  const auto second = file("two.M3U8", "d.mp4\r\n\r\n# a remark\r\ne.mp4");
  EXPECT_THAT(read({file("a.mp4"), first, second, file("f.mp4")}),
              ElementsAre("a.mp4", "b.mp4:A title", "c.mp4", "d.mp4", "e.mp4", "f.mp4"));
}

TEST_F(ClipListsTest, AListThatCannotBeReadIsAPage) {
  EXPECT_THAT(read({file("none.m3u"), file("empty.m3u", "\n"), file("a.mp4")}),
              ElementsAre("none.m3u", "empty.m3u", "a.mp4"));
}

TEST_F(ClipListsTest, AVideoInSegmentsIsOne) {
  const auto list =
      file("video.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:4\n#EXTINF:4,\na.ts\n#EXT-X-ENDLIST\n");
  EXPECT_THAT(read({list}), ElementsAre("video.m3u8"));
}

}  // namespace
}  // namespace zaffo::feed
