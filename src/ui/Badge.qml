import QtQuick
import QtQuick.Controls

// A small coloured capsule in the header ("REC", "VIDEO").
Rectangle {
    id: root
    property alias text: label.text
    property color tint: Theme.redFill
    property bool pulsing: false
    implicitWidth: label.implicitWidth + 14
    implicitHeight: 20
    radius: 10
    color: tint
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    Label {
        id: label
        anchors.centerIn: parent
        color: Theme.onFill
        font.pixelSize: Theme.captionSize
        font.weight: Font.Bold
        font.letterSpacing: 0.8
    }
    // Two steps a second rather than a smooth animation: a frame at the
    // display's rate would cost more than the recording it marks.
    Timer {
        running: root.pulsing && root.visible
        repeat: true
        interval: 750
        onTriggered: root.opacity = root.opacity < 1 ? 1 : 0.6
        onRunningChanged: if (!running) root.opacity = 1
    }
}
