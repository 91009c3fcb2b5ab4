// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/network/HttpClient.h"
#include "platform/network/HttpHead.h"

namespace zaffo::network {

/// What is known of a remote resource's bytes from its server's answers, and what a further answer
/// means in its light. Pure. Thread: the owner's.
class Representation {
 public:
  /// What to make of an answer.
  struct Verdict {
    enum class Kind {
      Body,      ///< its bytes are the resource's, from `offset` on
      Same,      ///< what was held in doubt is the resource's still
      End,       ///< there is nothing from the asked place on
      Redirect,  ///< it is at another address
      Later,     ///< the server is in trouble, or asks for patience (`retryAfter`)
      Refused,   ///< see `error`
    };
    Kind kind = Kind::Refused;
    int64_t offset = 0;
    std::optional<int64_t> retryAfter;  // seconds
    NSErrorPtr error;
    bool isAnother = false;  ///< a Body that none of the bytes held in doubt belong to
  };

  /// `name` is what a person knows the resource by, for errors.
  explicit Representation(std::string name) : name_(std::move(name)) {}

  /// The fields that ask for the bytes from `offset` up to `end`, if that is given, of what is
  /// known so far and nothing else.
  [[nodiscard]] std::vector<HttpField> fieldsFor(int64_t offset, std::optional<int64_t> end) const;

  /// Judges the answer to these, and learns from it. `now` is in seconds since 1970.
  [[nodiscard]] Verdict judge(const HttpHead& head, int64_t askedFor, int64_t now);

  /// The bytes may be others by now: the next fields ask from the start on, and only if they are;
  /// the answer tells.
  void doubt() { isInDoubt_ = true; }
  [[nodiscard]] bool isInDoubt() const { return isInDoubt_; }

  /// What is known from an earlier run of the program.
  void adopt(const Validator& validator, std::optional<int64_t> size, bool servesRanges);
  [[nodiscard]] const Validator& validator() const { return validator_; }

  /// An answer without a length ended in good order here.
  void learnSize(int64_t size) { size_ = size; }

  [[nodiscard]] std::optional<int64_t> size() const { return size_; }
  /// Whether a place in the midst may be asked for; assumed until an answer shows otherwise.
  [[nodiscard]] bool servesRanges() const { return servesRanges_; }

 private:
  [[nodiscard]] std::vector<HttpField> fieldsInDoubt() const;
  [[nodiscard]] Verdict judgeInDoubt(const HttpHead& head, int64_t now);
  [[nodiscard]] Verdict judgeWhole(const HttpHead& head);
  [[nodiscard]] Verdict judgePart(const HttpHead& head, int64_t askedFor);
  [[nodiscard]] Verdict judgeBeyondEnd(const HttpHead& head, int64_t askedFor);
  [[nodiscard]] Verdict judgeFailure(const HttpHead& head, int64_t now) const;
  [[nodiscard]] bool contradicts(const HttpHead& head, std::optional<int64_t> size) const;
  void learn(const HttpHead& head, std::optional<int64_t> size);
  [[nodiscard]] Verdict changed() const;
  [[nodiscard]] Verdict badAnswer(const std::string& what) const;

  const std::string name_;
  std::optional<int64_t> size_;
  Validator validator_;
  bool servesRanges_ = true;
  bool isInDoubt_ = false;
};

}  // namespace zaffo::network
