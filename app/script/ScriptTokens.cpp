// SPDX-License-Identifier: Apache-2.0
#include "script/ScriptTokens.h"

namespace zaffo::feed {

namespace {

class Splitter {
 public:
  explicit Splitter(const std::string& text) : text_(text) {}

  std::variant<std::vector<Sentence>, ScriptError> split() {
    while (!atEnd()) {
      const char c = peek();
      if (c == '\n' || c == ';') {
        endSentence();
        advance();
      } else if (c == ' ' || c == '\t' || c == '\r') {
        advance();
      } else if (c == '#') {
        skipComment();
      } else if (!readToken()) {
        return ScriptError{words_.back().line, words_.back().column, "this quote is never closed"};
      }
    }
    endSentence();
    return std::move(sentences_);
  }

 private:
  [[nodiscard]] bool atEnd() const { return position_ == text_.size(); }
  [[nodiscard]] char peek() const { return text_[position_]; }

  void advance() {
    if (peek() == '\n') {
      ++line_;
      column_ = 1;
    } else {
      ++column_;
    }
    ++position_;
  }

  void skipComment() {
    while (!atEnd() && peek() != '\n') advance();
  }

  /// False when a quote is left open; the token is then the last word.
  bool readToken() {
    Token& token = words_.emplace_back(Token{{}, line_, column_});
    const bool quoted = peek() == '"';
    if (quoted) advance();
    const std::string end = quoted ? "\"\n" : " \t\r\n;#";
    while (!atEnd() && end.find(peek()) == std::string::npos) {
      token.text += peek();
      advance();
    }
    if (!quoted) return true;
    if (atEnd() || peek() != '"') return false;
    advance();
    return true;
  }

  void endSentence() {
    if (!words_.empty()) sentences_.push_back(std::move(words_));
    words_.clear();
  }

  const std::string& text_;
  std::size_t position_ = 0;
  int line_ = 1;
  int column_ = 1;
  Sentence words_;
  std::vector<Sentence> sentences_;
};

}  // namespace

std::variant<std::vector<Sentence>, ScriptError> splitScript(const std::string& text) {
  return Splitter(text).split();
}

}  // namespace zaffo::feed
