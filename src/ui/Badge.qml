import QtQuick
import QtQuick.Controls

// A small coloured capsule in the header ("REC", "VIDEO").
Rectangle {
    id: root
    property alias text: label.text
    property color tint: Theme.red
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
        color: "#ffffff"
        font.pixelSize: Theme.captionSize
        font.weight: Font.Bold
        font.letterSpacing: 0.8
    }
    SequentialAnimation on opacity {
        running: root.pulsing && root.visible
        loops: Animation.Infinite
        NumberAnimation { to: 0.55; duration: 750 }
        NumberAnimation { to: 1.0; duration: 750 }
    }
}
