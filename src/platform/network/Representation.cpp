// SPDX-License-Identifier: Apache-2.0
#include "platform/network/Representation.h"

#include <utility>

#include "platform/network/NetworkError.h"

namespace zaffo::network {

namespace {

enum Status {
  kOK = 200,
  kPartialContent = 206,
  kMultipleChoices = 300,
  kNotModified = 304,
  kBadRequest = 400,
  kUnauthorized = 401,
  kForbidden = 403,
  kNotFound = 404,
  kGone = 410,
  kRangeNotSatisfiable = 416,
  kTooManyRequests = 429,
  kServerError = 500,
};

bool isRedirect(const HttpHead& head) {
  return head.status() >= kMultipleChoices && head.status() < kBadRequest &&
         head.status() != kNotModified && !head.field("location").empty();
}

}  // namespace

void Representation::adopt(const Validator& validator, std::optional<int64_t> size,
                           bool servesRanges) {
  validator_ = validator;
  size_ = size;
  servesRanges_ = servesRanges;
}

std::vector<HttpField> Representation::fieldsFor(int64_t offset, std::optional<int64_t> end) const {
  if (isInDoubt_) return fieldsInDoubt();
  if (!servesRanges_) return {};
  std::string range = "bytes=" + std::to_string(offset) + "-";
  if (end) range += std::to_string(*end - 1);
  std::vector<HttpField> fields{{"Range", range}};
  const std::string validator = validator_.forIfRange();
  if (!validator.empty()) fields.emplace_back("If-Range", validator);
  return fields;
}

std::vector<HttpField> Representation::fieldsInDoubt() const {
  std::vector<HttpField> fields{{"Range", "bytes=0-"}};
  if (!validator_.entityTag.empty()) {
    fields.emplace_back("If-None-Match", validator_.entityTag);
  } else if (!validator_.lastModified.empty()) {
    fields.emplace_back("If-Modified-Since", validator_.lastModified);
  }
  return fields;
}

Representation::Verdict Representation::judge(const HttpHead& head, int64_t askedFor, int64_t now) {
  if (isRedirect(head)) return {Verdict::Kind::Redirect, 0, {}, nullptr};
  if (isInDoubt_) return judgeInDoubt(head, now);
  const int status = head.status();
  const bool hasBytes = status == kOK || status == kPartialContent;
  if (hasBytes && !head.isPlain()) return badAnswer("compressed the file, which it must not.");
  if (status == kOK) return judgeWhole(head);
  if (status == kPartialContent) return judgePart(head, askedFor);
  if (status == kRangeNotSatisfiable) return judgeBeyondEnd(head, askedFor);
  return judgeFailure(head, now);
}

/// Anything but bytes, their end and the word that they are the same leaves the doubt.
Representation::Verdict Representation::judgeInDoubt(const HttpHead& head, int64_t now) {
  if (head.status() == kNotModified) {
    isInDoubt_ = false;
    return {Verdict::Kind::Same, 0, {}, nullptr};
  }
  Representation anew(name_);
  Verdict verdict = anew.judge(head, 0, now);
  if (verdict.kind != Verdict::Kind::Body && verdict.kind != Verdict::Kind::End) return verdict;
  const bool isKnown = !validator_.forIfRange().empty();
  verdict.isAnother = !isKnown || anew.validator_.forIfRange() != validator_.forIfRange() ||
                      (size_ && anew.size_ != size_);
  size_ = anew.size_;
  validator_ = anew.validator_;
  servesRanges_ = anew.servesRanges_;
  isInDoubt_ = false;
  return verdict;
}

/// All of the bytes: from a server that does not serve ranges, or whose resource is another one by
/// now than the If-Range asked for.
Representation::Verdict Representation::judgeWhole(const HttpHead& head) {
  const auto size = head.contentLength();
  if (contradicts(head, size)) return changed();
  learn(head, size);
  servesRanges_ = false;
  return {Verdict::Kind::Body, 0, {}, nullptr};
}

Representation::Verdict Representation::judgePart(const HttpHead& head, int64_t askedFor) {
  const auto range = head.contentRange();
  if (!range || range->last < range->first || range->last > kFarthest) {
    return badAnswer("did not say which range it sent.");
  }
  if (contradicts(head, range->size)) return changed();
  const auto length = head.contentLength();
  const bool isWrongLength = length && *length != range->last - range->first + 1;
  if (range->first != askedFor || isWrongLength) {
    return badAnswer("sent another range than it was asked for.");
  }
  learn(head, range->size);
  return {Verdict::Kind::Body, range->first, {}, nullptr};
}

Representation::Verdict Representation::judgeBeyondEnd(const HttpHead& head, int64_t askedFor) {
  const auto range = head.contentRange();
  const auto size = range && range->last < range->first ? range->size : std::nullopt;
  if (size_ && askedFor < *size_) return changed();
  if (size_ && size && *size != *size_) return changed();
  if (size && *size > askedFor) return badAnswer("refused a range that it has.");
  size_ = size ? size : size_ ? size_ : askedFor;
  return {Verdict::Kind::End, askedFor, {}, nullptr};
}

Representation::Verdict Representation::judgeFailure(const HttpHead& head, int64_t now) const {
  const int status = head.status();
  const std::string answered = " (" + std::to_string(status) + ").";
  if (status == kTooManyRequests || status >= kServerError) {
    return {Verdict::Kind::Later, 0, head.retryAfter(now),
            networkError(NSURLErrorResourceUnavailable,
                         "The server cannot deliver " + name_ + " at present" + answered)};
  }
  const auto refuse = [&](URLError code, const std::string& why) {
    return Verdict{Verdict::Kind::Refused, 0, {}, networkError(code, name_ + why + answered)};
  };
  if (status == kUnauthorized) {
    return refuse(NSURLErrorUserAuthenticationRequired, " may be read by those signed in only");
  }
  if (status == kForbidden) {
    return refuse(NSURLErrorNoPermissionsToReadFile, " may not be read");
  }
  if (status == kNotFound || status == kGone) {
    return refuse(NSURLErrorFileDoesNotExist, " does not exist");
  }
  return refuse(NSURLErrorBadServerResponse, " is refused by the server");
}

bool Representation::contradicts(const HttpHead& head, std::optional<int64_t> size) const {
  return validator_.contradicts(head.validator()) || (size_ && size && *size != *size_);
}

void Representation::learn(const HttpHead& head, std::optional<int64_t> size) {
  if (size) size_ = size;
  const Validator validator = head.validator();
  if (validator_.entityTag.empty()) validator_.entityTag = validator.entityTag;
  if (validator_.lastModified.empty()) validator_.lastModified = validator.lastModified;
}

Representation::Verdict Representation::changed() const {
  return {Verdict::Kind::Refused,
          0,
          {},
          networkError(NSURLErrorBadServerResponse, name_ + " changed while it was played.")};
}

Representation::Verdict Representation::badAnswer(const std::string& what) const {
  return {Verdict::Kind::Refused,
          0,
          {},
          networkError(NSURLErrorBadServerResponse, "The server of " + name_ + " " + what)};
}

}  // namespace zaffo::network
