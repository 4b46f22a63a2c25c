import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// One recording on the service: status, title, date, length and speakers;
// a click opens it (or its batch) on the service's web site. Recordings of
// one batch stand together under a header, in batch order.
Item {
    id: root
    required property string recordingId
    required property string title
    required property string dateText
    required property string durationText
    required property int speakerCount
    required property string statusKind
    required property string webAddress
    required property bool inBatch
    required property bool isGroupStart
    required property int groupPosition
    required property int groupSize
    property ViewHelpers helpers: null

    implicitHeight: column.implicitHeight

    ColumnLayout {
        id: column
        width: parent.width
        spacing: 4

        Label {
            objectName: "batchHeader"
            visible: root.isGroupStart
            Layout.topMargin: 4
            text: root.groupSize === 1 ? qsTr("Batch · 1 part") : qsTr("Batch · %1 parts").arg(root.groupSize)
            color: Theme.secondaryText
            font.pixelSize: Theme.captionSize
            font.weight: Font.DemiBold
        }

        Rectangle {
            id: card
            Layout.fillWidth: true
            Layout.leftMargin: root.inBatch ? 12 : 0
            implicitHeight: row.implicitHeight + 18
            radius: Theme.radius
            color: hover.hovered ? Theme.rowHover : Theme.card
            border.color: hover.hovered ? Theme.strongSeparator : Theme.separator
            Accessible.role: Accessible.Button
            Accessible.name: root.title + ", " + root.dateText + ", " + root.durationText
            Accessible.onPressAction: root.open()

            Rectangle {
                visible: root.inBatch
                x: -8
                y: 6
                width: 3
                height: parent.height - 12
                radius: 1.5
                color: Theme.blue
                opacity: 0.5
            }

            RowLayout {
                id: row
                x: 12
                y: 9
                width: parent.width - 24
                spacing: 10

                Symbol {
                    objectName: "statusIcon"
                    Layout.alignment: Qt.AlignTop
                    name: root.statusKind === "completed" ? "checkmark-circle"
                          : root.statusKind === "error" ? "xmark-circle" : "waveform"
                    tint: root.statusKind === "completed" ? Theme.green
                          : root.statusKind === "error" ? Theme.red : Theme.orange
                    size: 18
                }
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 3
                    Label {
                        Layout.fillWidth: true
                        text: (root.inBatch ? (root.groupPosition + 1) + ". " : "") + root.title
                        elide: Text.ElideRight
                        font.weight: Font.DemiBold
                        color: Theme.text
                    }
                    Row {
                        spacing: 10
                        Label {
                            text: root.dateText
                            color: Theme.secondaryText
                            font.pixelSize: Theme.captionSize + 1
                        }
                        Row {
                            spacing: 3
                            Symbol { name: "clock"; tint: Theme.tertiaryText; size: 12; anchors.verticalCenter: parent.verticalCenter }
                            Label {
                                text: root.durationText
                                color: Theme.secondaryText
                                font.pixelSize: Theme.captionSize + 1
                            }
                        }
                        Row {
                            spacing: 3
                            visible: root.speakerCount > 0
                            Symbol { name: "person-2"; tint: Theme.tertiaryText; size: 12; anchors.verticalCenter: parent.verticalCenter }
                            Label {
                                text: root.speakerCount
                                color: Theme.secondaryText
                                font.pixelSize: Theme.captionSize + 1
                            }
                        }
                    }
                }
                Symbol {
                    name: "external-link"
                    tint: hover.hovered ? Theme.accent : Theme.tertiaryText
                    size: 14
                }
            }
            HoverHandler { id: hover; cursorShape: Qt.PointingHandCursor }
            TapHandler { onTapped: root.open() }
        }
    }

    function open() {
        if (root.helpers)
            root.helpers.openUrl(root.webAddress)
    }
}
