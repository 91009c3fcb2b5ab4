#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The include rules catch what they forbid, on small made-up trees."""
import os
import tempfile
import unittest

import include_rules


class IncludeRules(unittest.TestCase):
    def offences(self, files):
        with tempfile.TemporaryDirectory() as root:
            for name, text in files.items():
                path = os.path.join(root, name)
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "w", encoding="utf-8") as file:
                    file.write(text)
            return [*include_rules.check_library(root), *include_rules.check_users(root),
                    *include_rules.check_application(root)]

    def test_a_tree_that_keeps_the_rules_has_no_offence(self):
        self.assertEqual([], self.offences({
            "src/platform/Export.h": "",
            "src/pool/Player.h": '#include "platform/Export.h"\n',
            "src/native/PlayerNative.h": '#include "pool/Player.h"\n',
            "src/DefaultPlayers.cpp": '#include "native/PlayerNative.h"\n',
            "src/platform/media/Demuxer.cpp": "#include <libavformat/avformat.h>\n",
        }))

    def test_a_lower_folder_must_not_include_a_higher_one(self):
        found = self.offences({
            "src/platform/uikit/UIView.h": "",
            "src/platform/foundation/NSURL.h": '#include "platform/uikit/UIView.h"\n',
        })
        self.assertEqual(1, len(found))
        self.assertIn("src/platform/foundation/NSURL.h:1:", found[0])

    def test_the_native_player_sees_no_more_of_the_pool_than_the_contract(self):
        self.assertEqual(1, len(self.offences({
            "src/pool/PlayerManager.h": "",
            "src/native/PlayerNative.h": '#include "pool/PlayerManager.h"\n',
        })))

    def test_the_module_must_not_reach_the_private_engine_or_the_window(self):
        self.assertEqual(2, len(self.offences({
            "src/platform/media/Demuxer.h": "",
            "src/platform/window/Window.h": "",
            "src/native/PlayerNative.h": '#include "platform/media/Demuxer.h"\n'
                                         '#include "platform/window/Window.h"\n',
        })))

    def test_libraries_stay_in_their_folder(self):
        self.assertEqual(4, len(self.offences({
            "src/platform/avfoundation/A.cpp": "extern \"C\" {\n#include <libavcodec/avcodec.h>\n}\n"
                                               "#include <cubeb/cubeb.h>\n",
            "src/platform/media/B.cpp": "#include <asio.hpp>\n",
            "src/platform/uikit/C.cpp": "#include <SDL2/SDL.h>\n",
        })))

    def test_the_application_must_not_reach_the_private_engine(self):
        self.assertEqual(1, len(self.offences({
            "src/platform/media/Demuxer.h": "",
            "app/Feed.cpp": '#include "platform/media/Demuxer.h"\n',
        })))

    def test_the_pool_knows_players_by_their_contract_alone(self):
        self.assertEqual(1, len(self.offences({
            "src/native/PlayerNative.h": "",
            "src/pool/PlayerManager.cpp": '#include "native/PlayerNative.h"\n',
        })))

    def test_circles_of_files_are_found(self):
        found = self.offences({
            "src/pool/A.h": '#include "pool/B.h"\n',
            "src/pool/B.h": '#include "pool/A.h"\n',
        })
        self.assertEqual(["a circle: pool/A.h -> pool/B.h -> pool/A.h"], found)

    def test_circles_of_folders_are_found_where_no_two_files_make_one(self):
        found = self.offences({
            "src/pool/Player.h": "",
            "src/pool/PlayerManager.h": '#include "native/PlayerNative.h"\n',
            "src/native/PlayerNative.h": '#include "pool/Player.h"\n',
        })
        self.assertIn("a circle of folders: native -> pool -> native", found)

    def test_a_room_of_the_engine_must_not_include_one_above_it(self):
        found = self.offences({
            "src/platform/media/video/VideoTrack.h": "",
            "src/platform/media/source/Demuxer.h":
                '#include "platform/media/video/VideoTrack.h"\n',
        })
        self.assertEqual(1, len(found))
        self.assertIn("platform/media/source must not include platform/media/video", found[0])

    def test_the_engine_sees_no_more_of_the_interface_than_tracks_and_segments(self):
        self.assertEqual(1, len(self.offences({
            "src/platform/avfoundation/AVAssetTrack.h": "",
            "src/platform/avfoundation/AVPlayer.h": "",
            "src/platform/media/source/TrackInfo.h":
                '#include "platform/avfoundation/AVAssetTrack.h"\n'
                '#include "platform/avfoundation/AVPlayer.h"\n',
        })))

    def test_a_room_of_the_application_must_not_include_one_above_it(self):
        self.assertEqual(["app/feed/FeedView.h:1: app/feed must not include app/cell"],
                         self.offences({
                             "app/cell/PlayerCell.h": "",
                             "app/feed/FeedView.h": '#include "cell/PlayerCell.h"\n',
                         }))

    def test_an_include_not_written_from_src_is_an_offence(self):
        self.assertEqual(1, len(self.offences({
            "src/pool/A.h": '#include "B.h"\n',
            "src/pool/B.h": "",
        })))


if __name__ == "__main__":
    unittest.main()
