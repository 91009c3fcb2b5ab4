// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "script/Script.h"

namespace zaffo::feed {

/// One word of a script and where it stands.
struct Token {
  std::string text;
  int line = 1;
  int column = 1;
};

/// The words of one command, at least one.
using Sentence = std::vector<Token>;

/// Splits a script into its commands' words. Fails on a quote that is not closed on its line.
[[nodiscard]] std::variant<std::vector<Sentence>, ScriptError> splitScript(const std::string& text);

}  // namespace zaffo::feed
