// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <any>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fast/FastTest.h"
#include "fast/PlaybackSession.h"

namespace zaffo {

/// A session over platform objects out of a script.
class SessionTest : public FastTest {
 protected:
  /// What a completion was told: "" for success, else domain, code and description.
  using Reports = std::vector<std::string>;

  static PlaybackSession::Completion into(Reports& reports) {
    return [&reports](const NSErrorPtr& error) {
      reports.push_back(error ? error->domain() + " " + std::to_string(error->code()) + " " +
                                    error->localizedDescription()
                              : "");
    };
  }

  /// Makes the session, and starts it with `samples` a run, in silence. The layer asks for samples
  /// only when told to.
  void start(int samples = 100) {
    const Transcript silence;
    giveSamples(samples);
    scriptLayer = [](ScriptedDisplayLayer& layer) { layer.asksAtOnce = false; };
    session = PlaybackSession::create(item, factory());
    session->start(into(reports));
    time.settle();
  }
  [[nodiscard]] ScriptedDisplayLayer& layer() const { return *layers.back(); }
  [[nodiscard]] ScriptedAssetReader& reader() const { return *readers.back(); }

  /// The layer calls for samples, and gets what it gets.
  void ask() {
    layer().ask();
    time.settle();
  }

  /// `lines` with the session's number before those that begin with a blank.
  [[nodiscard]] std::vector<std::string> numbered(std::vector<std::string> lines) const {
    for (auto& line : lines) {
      if (line.starts_with(" - ")) line = std::to_string(session->identifier()) + line;
    }
    return lines;
  }

  /// Hears of the item's end until it goes.
  class EndListener {
   public:
    explicit EndListener(const std::shared_ptr<AVPlayerItem>& item) {
      for (const auto* const name : {AVPlayerItemDidPlayToEndTimeNotification,
                                     AVPlayerItemFailedToPlayToEndTimeNotification}) {
        NSNotificationCenter::defaultCenter().addObserver(
            token_, name, item,
            [this](const NSNotification& notification) { heard.push_back(notification); });
      }
    }
    std::vector<NSNotification> heard;

   private:
    const std::shared_ptr<int> token_ = std::make_shared<int>(0);
  };

  std::shared_ptr<PlaybackSession> session;
  Reports reports;
  EndListener ends{item};
};

}  // namespace zaffo
