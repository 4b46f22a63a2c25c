import QtQuick
import Sorvelandrix.Ui

// One of our symbols (src/ui/icons). Untinted it is the desktop theme's
// icon when the theme has one (in the dark scheme ours, in the text colour:
// theme icons are drawn for a light window); with `tint` set it is always
// ours, in that colour.
Item {
    id: root
    property string name
    property color tint: "transparent"
    property int size: 16

    readonly property color shownTint: tint.a > 0 ? tint : (Theme.dark ? Theme.text : "transparent")
    readonly property bool tinted: shownTint.a > 0
    implicitWidth: size
    implicitHeight: size
    Accessible.ignored: true

    Image {
        anchors.fill: parent
        source: root.name === "" ? ""
                                 : "image://symbol/" + root.name
                                   + (root.tinted ? "/" + root.shownTint.toString().substring(1) : "")
        sourceSize.width: root.size * 2
        sourceSize.height: root.size * 2
        fillMode: Image.PreserveAspectFit
        smooth: true
    }
}
