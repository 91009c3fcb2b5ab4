// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

/// Notes what it is asked.
class RecordingPreloader final : public NetworkPreloader {
 public:
  void preload(const std::shared_ptr<const NSURL>& url, double /*seconds*/, int priority,
               Completion /*completion*/) override {
    calls.push_back("preload " + url->lastPathComponent() + " " + std::to_string(priority));
  }
  void cancel(const std::shared_ptr<const NSURL>& url) override {
    calls.push_back("cancel " + url->lastPathComponent());
  }

  std::vector<std::string> calls;
};

}  // namespace zaffo::feed
