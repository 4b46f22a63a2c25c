import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One line of a live transcript: the speaker's name in the speaker's colour
// and what they said. Shared by the recorder screen and the floating panel.
Item {
    id: root
    required property string displayName
    required property string text
    required property string speakerColor
    required property string accessibleName
    implicitHeight: bubble.implicitHeight
    Accessible.role: Accessible.StaticText
    Accessible.name: accessibleName

    Rectangle {
        id: bubble
        width: parent.width
        implicitHeight: content.implicitHeight + 14
        radius: 10
        color: Qt.rgba(Qt.color(root.speakerColor).r, Qt.color(root.speakerColor).g,
                       Qt.color(root.speakerColor).b, 0.10)
        border.color: Qt.rgba(Qt.color(root.speakerColor).r, Qt.color(root.speakerColor).g,
                              Qt.color(root.speakerColor).b, 0.35)
        ColumnLayout {
            id: content
            x: 10
            y: 7
            width: parent.width - 20
            spacing: 2
            Label {
                text: root.displayName
                color: root.speakerColor
                font.weight: Font.DemiBold
                font.pixelSize: Theme.captionSize + 1
            }
            Label {
                Layout.fillWidth: true
                text: root.text
                wrapMode: Text.Wrap
                color: Theme.text
            }
        }
    }
}
