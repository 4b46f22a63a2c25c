import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// The "Recordings" tab: the account's meeting bots at work ("ACTIVE BOTS")
// and its recordings, loaded each time the tab appears and on "Refresh".
Item {
    id: root
    property var controller: null
    property var helpers: null
    // The floating transcript panel, to mark the bot it follows.
    property var floatingPanel: null
    // The recordings on this computer not uploaded yet (PendingRecordings).
    property var pending: null

    readonly property int state: controller ? controller.state : RecordingsListController.Loading
    readonly property int loadingState: RecordingsListController.Loading
    readonly property int loadedState: RecordingsListController.Loaded
    readonly property int emptyState: RecordingsListController.Empty
    readonly property int errorState: RecordingsListController.Error

    onVisibleChanged: if (visible && controller) controller.refresh()

    ColumnLayout {
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        anchors.bottomMargin: 12
        spacing: 8

        RowLayout {
            Layout.fillWidth: true
            Label {
                text: qsTr("Your recordings")
                font.pixelSize: Theme.bodySize + 3
                font.weight: Font.DemiBold
                color: Theme.text
            }
            Item { Layout.fillWidth: true }
            BusyIndicator {
                visible: root.controller && root.controller.refreshing && root.state !== root.loadingState
                running: visible
                implicitWidth: 20
                implicitHeight: 20
            }
            ToolButton {
                id: refreshButton
                objectName: "refreshButton"
                enabled: root.controller && !root.controller.refreshing
                Accessible.name: qsTr("Refresh")
                ToolTip.text: qsTr("Refresh")
                ToolTip.visible: hovered
                ToolTip.delay: 500
                onClicked: root.controller.refresh()
                contentItem: Symbol {
                    name: "arrow-clockwise"
                    tint: refreshButton.enabled ? Theme.secondaryText : Theme.separator
                    size: 18
                }
            }
        }

        PendingRecordingsSection {
            objectName: "pendingRecordings"
            Layout.fillWidth: true
            model: root.pending
        }

        // Loading.
        Item {
            visible: root.state === root.loadingState
            Layout.fillWidth: true
            Layout.fillHeight: true
            BusyIndicator { objectName: "loadingIndicator"; anchors.centerIn: parent; running: parent.visible }
        }

        // Could not load.
        ColumnLayout {
            objectName: "recordingsError"
            visible: root.state === root.errorState
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 8
            Item { Layout.fillHeight: true }
            Symbol { Layout.alignment: Qt.AlignHCenter; name: "warning"; tint: Theme.orange; size: 34 }
            Label {
                Layout.alignment: Qt.AlignHCenter
                text: qsTr("Couldn't load your recordings")
                font.pixelSize: Theme.bodySize + 2
                font.weight: Font.DemiBold
                color: Theme.text
            }
            Label {
                objectName: "loadErrorText"
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: root.controller ? root.controller.loadError : ""
                color: Theme.secondaryText
            }
            SecondaryButton {
                objectName: "retryButton"
                Layout.alignment: Qt.AlignHCenter
                text: qsTr("Retry")
                onClicked: root.controller.refresh()
            }
            Item { Layout.fillHeight: true }
        }

        // Nothing yet.
        ColumnLayout {
            objectName: "recordingsEmpty"
            visible: root.state === root.emptyState
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 8
            Item { Layout.fillHeight: true }
            Symbol { Layout.alignment: Qt.AlignHCenter; name: "waveform"; tint: Theme.tertiaryText; size: 34 }
            Label {
                Layout.alignment: Qt.AlignHCenter
                text: qsTr("No recordings yet")
                font.pixelSize: Theme.bodySize + 2
                font.weight: Font.DemiBold
                color: Theme.text
            }
            Label {
                Layout.fillWidth: true
                Layout.leftMargin: 24
                Layout.rightMargin: 24
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: qsTr("Recordings made on the web or with the recorder in your tray will show up here.")
                color: Theme.secondaryText
            }
            Item { Layout.fillHeight: true }
        }

        // The lists.
        ListView {
            id: list
            objectName: "recordingsList"
            visible: root.state === root.loadedState
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            spacing: 6
            model: root.controller ? root.controller.recordings : null
            ScrollBar.vertical: ScrollBar {}

            // The header and the rows reach the view by its ids. Bound
            // components (pragma ComponentBehavior) would say so to the
            // linter, but in Qt 6.4 the header's bot rows then fail to be
            // made ("Component is not ready").
            // qmllint disable unqualified
            header: ColumnLayout {
                width: list.width
                spacing: 6
                SectionLabel {
                    visible: root.controller && root.controller.hasActiveBots
                    text: qsTr("ACTIVE BOTS")
                }
                Repeater {
                    model: root.controller && root.controller.hasActiveBots
                           ? root.controller.activeMeetings : null
                    delegate: ActiveMeetingRow {
                        Layout.fillWidth: true
                        following: root.floatingPanel !== null && root.floatingPanel.isOpen
                                   && root.floatingPanel.meetingId === meetingId
                        onLiveRequested: root.controller.showLiveTranscript(meetingId)
                        // One bot is stopped at a time; the others wait.
                        stopEnabled: root.controller ? root.controller.activeMeetings.stoppingId === "" : false
                        onStopRequested: root.controller.stopMeeting(meetingId)
                    }
                }
                ErrorLine {
                    Layout.fillWidth: true
                    text: root.controller ? root.controller.activeMeetings.stopError : ""
                }
                SectionLabel {
                    Layout.topMargin: root.controller && root.controller.hasActiveBots ? 8 : 0
                    visible: list.count > 0
                    text: qsTr("RECORDINGS")
                }
                Item { implicitHeight: 0 }
            }

            delegate: RecordingRow {
                width: list.width
                helpers: root.helpers
            }
            // qmllint enable unqualified
        }
    }

    component SectionLabel: Label {
        color: Theme.secondaryText
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
        font.letterSpacing: 0.8
    }
}
