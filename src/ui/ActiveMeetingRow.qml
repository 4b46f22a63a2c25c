import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One meeting bot at work: where it is and since when, "Live" to follow its
// transcript in the floating panel and "Stop" to take it out.
Rectangle {
    id: root
    required property string meetingId
    required property string meetingUrl
    required property string meetingCode
    required property string platform
    required property string status
    required property string ageText
    required property bool isStopping
    // Its transcript is open in the floating panel.
    property bool following: false
    property bool stopEnabled: true
    signal liveRequested()
    signal stopRequested()

    readonly property var platformNames: ({
        "google_meet": "Google Meet", "zoom": "Zoom", "teams": "Microsoft Teams",
        "microsoft_teams": "Microsoft Teams", "webex": "Webex"
    })
    readonly property var statusNames: ({
        "joining": qsTr("Joining"), "waiting_room": qsTr("In the waiting room"),
        "in_meeting": qsTr("In the meeting"), "recording": qsTr("Recording")
    })

    implicitHeight: row.implicitHeight + 18
    radius: Theme.radius
    color: Theme.card
    border.color: Theme.separator

    RowLayout {
        id: row
        x: 12
        y: 9
        width: parent.width - 24
        spacing: 10

        Rectangle {
            Layout.alignment: Qt.AlignVCenter
            width: 8
            height: 8
            radius: 4
            color: root.status === "recording" ? Theme.red : Theme.orange
        }
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Label {
                Layout.fillWidth: true
                text: (root.platformNames[root.platform] || root.platform || qsTr("Meeting"))
                      + (root.meetingCode !== "" ? " · " + root.meetingCode : "")
                elide: Text.ElideRight
                font.weight: Font.DemiBold
                color: Theme.text
            }
            Label {
                Layout.fillWidth: true
                text: (root.statusNames[root.status] || root.status)
                      + (root.ageText !== "" ? " · " + root.ageText : "")
                elide: Text.ElideRight
                color: Theme.secondaryText
                font.pixelSize: Theme.captionSize + 1
            }
        }
        SecondaryButton {
            objectName: "liveButton"
            text: qsTr("Live")
            symbol: "text-bubble"
            tint: Theme.orange
            ToolTip.text: qsTr("View live transcript")
            ToolTip.visible: hovered
            ToolTip.delay: 500
            Accessible.name: qsTr("Live")
            Accessible.description: qsTr("View live transcript")
            onClicked: root.liveRequested()
        }
        BusyIndicator {
            visible: root.isStopping
            running: visible
            implicitWidth: 24
            implicitHeight: 24
        }
        SecondaryButton {
            objectName: "stopButton"
            visible: !root.isStopping
            enabled: root.stopEnabled
            text: qsTr("Stop")
            symbol: "stop-fill"
            tint: Theme.red
            ToolTip.text: qsTr("Stop meeting bot")
            ToolTip.visible: hovered
            ToolTip.delay: 500
            Accessible.name: qsTr("Stop")
            Accessible.description: qsTr("Stop meeting bot")
            onClicked: root.stopRequested()
        }
    }
}
