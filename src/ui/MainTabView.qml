pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// Signed in: the header with the recording badges and the user menu, the
// tab bar, and the screen of the chosen tab.
Item {
    id: root
    required property AuthManager auth
    required property AudioRecorder recorder
    required property ViewHelpers helpers
    property PasskeysModel passkeys: null
    property var passkeyManager: null
    property RecorderScreen recorderScreen: null
    property RecordingsListController recordingsList: null
    property var pendingRecordings: null
    property JoinMeetingController joinMeeting: null
    property var floatingPanel: null

    // 0 record, 1 recordings, 2 join.
    property int selectedTab: 0
    property bool showLogout: false
    property bool showPasskeys: false

    readonly property var tabs: [
        { title: "Record", symbol: "record" },
        { title: "Recordings", symbol: "waveform" },
        { title: "Join Meeting", symbol: "link" }
    ]

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        // Header.
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: 52
            color: Theme.card
            RowLayout {
                anchors.fill: parent
                anchors.leftMargin: 16
                anchors.rightMargin: 10
                spacing: 8
                Symbol { name: "waveform-circle"; tint: Theme.red; size: 22 }
                Label {
                    text: qsTr("Sorvelandrix")
                    font.pixelSize: Theme.bodySize + 4
                    font.weight: Font.Bold
                    color: Theme.text
                }
                Badge {
                    objectName: "recBadge"
                    visible: root.recorder.isRecording
                    text: qsTr("REC")
                    tint: Theme.redFill
                    pulsing: true
                }
                Badge {
                    objectName: "videoBadge"
                    visible: root.recorder.isRecording && root.recorder.isVideoMode
                    text: qsTr("VIDEO")
                    tint: Theme.accentFill
                }
                Item { Layout.fillWidth: true }
                ToolButton {
                    id: userButton
                    objectName: "userMenuButton"
                    Accessible.name: qsTr("User menu")
                    onClicked: root.showLogout = !root.showLogout
                    contentItem: Symbol { name: "person-circle"; tint: Theme.secondaryText; size: 24 }
                    background: Rectangle {
                        radius: 16
                        color: userButton.hovered || root.showLogout ? Theme.selectedTab : "transparent"
                        border.color: userButton.visualFocus ? Theme.focus : "transparent"
                        border.width: 2
                    }
                }
            }
            Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.separator }
        }

        // Tab bar.
        RowLayout {
            objectName: "tabBar"
            Layout.fillWidth: true
            Layout.margins: 10
            spacing: 6
            Repeater {
                model: root.tabs
                delegate: Button {
                    id: tabButton
                    required property var modelData
                    required property int index
                    objectName: "tab" + index
                    Layout.fillWidth: true
                    implicitHeight: 34
                    flat: true
                    checkable: false
                    readonly property bool selected: root.selectedTab === tabButton.index
                    Accessible.name: qsTr("%1 tab").arg(modelData.title)
                    Accessible.role: Accessible.PageTab
                    Accessible.selected: selected
                    onClicked: root.selectedTab = tabButton.index
                    contentItem: Item {
                        implicitWidth: tabContent.implicitWidth
                        implicitHeight: tabContent.implicitHeight
                    Row {
                        id: tabContent
                        spacing: 6
                        anchors.centerIn: parent
                        Symbol {
                            name: tabButton.modelData.symbol
                            tint: tabButton.selected ? Theme.text : Theme.secondaryText
                            size: 15
                            anchors.verticalCenter: parent.verticalCenter
                        }
                        Text {
                            text: tabButton.modelData.title
                            font.pixelSize: Theme.bodySize + 1
                            font.weight: tabButton.selected ? Font.DemiBold : Font.Normal
                            color: tabButton.selected ? Theme.text : Theme.secondaryText
                            anchors.verticalCenter: parent.verticalCenter
                        }
                    }
                    }
                    background: Rectangle {
                        radius: 8
                        color: tabButton.selected ? Theme.selectedTab
                                                  : (tabButton.hovered ? Theme.hover : "transparent")
                        border.color: tabButton.visualFocus ? Theme.focus : "transparent"
                        border.width: 2
                    }
                }
            }
        }

        StackLayout {
            objectName: "tabContent"
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: root.selectedTab

            RecorderView {
                recorder: root.recorder
                screen: root.recorderScreen
                helpers: root.helpers
            }
            RecordingsView {
                objectName: "recordingsView"
                controller: root.recordingsList
                pending: root.pendingRecordings
                floatingPanel: root.floatingPanel
                helpers: root.helpers
            }
            JoinMeetingView {
                objectName: "joinMeetingView"
                controller: root.joinMeeting
            }
        }
    }

    Connections {
        target: root.joinMeeting
        function onSwitchToRecordings() { root.selectedTab = 1 }
    }

    // The user menu.
    // Hangs from its button, so that a press on the button is not "outside"
    // and the button's click closes it instead of opening it again.
    Popup {
        id: userMenu
        objectName: "userMenu"
        parent: userButton
        closePolicy: Popup.CloseOnEscape | Popup.CloseOnPressOutsideParent
        visible: root.showLogout
        onClosed: root.showLogout = false
        x: userButton.width - width
        y: userButton.height + 4
        width: 240
        padding: 6
        background: Rectangle { radius: 10; color: Theme.card; border.color: Theme.separator }
        ColumnLayout {
            anchors.fill: parent
            spacing: 2
            Label {
                Layout.fillWidth: true
                Layout.margins: 8
                text: root.auth.displayName
                elide: Text.ElideRight
                color: Theme.secondaryText
                font.pixelSize: Theme.captionSize + 1
                visible: text !== ""
            }
            MenuRow {
                objectName: "managePasskeysButton"
                text: qsTr("Manage Passkeys")
                symbol: "person-key"
                onClicked: {
                    root.showLogout = false
                    root.showPasskeys = true
                }
            }
            MenuRow {
                objectName: "startAtLoginButton"
                text: "Start at login"
                symbol: root.helpers.autostart.enabled ? "checkmark-circle" : "clock"
                Accessible.role: Accessible.CheckBox
                Accessible.checked: root.helpers.autostart.enabled
                onClicked: root.helpers.autostart.enabled = !root.helpers.autostart.enabled
            }
            MenuRow {
                objectName: "signOutButton"
                text: qsTr("Sign Out")
                symbol: "sign-out"
                tint: Theme.red
                onClicked: {
                    root.showLogout = false
                    // An upload under way would be cut off: ask first.
                    // (The linter of Qt 6.4 cannot see a value type's enumerations.)
                    if (root.recorder.state.kind === RecordingState.Uploading) // qmllint disable unqualified
                        signOutConfirmation.open()
                    else
                        root.auth.logout()
                }
            }
        }
    }

    ConfirmSheet {
        id: signOutConfirmation
        objectName: "signOutConfirmation"
        title: qsTr("Sign out during the upload?")
        message: qsTr("The recording is still being uploaded. Signing out stops the upload; the recording stays on this computer so you can retry it after signing in again.")
        confirmText: qsTr("Sign Out")
        onConfirmed: root.auth.logout()
    }

    PasskeysSheet {
        objectName: "passkeysSheet"
        visible: root.showPasskeys
        onClosed: root.showPasskeys = false
        passkeys: root.passkeys
        passkeyManager: root.passkeyManager
    }
}
