// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/ClipList.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "doubles/MainLoopUntil.h"
#include "doubles/ManualTime.h"
#include "feed/TemporaryFolder.h"
#include "platform/network/Playlist.h"
#include "platform/network/RemoteBytes.h"

namespace zaffo::network {
namespace {

class ClipListTest : public testing::Test {
 protected:
  struct Answer {
    std::vector<ListedClip> clips;
    std::string error;
  };
  static Answer load(const std::shared_ptr<const NSURL>& url) {
    std::optional<Answer> answer;
    loadClipList(url, [&](std::vector<ListedClip> clips, const NSErrorPtr& error) {
      EXPECT_FALSE(answer) << "called twice";
      EXPECT_EQ(clips.empty(), error != nullptr);
      answer = {std::move(clips), error ? error->localizedDescription() : ""};
    });
    EXPECT_FALSE(answer) << "inside the call";
    EXPECT_TRUE(runMainLoopUntil([&] { return answer.has_value(); }, 20 * kNanosecondsPerSecond));
    return answer.value_or(Answer());
  }
  Answer loadRemote(const std::string& path) {
    return load(NSURL::URLWithString(server.address(path)));
  }
  Answer loadFile(const std::string& text) {
    std::ofstream(folder.file("list.m3u")) << text;
    return load(NSURL::fileURLWithPath(folder.file("list.m3u")));
  }
  const feed::TemporaryFolder folder;
  FaultServer server;
};

TEST_F(ClipListTest, GivesTheClipsOfAServersList) {
  server.on("/a/list.m3u", {goodReply("#EXTM3U\n#EXTINF:5,One\nclip%201.mp4\n/clip2.mp4\n")});
  const auto answer = loadRemote("/a/list.m3u");
  ASSERT_EQ(answer.clips.size(), 2U) << answer.error;
  EXPECT_EQ(answer.clips[0].url->absoluteString(), server.address("/a/clip%201.mp4"));
  EXPECT_EQ(answer.clips[0].title, "One");
  EXPECT_EQ(answer.clips[1].url->absoluteString(), server.address("/clip2.mp4"));
  EXPECT_EQ(answer.clips[1].title, "");
}

TEST_F(ClipListTest, AServersListNamesNoFile) {
  server.on("/list.m3u", {goodReply("/etc/passwd\nfile:///etc/passwd\n")});
  const auto answer = loadRemote("/list.m3u");
  EXPECT_EQ(answer.error, "The server named an address that is not on the network.");
}

TEST_F(ClipListTest, AVideoInSegmentsIsItsOwnAddress) {
  server.on("/v.m3u8", {goodReply("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nlow.m3u8\n")});
  const auto answer = loadRemote("/v.m3u8");
  ASSERT_EQ(answer.clips.size(), 1U);
  EXPECT_EQ(answer.clips[0].url->absoluteString(), server.address("/v.m3u8"));
}

TEST_F(ClipListTest, TellsWhyThereIsNone) {
  FaultReply missing;
  missing.status = 404;
  server.on("/none.m3u", {missing});
  EXPECT_EQ(loadRemote("/none.m3u").error, "\"none.m3u\" does not exist (404).");
  server.on("/long.m3u", {goodReply(std::string(Playlist::kMostBytes + 1, '\n'))});
  EXPECT_EQ(loadRemote("/long.m3u").error, "The playlist cannot be played: it is too long.");
  EXPECT_EQ(loadFile("\n\n").error, "The playlist cannot be played: there is nothing in it.");
  EXPECT_EQ(load(NSURL::fileURLWithPath(folder.file("none"))).error,
            "The file \"" + folder.file("none") + "\" cannot be opened.");
  EXPECT_EQ(load(nullptr).error, "There is no address of a list.");
}

TEST_F(ClipListTest, AFileNamesFilesFromItsFolderOn) {
  const auto answer = loadFile(
      "sub/a b#1%.mp4\n/elsewhere/c.mp4\nhttps://example.org/d%20e.mp4\nfile:///f%20g.mp4\n");
  ASSERT_EQ(answer.clips.size(), 4U) << answer.error;
  EXPECT_EQ(answer.clips[0].url->path(), folder.file("sub/a b#1%.mp4"));
  EXPECT_EQ(answer.clips[1].url->path(), "/elsewhere/c.mp4");
  EXPECT_EQ(answer.clips[2].url->absoluteString(), "https://example.org/d%20e.mp4");
  EXPECT_EQ(answer.clips[3].url->path(), "/f g.mp4");
  EXPECT_EQ(loadFile("ftp://example.org/a.mp4\n").error,
            "\"ftp://example.org/a.mp4\" is not a file, http or https address.");
}

TEST(IsClipList, GoesByTheName) {
  const auto isList = [](const char* address) {
    return isClipList(*NSURL::URLWithString(address));
  };
  EXPECT_TRUE(isList("https://example.org/a.m3u"));
  EXPECT_TRUE(isList("https://example.org/a.M3U8?b=c.mp4"));
  EXPECT_FALSE(isList("https://example.org/a.mp4?b=c.m3u8"));
  EXPECT_FALSE(isList("https://example.org/m3u8"));
}

}  // namespace
}  // namespace zaffo::network
