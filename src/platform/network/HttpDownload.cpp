// SPDX-License-Identifier: Apache-2.0
#include "platform/network/HttpDownload.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "platform/TimeSource.h"
#include "platform/network/NetworkError.h"

namespace zaffo::network {

namespace {

/// So many bytes without a failure show that a connection works.
constexpr int64_t kProgress = 16 * 1024;

std::string nameOf(const NSURL& address) {
  const std::string last = address.lastPathComponent();
  return "\"" + (last.empty() || last == "/" ? address.host() : last) + "\"";
}

bool isPermanent(const HttpHead& redirect) {
  return redirect.status() == 301 || redirect.status() == 308;
}

bool isGone(const NSError& error) {
  return error.code() == NSURLErrorFileDoesNotExist ||
         error.code() == NSURLErrorNoPermissionsToReadFile ||
         error.code() == NSURLErrorUserAuthenticationRequired;
}

}  // namespace

std::string HttpOptions::identityOf(const NSURL& address) const {
  std::string identity = address.absoluteString();
  for (const auto& [name, value] : fields) identity += "\n" + name + ": " + value;
  return identity;
}

RemotePlace::RemotePlace(URL at, HttpOptions with)
    : address(std::move(at)),
      options(std::move(with)),
      current(address),
      representation(nameOf(*address)) {}

void RemotePlace::startOver() {
  current = address;
  isLedForNow = false;
}

HttpDownload::HttpDownload(HttpClient& client, RemotePlace& place, Sink& sink, int64_t offset,
                           std::optional<int64_t> end)
    : client_(client),
      place_(place),
      sink_(sink),
      position_(offset),
      end_(end),
      timer_(NetworkLoop::shared().context()) {
  ask();
}

void HttpDownload::resume() {
  if (exchange_) exchange_->resume();
}

void HttpDownload::ask() {
  HttpRequest request{place_.current, place_.representation.fieldsFor(position_, end_),
                      place_.options.limits};
  if (isSameOrigin(*place_.current, *place_.address)) {
    const auto& given = place_.options.fields;
    request.fields.insert(request.fields.end(), given.begin(), given.end());
  }
  hasHead_ = false;
  verdict_ = {};
  exchange_ = client_.start(std::move(request), *this);
}

void HttpDownload::askSoon(std::chrono::milliseconds pause) {
  timer_.expires_after(pause);
  timer_.async_wait([this, life = std::weak_ptr(life_)](const asio::error_code& error) {
    if (!error && !life.expired()) ask();
  });
}

void HttpDownload::didReceiveHead(const HttpHead& head) {
  hasHead_ = true;
  location_ = head.field("location");
  verdict_ = place_.representation.judge(head, position_, std::time(nullptr));
  const bool isBody = verdict_.kind == Verdict::Kind::Body;
  if (isBody || verdict_.kind == Verdict::Kind::Same) {
    place_.freshness.learn(head, TimeSource::now());
    if (place_.isLedForNow) place_.freshness.expire();
  }
  if (verdict_.isAnother) sink_.didChange();
  if (isBody) {
    position_ = verdict_.offset;
    redirects_ = 0;
    if (!place_.representation.servesRanges()) end_.reset();
    return;
  }
  if (verdict_.kind == Verdict::Kind::Redirect && !isPermanent(head)) place_.isLedForNow = true;
  // The body that comes with it is for browsers. What follows must not begin inside libcurl.
  exchange_.reset();
  NetworkLoop::shared().post([this, life = std::weak_ptr(life_)] {
    if (!life.expired()) goOn();
  });
}

bool HttpDownload::didReceiveBytes(std::span<const uint8_t> bytes) {
  const auto count = static_cast<int64_t>(bytes.size());
  if (!sink_.didReceive(*this, position_, bytes)) return false;
  position_ += count;
  progress_ += count;
  if (progress_ >= kProgress) failures_ = 0;
  return true;
}

void HttpDownload::didEnd(const NSErrorPtr& error, bool mayPass) {
  exchange_.reset();
  if (!error) return bodyEnded();
  if (mayPass) return tryAgain(error, std::nullopt);
  refuse(error);
}

/// Acts on an answer that has no bytes of the resource.
void HttpDownload::goOn() {
  switch (verdict_.kind) {
    case Verdict::Kind::End:
    case Verdict::Kind::Same:
      return sink_.didEnd(*this, nullptr);
    case Verdict::Kind::Redirect:
      return follow();
    case Verdict::Kind::Later:
      return tryAgain(verdict_.error, verdict_.retryAfter);
    case Verdict::Kind::Body:
    case Verdict::Kind::Refused:
      break;
  }
  // Where a server leads is often good for a while only.
  const bool wasLedHere = place_.current != place_.address && redirects_ == 0;
  if (wasLedHere && isGone(*verdict_.error)) {
    place_.startOver();
    redirects_ = 1;
    return ask();
  }
  refuse(verdict_.error);
}

void HttpDownload::follow() {
  if (++redirects_ > place_.options.redirects) {
    return refuse(networkError(NSURLErrorHTTPTooManyRedirects,
                               "The server \"" + place_.current->host() +
                                   "\" leads from one address to the next without an end."));
  }
  const auto next = place_.options.rules.resolve(location_, place_.current);
  if (!next) return refuse(next.error());
  place_.current = *next;
  ask();
}

void HttpDownload::bodyEnded() {
  const auto last = lastPlace();
  if (!hasHead_ || (last && position_ < *last)) {
    return tryAgain(
        networkError(NSURLErrorNetworkConnectionLost,
                     "The server \"" + place_.current->host() + "\" sent less than there is."),
        std::nullopt);
  }
  if (!end_ && !place_.representation.size()) place_.representation.learnSize(position_);
  sink_.didEnd(*this, nullptr);
}

void HttpDownload::tryAgain(const NSErrorPtr& error, std::optional<int64_t> retryAfter) {
  ++failures_;
  progress_ = 0;
  std::uniform_real_distribution<double> chance;
  const auto pause = place_.options.retries.pauseAfter(failures_, retryAfter, chance(chance_));
  if (!pause) return refuse(error);
  redirects_ = 0;
  askSoon(*pause);
}

void HttpDownload::refuse(const NSErrorPtr& error) {
  sink_.didEnd(*this, error);
}

/// Where the download is over; null while nobody knows.
std::optional<int64_t> HttpDownload::lastPlace() const {
  const auto size = place_.representation.size();
  if (!end_ || !size) return end_ ? end_ : size;
  return std::min(*end_, *size);
}

}  // namespace zaffo::network
