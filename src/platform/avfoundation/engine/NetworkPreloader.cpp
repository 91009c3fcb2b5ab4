// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/NetworkPreloader.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/avfoundation/engine/ClipPreload.h"
#include "platform/dispatch/Confinement.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/network/PreloadBytes.h"
#include "platform/network/SharedResources.h"

namespace zaffo {
namespace {

constexpr std::size_t kAtATime = 2;

/// All that is asked for and not done yet. Its state belongs to a queue.
class Preloads final : public NetworkPreloader {
 public:
  void preload(const std::shared_ptr<const NSURL>& url, double seconds, int priority,
               Completion completion) override {
    queue_->async([this, url, seconds, priority, completion = std::move(completion)]() mutable {
      add({url, seconds, priority, std::move(completion), nullptr});
    });
  }

  void cancel(const std::shared_ptr<const NSURL>& url) override {
    queue_->async([this, url] {
      remove(url);
      startMostWanted();
    });
  }

 private:
  struct Job {
    std::shared_ptr<const NSURL> url;
    double seconds = 0;
    int priority = 0;
    Completion completion;
    std::shared_ptr<ClipPreload> work;  ///< while it is one of the most wanted
  };

  static void tell(Completion completion, const NSErrorPtr& error) {
    if (!completion) return;
    dispatch_async(dispatch_get_main_queue(),
                   [completion = std::move(completion), error] { completion(error); });
  }

  void add(Job job) {
    assertCurrent(*queue_);
    if (!job.url || job.url->isFileURL()) return tell(std::move(job.completion), nullptr);
    remove(job.url);
    const auto behind = std::ranges::find_if(
        jobs_, [&](const Job& other) { return other.priority < job.priority; });
    jobs_.insert(behind, std::move(job));
    startMostWanted();
  }

  void remove(const std::shared_ptr<const NSURL>& url) {
    std::erase_if(jobs_, [&](const Job& job) {
      return url && job.url->absoluteString() == url->absoluteString();
    });
  }

  void startMostWanted() {
    for (std::size_t i = 0; i < jobs_.size(); ++i) {
      Job& job = jobs_[i];
      if (i >= kAtATime) job.work = nullptr;
      if (i >= kAtATime || job.work) continue;
      auto bytes =
          std::make_shared<network::PreloadBytes>(network::SharedResources::shared().at(job.url));
      job.work = ClipPreload::begin(
          std::move(bytes), job.seconds, queue_,
          [this, url = job.url](const NSErrorPtr& error) { finish(url, error); });
    }
  }

  void finish(const std::shared_ptr<const NSURL>& url, const NSErrorPtr& error) {
    assertCurrent(*queue_);
    const auto done = std::ranges::find(jobs_, url, &Job::url);
    if (done == jobs_.end()) return;
    Completion completion = std::move(done->completion);
    jobs_.erase(done);
    tell(std::move(completion), error);
    startMostWanted();
  }

  const DispatchQueuePtr queue_ = dispatch_queue_create("com.zaffo.preload");
  std::vector<Job> jobs_;  ///< most wanted first
};

}  // namespace

NetworkPreloader& NetworkPreloader::shared() {
  static auto* const preloads = new Preloads;
  return *preloads;
}

}  // namespace zaffo
