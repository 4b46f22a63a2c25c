import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One item of a small popover menu.
ItemDelegate {
    id: control
    property string symbol
    property color tint: Theme.text
    Layout.fillWidth: true
    implicitHeight: 34
    Accessible.name: text
    contentItem: Row {
        spacing: 8
        Symbol { name: control.symbol; tint: control.tint; size: 16; anchors.verticalCenter: parent.verticalCenter }
        Text {
            text: control.text
            color: control.tint
            font.pixelSize: Theme.bodySize + 1
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    background: Rectangle { radius: 6; color: control.hovered ? Theme.selectedTab : "transparent" }
}
