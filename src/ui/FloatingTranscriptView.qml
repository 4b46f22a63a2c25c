pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// The floating panel's content: "Live Transcript" with the stream's status
// and a close button, then the transcript in bubbles (newest at the bottom)
// or, while there is none, what the stream is doing.
Rectangle {
    id: root
    required property LiveTranscriptManager manager
    required property TranscriptListModel transcript
    signal closeRequested()

    readonly property string status: manager ? manager.connectionStatus.caseName : "disconnected"
    readonly property string errorText: manager ? manager.connectionStatus.message : ""
    readonly property color statusColor: status === "connected" ? Theme.green
                                         : status === "connecting" ? Theme.orange
                                         : status === "error" ? Theme.red : Theme.tertiaryText

    radius: 12
    color: Theme.background
    border.color: Theme.separator
    implicitWidth: 340
    implicitHeight: 420

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 1
        spacing: 0

        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 14
            Layout.rightMargin: 8
            Layout.topMargin: 8
            Layout.bottomMargin: 8
            spacing: 8
            Label {
                text: qsTr("Live Transcript")
                font.weight: Font.DemiBold
                font.pixelSize: Theme.bodySize + 1
                color: Theme.text
            }
            Rectangle {
                objectName: "statusDot"
                width: 8
                height: 8
                radius: 4
                color: root.statusColor
            }
            Label {
                objectName: "statusLabel"
                Layout.fillWidth: true
                Layout.minimumWidth: 0
                text: root.manager ? root.manager.connectionStatus.label : qsTr("Disconnected")
                color: Theme.secondaryText
                font.pixelSize: Theme.captionSize + 1
                elide: Text.ElideRight
            }
            ToolButton {
                id: closeButton
                objectName: "closeTranscriptButton"
                Accessible.name: qsTr("Close transcript")
                ToolTip.text: qsTr("Close transcript")
                ToolTip.visible: hovered
                ToolTip.delay: 500
                onClicked: root.closeRequested()
                contentItem: Symbol { name: "xmark-circle"; tint: Theme.tertiaryText; size: 18 }
                background: Rectangle { radius: 6; color: "transparent"; border.color: closeButton.visualFocus ? Theme.focus : "transparent"; border.width: 2 }
            }
        }
        Rectangle { Layout.fillWidth: true; implicitHeight: 1; color: Theme.separator }

        // Nothing said yet: what the stream is doing.
        ColumnLayout {
            objectName: "transcriptPlaceholder"
            visible: lines.count === 0
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 8
            Item { Layout.fillHeight: true }
            // One place for the symbol and the spinner, so that either
            // stands centred above the text whichever came first.
            Item {
                Layout.alignment: Qt.AlignHCenter
                implicitWidth: 28
                implicitHeight: 28
                Symbol {
                    anchors.centerIn: parent
                    visible: root.status !== "connecting"
                    name: root.status === "connected" ? "text-bubble"
                          : root.status === "error" ? "warning" : "wifi-slash"
                    tint: root.status === "error" ? Theme.orange : Theme.tertiaryText
                    size: 28
                }
                BusyIndicator {
                    anchors.fill: parent
                    visible: root.status === "connecting"
                    running: visible
                }
            }
            Label {
                objectName: "placeholderText"
                Layout.fillWidth: true
                Layout.leftMargin: 20
                Layout.rightMargin: 20
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                text: root.status === "connected" ? qsTr("Waiting for speech...")
                      : root.status === "connecting" ? qsTr("Connecting to meeting...")
                      : root.status === "error" ? root.errorText
                      : qsTr("Disconnected")
            }
            Item { Layout.fillHeight: true }
        }

        ListView {
            id: lines
            objectName: "transcriptList"
            visible: count > 0
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.margins: 10
            clip: true
            spacing: 6
            model: root.transcript
            // The newest line stays in view, once it is laid out.
            onCountChanged: toEnd.restart()
            onContentHeightChanged: toEnd.restart()
            Timer { id: toEnd; interval: 0; onTriggered: lines.positionViewAtEnd() }
            delegate: TranscriptBubble { width: lines.width }
            ScrollBar.vertical: ScrollBar {}
        }
    }
}
