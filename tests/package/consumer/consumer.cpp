// An application outside the project: it has the installed headers and libraries, nothing else.
#include <ZaffoPlayback/ZaffoPlayback.h>

#include <cstdio>
#include <string>

int main() {
  const zaffo::CMTime sum = zaffo::CMTimeAdd(zaffo::CMTimeMake(1, 3), zaffo::CMTimeMake(1, 6));
  const auto url = zaffo::NSURL::fileURLWithPath("/a b.mp4");
  std::printf("%s %s %s\n", ZaffoPlaybackVersionString, zaffo::CMTimeDescription(sum).c_str(),
              url->absoluteString().c_str());
  const bool right =
      sum == zaffo::CMTimeMake(1, 2) && url->absoluteString() == "file:///a%20b.mp4" &&
      std::string(ZaffoPlaybackVersionString).rfind("0.", 0) == 0 && ZaffoPlaybackVersionNumber > 0;
  return right ? 0 : 1;
}
