#pragma once

/// Marks what a shared library offers to others; everything else stays hidden.
#define ZAFFO_EXPORT [[gnu::visibility("default")]]
