// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <istream>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

using URLs = std::vector<std::shared_ptr<const NSURL>>;

enum class Folders {
  Flat,  ///< the videos directly in a folder
  Deep,  ///< and those in the folders below it
};

/// The videos that the command line names, in order: a folder gives the videos in it by name (known
/// suffixes, hidden files and folders left out, "clip2" before "clip10"), those of a folder below
/// it where that stands by its name; everything else gives one each, whether it exists or not. An
/// error text instead when there are none, or when an address is of an unknown kind.
[[nodiscard]] std::variant<URLs, std::string> collectVideos(const std::vector<std::string>& inputs,
                                                            Folders folders = Folders::Flat);

/// Whether a person would put `a` before `b`: numbers count by their value, and the case of letters
/// only where nothing else differs.
[[nodiscard]] bool comesBefore(const std::string& a, const std::string& b);

/// Replaces each "-" among the inputs by the lines of `list`, empty ones left out.
[[nodiscard]] std::vector<std::string> withListedInputs(const std::vector<std::string>& inputs,
                                                        std::istream& list);

}  // namespace zaffo::feed
