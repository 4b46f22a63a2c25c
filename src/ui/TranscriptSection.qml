pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// The live transcript on the recorder screen: the toggle, the mode and the
// language, the server's fallback, and the lines in speaker colours.
ColumnLayout {
    id: root
    property RecorderScreen screen: null
    spacing: 8

    SecondaryButton {
        objectName: "transcriptToggle"
        Layout.fillWidth: true
        text: root.screen.transcriptVisible ? qsTr("Hide Live Transcript") : qsTr("Show Live Transcript")
        symbol: "captions"
        onClicked: root.screen.toggleTranscript()
    }

    Rectangle {
        visible: root.screen.transcriptVisible
        Layout.fillWidth: true
        implicitHeight: body.implicitHeight + 24
        radius: Theme.radius
        color: Theme.card
        border.color: Theme.separator

        ColumnLayout {
            id: body
            x: 12
            y: 12
            width: parent.width - 24
            spacing: 8

            RowLayout {
                Layout.fillWidth: true
                Label {
                    objectName: "transcriptModeLabel"
                    text: root.screen.transcriptMode === "onDevice" ? qsTr("On-device preview") : qsTr("Server (diarized)")
                    font.weight: Font.DemiBold
                    color: Theme.text
                }
                Item { Layout.fillWidth: true }
                Label { text: qsTr("Transcription language:"); color: Theme.secondaryText }
                Picker {
                    objectName: "languagePicker"
                    model: root.screen.languages
                    textRole: "label"
                    currentIndex: root.screen.languageIndex
                    onActivated: index => root.screen.selectLanguage(index)
                    Accessible.name: qsTr("Transcription language:")
                }
            }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                text: qsTr("Live shows the original language with speaker labels. English translation is available on the website after you upload.")
                color: Theme.tertiaryText
                font.pixelSize: Theme.captionSize + 1
            }
            RowLayout {
                visible: root.screen.connectingToServer || root.screen.listening
                spacing: 8
                BusyIndicator { implicitWidth: 20; implicitHeight: 20; running: parent.visible }
                Label {
                    objectName: "transcriptActivity"
                    text: root.screen.connectingToServer ? qsTr("Connecting to server…")
                                                         : qsTr("Listening...")
                    color: Theme.secondaryText
                }
            }
            ErrorLine { Layout.fillWidth: true; text: root.screen.transcriptError; tint: Theme.orange }
            RowLayout {
                objectName: "serverFallback"
                visible: root.screen.serverFallbackOffered
                spacing: 8
                SecondaryButton { text: qsTr("Retry server"); onClicked: root.screen.retryServer() }
                SecondaryButton { text: qsTr("Use on-device preview"); onClicked: root.screen.useOnDevicePreview() }
            }

            Label {
                objectName: "transcriptPlaceholder"
                visible: lines.count === 0
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                topPadding: 8
                bottomPadding: 8
                text: qsTr("Waiting for speech...")
                color: Theme.secondaryText
            }
            ListView {
                id: lines
                objectName: "transcriptList"
                Layout.fillWidth: true
                Layout.preferredHeight: Math.min(contentHeight, root.screen.transcriptMaxHeight)
                visible: count > 0
                clip: true
                spacing: 6
                model: root.screen.transcript
                onCountChanged: positionViewAtEnd()
                onContentHeightChanged: positionViewAtEnd()
                delegate: TranscriptBubble {
                    width: lines.width
                }
            }
            SecondaryButton {
                visible: lines.count > 0
                plain: true
                text: root.screen.transcriptExpanded ? qsTr("Collapse") : qsTr("Expand")
                ToolTip.text: root.screen.transcriptExpanded ? qsTr("Use a shorter transcript panel") : qsTr("Show more lines of live transcript")
                ToolTip.visible: hovered
                onClicked: root.screen.toggleTranscriptExpanded()
            }
        }
    }
}
