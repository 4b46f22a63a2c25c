import QtQuick

// Sign-in form or the tabs, whichever the session calls for. The stored
// session is checked once, when the view first appears.
Item {
    id: root
    required property var auth
    required property var recorder
    required property var helpers
    property var passkeys: null
    property var passkeyOps: null
    property var passkeyManager: null
    property var recorderScreen: null
    property var recordingsList: null
    property var pendingRecordings: null
    property var joinMeeting: null
    property var floatingPanel: null

    Component.onCompleted: auth.validateSession()

    Loader {
        id: loader
        objectName: "contentLoader"
        anchors.fill: parent
        sourceComponent: root.auth.isLoggedIn ? tabs : login
    }

    Component {
        id: login
        LoginView {
            auth: root.auth
            helpers: root.helpers
            passkeyOps: root.passkeyOps
            passkeyManager: root.passkeyManager
        }
    }
    Component {
        id: tabs
        MainTabView {
            auth: root.auth
            recorder: root.recorder
            helpers: root.helpers
            passkeys: root.passkeys
            passkeyManager: root.passkeyManager
            recorderScreen: root.recorderScreen
            recordingsList: root.recordingsList
            pendingRecordings: root.pendingRecordings
            joinMeeting: root.joinMeeting
            floatingPanel: root.floatingPanel
        }
    }
}
