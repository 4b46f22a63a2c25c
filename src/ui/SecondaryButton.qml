import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Every other button: flat and rounded like the prominent one, outlined,
// in the text colour or a tint (red for destructive actions).
Button {
    id: control
    property color tint: Theme.text
    property string symbol: ""
    // A link-like button: no outline until it has the focus.
    property bool plain: false
    implicitHeight: 34
    leftPadding: 12
    rightPadding: 12
    font.pixelSize: Theme.bodySize
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
                tint: control.tint
                size: 14
                anchors.verticalCenter: parent.verticalCenter
            }
            Text {
                text: control.text
                font: control.font
                color: control.tint
                opacity: control.enabled ? 1 : 0.45
                anchors.verticalCenter: parent.verticalCenter
            }
        }
    }
    background: Rectangle {
        radius: 8
        color: control.down ? Theme.selectedTab
                            : (control.hovered ? Theme.hover : (control.plain ? "transparent" : Theme.card))
        border.color: control.visualFocus ? Theme.focus : (control.plain ? "transparent" : Theme.separator)
        border.width: control.visualFocus ? 2 : 1
    }
}
