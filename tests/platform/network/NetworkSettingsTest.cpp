// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/NetworkSettings.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "doubles/MainLoopUntil.h"
#include "feed/TemporaryFolder.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/network/RemoteBytes.h"
#include "platform/network/SharedResources.h"

namespace zaffo::network {
namespace {

class NetworkSettingsTest : public testing::Test {
 protected:
  ~NetworkSettingsTest() override {
    (void)errorOfFolder("");
    SharedResources::shared().forgetKept();
  }

  /// Why the folder is not used; empty when it is.
  static std::string errorOfFolder(const std::string& path) {
    std::optional<std::string> answer;
    NetworkSettings::shared().setCacheFolder(path, NetworkSettings::kUsualCacheBytes,
                                             [&answer](const NSErrorPtr& error) {
                                               answer = error ? error->localizedDescription() : "";
                                             });
    EXPECT_TRUE(runMainLoopUntil([&] { return answer.has_value(); }, int64_t{20'000'000'000}));
    return answer.value_or("no answer");
  }

  const feed::TemporaryFolder folder;
  FaultServer server;
};

TEST_F(NetworkSettingsTest, AFolderThatFailedIsTriedAgain) {
  const std::string path = folder.file("cache");
  const std::string why = "The folder \"" + path + "\" cannot be written to.";
  std::ofstream(path) << "no folder";
  EXPECT_EQ(errorOfFolder(path), why);
  EXPECT_EQ(errorOfFolder(path), why) << "and still does";
  std::filesystem::remove(path);
  EXPECT_EQ(errorOfFolder(path), "");
  EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST_F(NetworkSettingsTest, AFolderThatIsStillReadFromMayBeTakenAgain) {
  server.on("/clip", {goodReply(patternedBytes(100'000))});
  ASSERT_EQ(errorOfFolder(folder.path()), "");
  const auto read = SharedResources::shared().at(NSURL::URLWithString(server.address("/clip")));
  ASSERT_EQ(bringAll(*read).size(), 100'000U);
  EXPECT_EQ(errorOfFolder(""), "");
  EXPECT_EQ(errorOfFolder(folder.path()), "");
}

}  // namespace
}  // namespace zaffo::network
