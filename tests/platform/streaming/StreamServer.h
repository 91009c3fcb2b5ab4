// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "doubles/FaultServer.h"
#include "media/Clips.h"
#include "platform/media/Decoding.h"
#include "platform/network/NetworkError.h"
#include "platform/network/RemoteBytes.h"
#include "platform/network/SharedResources.h"
#include "platform/streaming/StreamOpening.h"

namespace zaffo::streaming {

/// The streams that tests/media/make-stream-clips makes, on a server of loopback.
class StreamServer {
 public:
  // A server of another test may have had the same port.
  StreamServer() { network::SharedResources::shared().forgetKept(); }

  [[nodiscard]] static std::string fileOf(const std::string& path) {
    std::ifstream file(std::string(ZAFFO_TEST_CLIPS) + "/streams" + path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// Serves a stream's folder; its list is "/NAME/list.m3u8".
  void serve(const std::string& name) {
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(ZAFFO_TEST_CLIPS) + "/streams/" + name)) {
      const std::string path = "/" + name + "/" + entry.path().filename().string();
      server.on(path, {network::goodReply(fileOf(path), "\"" + path + "\"")});
      paths_.push_back(path);
    }
  }
  void put(const std::string& path, const std::string& text) {
    server.on(path, {network::goodReply(text, "\"" + path + "\"")});
    paths_.push_back(path);
  }

  [[nodiscard]] network::URL url(const std::string& path) const {
    return NSURL::URLWithString(server.address(path));
  }
  [[nodiscard]] network::URL listOf(const std::string& name) const {
    return url("/" + name + "/list.m3u8");
  }

  /// Has all that is served brought, and keeps it: nobody who reads it has to wait.
  void hold() {
    for (const auto& path : paths_) {
      held_.push_back(network::SharedResources::shared().at(url(path)));
      network::await(*held_.back(), 0, 100'000'000);
    }
  }

  /// Opens a stream, or tells why it cannot.
  [[nodiscard]] static Result<std::shared_ptr<media::SampleSource>> tryToOpen(
      const network::URL& list, StreamServices services = StreamServices::shared()) {
    const auto ready = std::make_shared<std::counting_semaphore<>>(0);
    StreamOpening opening(list, std::move(services));
    opening.setReadyHandler([ready] { ready->release(); });
    while (opening.step() == media::Outcome::Again) {
      if (ready->try_acquire_for(std::chrono::seconds(20))) continue;
      return network::networkError(network::NSURLErrorTimedOut, "nothing came");
    }
    return opening.take();
  }
  [[nodiscard]] static std::shared_ptr<media::SampleSource> open(
      const network::URL& list, StreamServices services = StreamServices::shared()) {
    auto opened = tryToOpen(list, std::move(services));
    EXPECT_TRUE(opened) << media::textOf(opened.error());
    return std::move(opened).valueOr(nullptr);
  }

  /// Serves a master list of the small and the large rendition, both of which are held; its
  /// address.
  [[nodiscard]] network::URL holdRenditions() {
    serve("small");
    serve("large");
    put("/master.m3u8",
        "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=3000000,RESOLUTION=384x216\nlarge/list.m3u8\n"
        "#EXT-X-STREAM-INF:BANDWIDTH=500000,RESOLUTION=96x54\nsmall/list.m3u8\n");
    hold();
    return url("/master.m3u8");
  }

  /// The network, with a throughput of `rates` in turn each time it is asked for, then of the last.
  [[nodiscard]] static StreamServices servicesWith(std::vector<double> rates) {
    auto services = StreamServices::shared();
    const auto next = std::make_shared<std::atomic<std::size_t>>(0);
    services.bitsPerSecond = [rates = std::move(rates), next] {
      return std::optional(rates[std::min(next->fetch_add(1), rates.size() - 1)]);
    };
    return services;
  }

  FaultServer server;

 private:
  std::vector<std::string> paths_;
  std::vector<std::shared_ptr<network::HttpResource>> held_;
};

}  // namespace zaffo::streaming
