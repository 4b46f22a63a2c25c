import QtQuick

// One of our symbols (src/ui/icons). Untinted it is the desktop theme's
// icon when the theme has one; with `tint` set it is always ours, in that
// colour.
Item {
    id: root
    property string name
    property color tint: "transparent"
    property int size: 16

    readonly property bool tinted: tint.a > 0
    implicitWidth: size
    implicitHeight: size
    Accessible.ignored: true

    Image {
        anchors.fill: parent
        source: root.name === "" ? ""
                                 : "image://symbol/" + root.name
                                   + (root.tinted ? "/" + root.tint.toString().substring(1) : "")
        sourceSize: Qt.size(root.size * 2, root.size * 2)
        fillMode: Image.PreserveAspectFit
        smooth: true
    }
}
