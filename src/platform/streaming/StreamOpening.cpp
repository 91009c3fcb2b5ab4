// SPDX-License-Identifier: Apache-2.0
#include "platform/streaming/StreamOpening.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/network/NetworkError.h"

namespace zaffo::streaming {
namespace {

using media::Outcome;
using network::Playlist;

constexpr std::size_t kMostRenditions = 64;

NSErrorPtr cannotPlay(const std::string& why) {
  return network::networkError(network::NSURLErrorCannotDecodeRawData,
                               "The stream cannot be played: " + why);
}

/// As far as the list tells.
bool isSoundAlone(const network::Variant& variant) {
  return variant.width == 0 && variant.codecs.starts_with("mp4a.") &&
         variant.codecs.find(',') == std::string::npos;
}

/// Each address once, those with pictures if there are any, by what they take.
std::vector<network::Variant> usableVariants(const std::vector<network::Variant>& all) {
  std::vector<network::Variant> usable;
  const bool hasPictures = !std::ranges::all_of(all, isSoundAlone);
  for (const auto& variant : all) {
    const bool isKnown = std::ranges::any_of(usable, [&](const auto& other) {
      return other.address->absoluteString() == variant.address->absoluteString();
    });
    const bool isWanted = !isKnown && !(hasPictures && isSoundAlone(variant));
    if (isWanted && usable.size() < kMostRenditions) usable.push_back(variant);
  }
  std::ranges::stable_sort(usable, {}, &network::Variant::bitsPerSecond);
  return usable;
}

/// The sound that goes with a rendition; null when it needs none.
const network::Alternate* soundOf(const network::Variant& variant, const Playlist& list) {
  const network::Alternate* found = nullptr;
  for (const auto& alternate : list.alternates) {
    if (alternate.type != "AUDIO" || alternate.group != variant.audioGroup) continue;
    if (!found || (alternate.isDefault && !found->isDefault)) found = &alternate;
  }
  return found;
}

}  // namespace

bool StreamOpening::isList(std::span<const uint8_t> front) {
  std::string_view text(reinterpret_cast<const char*>(front.data()), front.size());
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return text.starts_with("#EXTM3U");
}

StreamOpening::StreamOpening(network::URL address, StreamServices services)
    : services_(std::move(services)) {
  load(Stage::List, address);
}

Outcome StreamOpening::step() {
  while (!opened_) {
    if (stepStage() == Outcome::Again) return Outcome::Again;
  }
  return *opened_ ? Outcome::Ready : Outcome::Error;
}

Outcome StreamOpening::stepStage() {
  return stage_ == Stage::Segments ? stepSegment() : stepList();
}

// Lists

void StreamOpening::load(Stage stage, const network::URL& address) {
  stage_ = stage;
  address_ = address;
  isFresh_ = false;
  want_.reset();
  loading_ = std::make_unique<ListLoading>(services_.resources->at(address));
}

Outcome StreamOpening::stepList() {
  if (loading_->step() == Outcome::Again) {
    if (!want_) want_ = loading_->want(ready_);
    return Outcome::Again;
  }
  auto list = loading_->take();
  if (!list) {
    fail(list.error());
  } else {
    takeList(*std::move(list));
  }
  return Outcome::Working;
}

void StreamOpening::takeList(Playlist list) {
  if (list.kind == Playlist::Kind::Plain) return fail(cannotPlay("its list is one of clips."));
  if (list.kind == Playlist::Kind::Media) return takeMedia(std::move(list));
  if (stage_ != Stage::List) return fail(cannotPlay("its lists lead to further lists."));
  takeMaster(list);
}

void StreamOpening::takeMaster(const Playlist& list) {
  const auto variants = usableVariants(list.variants);
  for (const auto& variant : variants) {
    renditions_.push_back({variant.address, variant.bitsPerSecond});
  }
  first_ = RenditionChoice(StreamFeed::ratesOf(renditions_)).first(services_.bitsPerSecond());
  if (const auto* sound = soundOf(variants[first_], list); sound && sound->address) {
    soundAddress_ = sound->address;
    soundLanguage_ = sound->language;
  }
  load(Stage::RenditionList, variants[first_].address);
}

void StreamOpening::takeMedia(Playlist list) {
  if (list.segments.empty()) return fail(cannotPlay("there is nothing in it."));
  if (!list.isEnded && !isFresh_) {
    // What was kept of a live stream's list is how it was.
    isFresh_ = true;
    want_.reset();
    loading_ = std::make_unique<ListLoading>(std::make_shared<network::HttpResource>(address_));
    return;
  }
  SegmentList segments(std::move(list));
  if (!segments.isEnded()) segments.startNearEnd();
  takeSegments(std::move(segments));
}

void StreamOpening::takeSegments(SegmentList segments) {
  if (stage_ == Stage::List) renditions_.push_back({address_, 0});
  const bool isSound = stage_ == Stage::SoundList;
  feeds_.push_back(std::make_shared<StreamFeed>(
      isSound ? std::vector<StreamFeed::Rendition>{{soundAddress_, 0}} : renditions_,
      isSound ? 0 : first_, std::move(segments), services_));
  if (soundAddress_ && !isSound) return load(Stage::SoundList, soundAddress_);
  loading_.reset();
  want_.reset();
  stage_ = Stage::Segments;
  describeNext();
}

// First segments

void StreamOpening::describeNext() {
  const auto& feed = feeds_[described_];
  if (feed->segment(feed->firstNumber(), 0, segment_) != Outcome::Ready) {
    return fail(cannotPlay("there is nothing in it."));
  }
  task_ = std::make_unique<media::ReadTask>(segment_->bytes);
  if (ready_) task_->setReadyHandler(ready_);
}

Outcome StreamOpening::stepSegment() {
  const bool ended = task_->run(
      [this] { reader_.emplace(media::SegmentReader::open(*task_, AVMediaType::Video)); });
  if (!ended) return Outcome::Again;
  if (!*reader_) {
    fail(reader_->error());
    return Outcome::Working;
  }
  const auto& reader = **reader_;
  (void)clock_->offsetFor(segment_->run, reader->start(), segment_->start);
  takeTracks(reader->describe());
  reader_.reset();
  if (++described_ == feeds_.size()) {
    finish();
  } else {
    describeNext();
  }
  return Outcome::Working;
}

/// Sound that comes apart takes the place of what comes with the pictures.
void StreamOpening::takeTracks(std::vector<media::SegmentTrack> tracks) {
  const bool isSound = described_ > 0;
  for (auto& track : tracks) {
    const bool isOfSound = track.track->mediaType == AVMediaType::Audio;
    if (isOfSound != isSound && (isSound || soundAddress_)) continue;
    if (isSound && !soundLanguage_.empty()) track.track->languageCode = soundLanguage_;
    parts_.push_back({std::move(track), feeds_[described_]});
  }
}

void StreamOpening::finish() {
  if (parts_.empty()) return fail(cannotPlay("it holds neither picture nor sound."));
  opened_ = Opened(StreamSource::make(std::move(parts_), clock_));
}

}  // namespace zaffo::streaming
