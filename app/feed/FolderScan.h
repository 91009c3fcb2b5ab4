#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <ZaffoPlayback/ZaffoPlayback.h>

namespace zaffo::feed {

using URLs = std::vector<std::shared_ptr<const NSURL>>;

/// The videos that the command line names, in order: a folder gives the videos directly in it by
/// name (known suffixes, hidden files left out), everything else one each, whether it exists or
/// not. An error text instead when there are none, or when an address is of an unknown kind.
[[nodiscard]] std::variant<URLs, std::string> collectVideos(const std::vector<std::string>& inputs);

}  // namespace zaffo::feed
