#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A feed in GTK 4, in Python: gtk-feed.py [--each SECONDS] FILE|URL...

A clip to a page; the wheel and the arrow keys turn the pages. With --each they turn by themselves,
and the program ends after the last. GI_TYPELIB_PATH and LD_LIBRARY_PATH name the folders of the
typelib and of libZaffoGtk where these are not installed among the system's.
"""
import argparse
import sys

import gi

gi.require_version("Gdk", "4.0")
gi.require_version("Gtk", "4.0")
gi.require_version("ZaffoGtk", "0.1")
from gi.repository import Gdk, GLib, Gtk, ZaffoGtk  # noqa: E402


class Feed:
    def __init__(self, clips, loop):
        self.pages = Gtk.Stack(transition_type=Gtk.StackTransitionType.SLIDE_UP_DOWN)
        self.loop = loop
        for clip in clips:
            self.add_page(clip)
        self.window = Gtk.Window(default_width=360, default_height=640, child=self.pages)
        self.window.connect("destroy", lambda _: loop.quit())
        scroll = Gtk.EventControllerScroll(flags=Gtk.EventControllerScrollFlags.VERTICAL
                                           | Gtk.EventControllerScrollFlags.DISCRETE)
        scroll.connect("scroll", lambda _, dx, dy: dy != 0 and self.turn(dy > 0))
        self.window.add_controller(scroll)
        keys = Gtk.EventControllerKey()
        keys.connect("key-pressed", self.key_pressed)
        self.window.add_controller(keys)

    def add_page(self, uri):
        video = ZaffoGtk.Video(uri=uri)
        clip = video.get_paintable()
        clip.connect("failed", lambda clip, text: print(f"{clip.props.uri}: {text}", flush=True))
        clip.connect("invalidate-size", self.measured)
        self.pages.add_child(video)

    @staticmethod
    def measured(clip):
        width, height = clip.get_intrinsic_width(), clip.get_intrinsic_height()
        if width:
            print(f"{clip.props.uri}: {width}x{height}", flush=True)

    def turn(self, forth):
        """Turns to the page beside the one that is seen. False where there is none."""
        seen = self.pages.get_visible_child()
        page = seen.get_next_sibling() if forth else seen.get_prev_sibling()
        if not page:
            return False
        self.pages.set_visible_child(page)
        return True

    def key_pressed(self, _keys, key, _code, _state):
        return key in (Gdk.KEY_Down, Gdk.KEY_Up) and self.turn(key == Gdk.KEY_Down)

    def turn_by_itself(self):
        if self.turn(True):
            return GLib.SOURCE_CONTINUE
        self.loop.quit()
        return GLib.SOURCE_REMOVE


def main():
    parser = argparse.ArgumentParser(description="A feed of clips")
    parser.add_argument("--each", type=int, metavar="SECONDS", help="turn the page every so often")
    parser.add_argument("clips", nargs="+", metavar="FILE|URL")
    options = parser.parse_args()
    if not Gtk.init_check():
        sys.exit("gtk-feed.py: there is no display")
    loop = GLib.MainLoop()
    feed = Feed(options.clips, loop)
    if options.each:
        GLib.timeout_add_seconds(options.each, feed.turn_by_itself)
    feed.window.present()
    loop.run()


if __name__ == "__main__":
    main()
