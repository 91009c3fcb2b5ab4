// SPDX-License-Identifier: Apache-2.0

// The font of the feed's own texts, put into the program so that none need be installed.
    .section .rodata
    .balign 16
    .global zaffo_feed_font
    .hidden zaffo_feed_font
    .global zaffo_feed_font_end
    .hidden zaffo_feed_font_end
zaffo_feed_font:
    .incbin ZAFFO_FEED_FONT
zaffo_feed_font_end:
    .section .note.GNU-stack,"",%progbits
