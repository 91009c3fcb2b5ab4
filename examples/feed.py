#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The library in Python, without a window and without a binding: feed.py SECONDS FILE|URL...

Plays one clip after another for so many seconds each, as a feed that is swiped, and says what was
seen of each. ZAFFO_LIBRARY names the library where it is not installed."""
import ctypes
import os
import select
import sys
import time

LOOP_ENDLESS = 1

zaffo = ctypes.CDLL(os.environ.get("ZAFFO_LIBRARY", "libZaffoPlayback.so.0.1"))
# What ctypes takes for an int otherwise.
for name in ("pool_create", "play", "output_attach", "output_picture"):
    getattr(zaffo, f"zaffo_{name}").restype = ctypes.c_void_p
PLAYED = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p)
CHANGED = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
TRACED = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)


def pointer(value):
    return ctypes.c_void_p(value)


class Page:
    """A clip while it is in view."""

    def __init__(self, pool, address):
        self.player = self.output = self.error = None
        self.pictures, self.size = 0, None
        self.callbacks = PLAYED(self.played), CHANGED(self.changed)  # as long as they are called
        self.request = zaffo.zaffo_play(pointer(pool), address.encode(), LOOP_ENDLESS,
                                        self.callbacks[0], None)

    def played(self, player, error, _user):
        self.player = player
        if player:
            self.output = zaffo.zaffo_output_attach(pointer(player), self.callbacks[1], None)
        else:
            self.error = error.decode()

    def changed(self, _user):
        picture = pointer(zaffo.zaffo_output_picture(pointer(self.output)))
        if picture:
            self.pictures += 1
            self.size = zaffo.zaffo_picture_width(picture), zaffo.zaffo_picture_height(picture)
        zaffo.zaffo_picture_release(picture)

    def leave(self):
        zaffo.zaffo_request_release(pointer(self.request))
        zaffo.zaffo_output_release(pointer(self.output))
        zaffo.zaffo_player_set_rate(pointer(self.player), ctypes.c_float(0))
        zaffo.zaffo_player_release(pointer(self.player))


def run_for(seconds):
    descriptor = zaffo.zaffo_main_descriptor()
    end = time.monotonic() + seconds
    while (left := end - time.monotonic()) > 0:
        if select.select([descriptor], [], [], left)[0]:
            zaffo.zaffo_main_run()


def main():
    if len(sys.argv) < 3:
        sys.exit("usage: feed.py SECONDS FILE|URL...")
    quiet = TRACED(lambda line, user: None)
    zaffo.zaffo_set_trace(quiet, None)
    pool = zaffo.zaffo_pool_create(0, 0)
    failures = 0
    for address in sys.argv[2:]:
        page = Page(pool, address)
        run_for(float(sys.argv[1]))
        print(f"{address}: " + (page.error or f"{page.pictures} pictures of {page.size}"))
        failures += page.error is not None
        page.leave()
    zaffo.zaffo_pool_release(pointer(pool))
    zaffo.zaffo_set_trace(TRACED(), None)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
