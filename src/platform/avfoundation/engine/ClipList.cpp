// SPDX-License-Identifier: Apache-2.0
#include "platform/avfoundation/ClipList.h"

#include <algorithm>
#include <cctype>
#include <span>
#include <string_view>
#include <utility>

#include "platform/avfoundation/engine/BytesOfClip.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/StorageQueue.h"
#include "platform/foundation/MakeError.h"
#include "platform/network/Playlist.h"

namespace zaffo {
namespace {

using Clips = std::vector<ListedClip>;
using Completion = std::function<void(Clips, const NSErrorPtr&)>;

/// One byte more than a list may have, so that one which is too long is known by it.
constexpr std::size_t kAsked = network::Playlist::kMostBytes + 1;

/// A list that is being read. Keeps itself until it has told what came of it.
class ListReading : public std::enable_shared_from_this<ListReading> {
 public:
  ListReading(std::shared_ptr<const NSURL> url, Completion completion)
      : url_(std::move(url)), completion_(std::move(completion)) {}

  void begin() {
    queue_->async([self = shared_from_this()] {
      auto bytes = bytesAt(self->url_);
      if (!bytes) return self->end({}, bytes.error());
      self->bytes_ = *std::move(bytes);
      self->want_ =
          self->bytes_->want(0, kAsked, [self] { self->queue_->async([self] { self->take(); }); });
    });
  }

 private:
  void take() {
    std::string text(kAsked, '\0');
    std::size_t count = 0;
    int64_t read = 0;
    do {
      const std::span rest(reinterpret_cast<uint8_t*>(text.data()) + count, text.size() - count);
      read = bytes_->readHeld(static_cast<int64_t>(count), rest);
      if (read > 0) count += static_cast<std::size_t>(read);
    } while (read > 0 && count < text.size());
    want_.reset();
    if (read < 0) return end({}, bytes_->error());
    text.resize(count);
    const auto list = network::Playlist::parse(text, url_);
    if (!list) return end({}, list.error());
    end(clipsOf(*list), nullptr);
  }

  [[nodiscard]] Clips clipsOf(const network::Playlist& list) const {
    if (list.kind != network::Playlist::Kind::Plain) return {{url_, ""}};
    Clips clips;
    for (const auto& entry : list.segments) clips.push_back({entry.address, entry.title});
    return clips;
  }

  void end(Clips clips, const NSErrorPtr& error) {
    dispatch_async(dispatch_get_main_queue(),
                   [completion = std::move(completion_), clips = std::move(clips), error] {
                     completion(clips, error);
                   });
  }

  const std::shared_ptr<const NSURL> url_;
  const DispatchQueuePtr queue_ = makeStorageQueue("com.zaffo.cliplist");
  Completion completion_;
  std::shared_ptr<media::ByteSource> bytes_;
  std::unique_ptr<media::ByteSource::Want> want_;
};

}  // namespace

void loadClipList(const std::shared_ptr<const NSURL>& url, Completion completion) {
  if (!url) {
    return dispatch_async(dispatch_get_main_queue(), [completion = std::move(completion)] {
      completion({}, makeError(AVErrorUnsupportedURL, "There is no address of a list."));
    });
  }
  std::make_shared<ListReading>(url, std::move(completion))->begin();
}

bool isClipList(const NSURL& url) {
  std::string name = url.lastPathComponent();
  std::ranges::transform(name, name.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return name.ends_with(".m3u") || name.ends_with(".m3u8");
}

}  // namespace zaffo
