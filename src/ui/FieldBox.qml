import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A labelled text field with a leading symbol, as the sign-in form shows them.
ColumnLayout {
    id: root
    property alias label: caption.text
    property alias symbol: icon.name
    property alias field: input
    property alias text: input.text
    property alias placeholderText: input.placeholderText
    property alias echoMode: input.echoMode
    property alias inputMethodHints: input.inputMethodHints
    property alias fieldObjectName: input.objectName
    default property alias trailing: trailingRow.data
    signal accepted()
    spacing: 4

    Label {
        id: caption
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
        font.letterSpacing: 0.6
        color: Theme.secondaryText
    }
    Rectangle {
        Layout.fillWidth: true
        implicitHeight: Theme.fieldHeight
        radius: 8
        color: Theme.fieldBackground
        border.color: input.activeFocus ? Theme.accent : Theme.separator
        border.width: input.activeFocus ? 2 : 1
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 10
            anchors.rightMargin: 6
            spacing: 8
            Symbol {
                id: icon
                size: 16
                tint: Theme.secondaryText
            }
            TextField {
                id: input
                Layout.fillWidth: true
                background: null
                leftPadding: 0
                font.pixelSize: Theme.bodySize + 1
                color: Theme.text
                selectByMouse: true
                Accessible.name: caption.text
                // Qt gives a password field no name (it would be the text); its
                // caption still reaches the screen reader as the description.
                Accessible.description: caption.text
                onAccepted: root.accepted()
            }
            Row {
                id: trailingRow
            }
        }
    }
}
