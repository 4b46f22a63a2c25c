pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// The "Join Meeting" tab: a meeting's link sends the service's bot into it
// to record and transcribe; once it is on its way the tab says so and the
// recordings list takes over.
Item {
    id: root
    property JoinMeetingController controller: null

    ColumnLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 24
        spacing: 14

        // Header.
        Rectangle {
            Layout.alignment: Qt.AlignHCenter
            Layout.topMargin: 10
            width: 56
            height: 56
            radius: 28
            color: Qt.rgba(Theme.blue.r, Theme.blue.g, Theme.blue.b, 0.12)
            Symbol { anchors.centerIn: parent; name: "video-badge-plus"; tint: Theme.blue; size: 28 }
        }
        Label {
            Layout.alignment: Qt.AlignHCenter
            text: qsTr("Join a Meeting")
            font.pixelSize: Theme.titleSize
            font.weight: Font.Bold
            color: Theme.text
        }
        Label {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: qsTr("Paste a Google Meet, Zoom, Teams, or Webex link\nto start recording and transcribing.")
            color: Theme.secondaryText
        }

        FieldBox {
            id: linkField
            Layout.fillWidth: true
            Layout.topMargin: 6
            label: qsTr("MEETING LINK")
            symbol: "link"
            fieldObjectName: "meetingUrlField"
            placeholderText: "https://meet.google.com/abc-defg-hij"
            text: root.controller ? root.controller.meetingUrl : ""
            field.enabled: root.controller && !root.controller.isJoining
            onAccepted: root.controller.join()
            Connections {
                target: linkField.field
                function onTextEdited() { root.controller.meetingUrl = linkField.field.text }
            }
        }

        PrimaryButton {
            objectName: "joinButton"
            text: root.controller && root.controller.isJoining ? qsTr("Joining...") : qsTr("Join & Record")
            symbol: "video-badge-plus"
            tint: Theme.accentFill
            enabled: root.controller && root.controller.canJoin
            onClicked: root.controller.join()
        }

        RowLayout {
            objectName: "joinSuccess"
            visible: root.controller && root.controller.succeeded
            Layout.fillWidth: true
            spacing: 6
            Symbol { name: "checkmark-circle"; tint: Theme.green; size: 16 }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                text: qsTr("Bot sent! Switching to Meetings tab...")
                color: Theme.green
            }
        }
        ErrorLine {
            objectName: "joinError"
            Layout.fillWidth: true
            text: root.controller ? root.controller.errorMessage : ""
        }

        Label {
            Layout.topMargin: 10
            text: qsTr("Supported platforms:")
            color: Theme.secondaryText
            font.pixelSize: Theme.captionSize + 1
        }
        GridLayout {
            objectName: "platformGrid"
            Layout.fillWidth: true
            columns: 2
            columnSpacing: 8
            rowSpacing: 8
            Repeater {
                model: root.controller ? root.controller.platforms : []
                delegate: Rectangle {
                    id: platform
                    required property var modelData
                    Layout.fillWidth: true
                    implicitHeight: 40
                    radius: 8
                    color: Theme.card
                    border.color: Theme.separator
                    Accessible.role: Accessible.StaticText
                    Accessible.name: platform.modelData.name
                    Row {
                        anchors.verticalCenter: parent.verticalCenter
                        x: 12
                        spacing: 8
                        Symbol { name: platform.modelData.icon; size: 20; anchors.verticalCenter: parent.verticalCenter }
                        Label {
                            text: platform.modelData.name
                            color: Theme.text
                            anchors.verticalCenter: parent.verticalCenter
                        }
                    }
                }
            }
        }
    }
}
