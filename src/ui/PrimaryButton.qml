import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The one prominent action of a screen.
Button {
    id: control
    property color tint: Theme.accentFill
    property string symbol: ""
    Layout.fillWidth: true
    implicitHeight: 38
    font.pixelSize: Theme.bodySize + 1
    font.weight: Font.DemiBold
    Accessible.name: text
    contentItem: Item {
        implicitWidth: content.implicitWidth
        implicitHeight: content.implicitHeight
        Row {
        id: content
        spacing: 6
        anchors.centerIn: parent
        Symbol {
            visible: control.symbol !== ""
            name: control.symbol
            tint: Theme.onFill
            size: 15
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            text: control.text
            font: control.font
            color: Theme.onFill
            anchors.verticalCenter: parent.verticalCenter
        }
        }
    }
    background: Rectangle {
        radius: 8
        color: control.enabled ? (control.down ? Qt.darker(control.tint, 1.15) : control.tint)
                               : Qt.rgba(control.tint.r, control.tint.g, control.tint.b, 0.45)
        // The focus ring: a light inner line on the filled button, the
        // focus colour around it.
        border.color: control.visualFocus ? Theme.onFill : "transparent"
        border.width: 2
        Rectangle {
            visible: control.visualFocus
            anchors.fill: parent
            anchors.margins: -3
            radius: parent.radius + 3
            color: "transparent"
            border.color: Theme.focus
            border.width: 2
        }
    }
}
