import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A failure said in one line, with the warning symbol.
RowLayout {
    id: root
    property alias text: message.text
    property color tint: Theme.red
    visible: text !== ""
    spacing: 6
    Symbol {
        name: "warning"
        tint: root.tint
        size: 14
        Layout.alignment: Qt.AlignTop
        Layout.topMargin: 1
    }
    Label {
        id: message
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        color: root.tint
        font.pixelSize: Theme.bodySize
    }
}
