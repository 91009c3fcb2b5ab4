// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/StreamOpening.h"

#include "platform/streaming/StreamServer.h"

namespace zaffo::streaming {
namespace {

TEST(StreamList, IsKnownByItsFirstBytes) {
  const auto isList = [](const std::string& text) {
    return StreamOpening::isList({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  };
  EXPECT_TRUE(isList("#EXTM3U\n#E"));
  EXPECT_TRUE(isList("\xEF\xBB\xBF#EXTM3U"));
  EXPECT_FALSE(isList("#EXTM3"));
  EXPECT_FALSE(isList("<html>#EXTM3U"));
  EXPECT_FALSE(isList(""));
}

class StreamOpeningTest : public testing::Test {
 protected:
  /// Why a list cannot be opened; empty when it can.
  std::string refusalOf(const std::string& text) {
    network::SharedResources::shared().forgetKept();
    streams_.put("/list.m3u8", "#EXTM3U\n" + text);
    return media::textOf(StreamServer::tryToOpen(streams_.url("/list.m3u8")).error());
  }

  StreamServer streams_;
};

constexpr const char* kCannot = "The stream cannot be played: ";

TEST_F(StreamOpeningTest, RefusesAListThatLeadsOnAndOn) {
  const std::string loop = "#EXT-X-STREAM-INF:BANDWIDTH=1000\nlist.m3u8\n";
  EXPECT_EQ(refusalOf(loop), std::string(kCannot) + "its lists lead to further lists.");
  EXPECT_EQ(streams_.server.requests().size(), 1U);
  streams_.put("/deep.m3u8", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1000\ndeeper.m3u8\n");
  EXPECT_EQ(refusalOf("#EXT-X-STREAM-INF:BANDWIDTH=1000\ndeep.m3u8\n"),
            std::string(kCannot) + "its lists lead to further lists.");
}

TEST_F(StreamOpeningTest, RefusesAddressesThatAreNotOnTheNetwork) {
  const std::string refusal = "The server named an address that is not on the network.";
  for (const char* address : {"file:///etc/passwd", "data:video/mp2t;base64,AAAA",
                              "ftp://127.0.0.1/a.ts", "concat:a|b", "crypto:a.ts"}) {
    EXPECT_EQ(refusalOf("#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" + std::string(address) +
                        "\n#EXT-X-ENDLIST\n"),
              refusal)
        << address;
    EXPECT_EQ(refusalOf("#EXT-X-TARGETDURATION:2\n#EXT-X-MAP:URI=\"" + std::string(address) +
                        "\"\n#EXTINF:2,\na.m4s\n#EXT-X-ENDLIST\n"),
              refusal)
        << address;
    EXPECT_EQ(refusalOf("#EXT-X-STREAM-INF:BANDWIDTH=1000\n" + std::string(address) + "\n"),
              refusal)
        << address;
  }
}

TEST_F(StreamOpeningTest, RefusesWhatIsNoStream) {
  EXPECT_EQ(refusalOf("#EXTINF:2,A clip\na.mp4\n"),
            std::string(kCannot) + "its list is one of clips.");
  EXPECT_EQ(refusalOf("#EXT-X-TARGETDURATION:2\n#EXT-X-ENDLIST\n"),
            std::string(kCannot) + "there is nothing in it.");
  streams_.put("/page.ts", "<html>Please log in.</html>");
  EXPECT_NE(refusalOf("#EXT-X-TARGETDURATION:2\n#EXTINF:2,\npage.ts\n#EXT-X-ENDLIST\n")
                .find("is not in a format that can be played."),
            std::string::npos);
}

TEST_F(StreamOpeningTest, ASegmentThatIsAListOpensNothing) {
  streams_.put("/inner.ts", "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nfile:///etc/passwd\n");
  EXPECT_NE(refusalOf("#EXT-X-TARGETDURATION:2\n#EXTINF:2,\ninner.ts\n#EXT-X-ENDLIST\n")
                .find("is not in a format that can be played."),
            std::string::npos);
  EXPECT_EQ(streams_.server.requests().size(), 2U);
}

TEST_F(StreamOpeningTest, RefusesAListThatNeverEnds) {
  std::string lines(network::Playlist::kMostBytes, '\n');
  EXPECT_EQ(refusalOf(lines).substr(0, 1), "\"") << "too long";
}

/// Neither memory nor the network is the list's to claim.
TEST_F(StreamOpeningTest, RefusesAHeaderThatIsSaidToBeHuge) {
  streams_.put("/init.mp4", std::string(2'000'000, 'x'));
  streams_.put("/a.m4s", "x");
  EXPECT_EQ(refusalOf("#EXT-X-TARGETDURATION:2\n"
                      "#EXT-X-MAP:URI=\"init.mp4\",BYTERANGE=\"4000000000@0\"\n"
                      "#EXTINF:2,\na.m4s\n#EXT-X-ENDLIST\n"),
            "\"" + streams_.server.address("/init.mp4") + "\" is too long.");
  for (const auto& request : streams_.server.requests()) EXPECT_NE(request.path, "/init.mp4");
}

TEST_F(StreamOpeningTest, SoundThatComesApartTakesThePlaceOfTheOther) {
  streams_.serve("ts");
  streams_.serve("sound_fmp4");
  streams_.put("/master.m3u8",
               "#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"x\",LANGUAGE=\"fr\","
               "URI=\"other.m3u8\"\n"
               "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"y\",LANGUAGE=\"de\",DEFAULT=YES,"
               "URI=\"sound_fmp4/list.m3u8\"\n"
               "#EXT-X-STREAM-INF:BANDWIDTH=1000,AUDIO=\"a\"\nts/list.m3u8\n");
  const auto source = StreamServer::open(streams_.url("/master.m3u8"));
  ASSERT_TRUE(source);
  ASSERT_EQ(source->tracks().size(), 2U);
  EXPECT_EQ(source->tracks()[1]->languageCode, "de");
  EXPECT_EQ(source->tracks()[1]->naturalTimeScale, 48000) << "that of the MP4";
}

}  // namespace
}  // namespace zaffo::streaming
