import QtQuick
import QtQuick.Controls

// A choice from a list, in the same rounded, outlined style as the fields
// and buttons.
ComboBox {
    id: control
    implicitHeight: 34
    leftPadding: 10
    font.pixelSize: Theme.bodySize
    Accessible.role: Accessible.ComboBox
    contentItem: Text {
        leftPadding: 0
        rightPadding: control.indicator.width + 6
        text: control.displayText
        font: control.font
        color: control.enabled ? Theme.text : Theme.tertiaryText
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
    }
    indicator: Symbol {
        x: control.width - width - 10
        y: (control.height - height) / 2
        name: "chevron-down"
        tint: Theme.secondaryText
        size: 12
    }
    background: Rectangle {
        radius: 8
        color: control.enabled ? (control.hovered ? Theme.hover : Theme.card) : Theme.background
        border.color: control.visualFocus ? Theme.focus : Theme.separator
        border.width: control.visualFocus ? 2 : 1
    }
}
