// SPDX-License-Identifier: Apache-2.0
import QtQuick
import QtMultimedia
import Zaffo

// A clip in Qt Quick, in its own proportions. It has a player only while it can be seen: an item
// that is not visible, or a window that is hidden or minimised, stops the clip, which begins anew
// when it is seen again. What a view has scrolled away stays visible: set `active` there.
Item {
    id: root

    property alias source: player.source
    property alias playing: player.playing
    property alias loop: player.loop
    property alias volume: player.volume
    property alias muted: player.muted
    // Whether it may have a player.
    property bool active: true
    property int fillMode: VideoOutput.PreserveAspectFit
    readonly property alias status: player.status
    readonly property alias error: player.error
    readonly property alias hasPicture: player.hasPicture
    readonly property alias pictureSize: player.pictureSize

    function play() { player.play() }
    function pause() { player.pause() }
    function seek(seconds) { player.seek(seconds) }
    function position() { return player.position() }
    function duration() { return player.duration() }

    implicitWidth: player.pictureSize.width
    implicitHeight: player.pictureSize.height

    ZaffoClip {
        id: player
        active: root.active && root.visible && root.Window.visibility !== Window.Hidden
                && root.Window.visibility !== Window.Minimized
        videoSink: planes.item ? planes.item.videoSink : null
    }

    // Anew for each clip: Qt's output keeps the turn and the colours of the first frame it gets.
    Loader {
        id: planes
        anchors.fill: parent
        active: player.hasPicture && GraphicsInfo.api !== GraphicsInfo.Software
        sourceComponent: VideoOutput { fillMode: root.fillMode }
    }
    Loader {
        anchors.fill: parent
        active: player.hasPicture && GraphicsInfo.api === GraphicsInfo.Software
        sourceComponent: ZaffoImage { media: player; fillMode: root.fillMode }
    }
}
