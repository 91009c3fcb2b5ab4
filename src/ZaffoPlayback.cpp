#include "platform/Export.h"

// C linkage, so that a program can look them up by name.
extern "C" {
ZAFFO_EXPORT extern const double ZaffoPlaybackVersionNumber;
ZAFFO_EXPORT extern const char* const ZaffoPlaybackVersionString;
const double ZaffoPlaybackVersionNumber = ZAFFO_VERSION_NUMBER;
const char* const ZaffoPlaybackVersionString = ZAFFO_VERSION_STRING;
}
