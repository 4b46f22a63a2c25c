import QtQuick
import Sorvelandrix.Ui

// Sign-in form or the tabs, whichever the session calls for. The stored
// session is checked once, when the view first appears.
Item {
    id: root
    required property AuthManager auth
    required property AudioRecorder recorder
    required property ViewHelpers helpers
    property PasskeysModel passkeys: null
    property PasskeyOperations passkeyOps: null
    property var passkeyManager: null
    property RecorderScreen recorderScreen: null
    property RecordingsListController recordingsList: null
    property var pendingRecordings: null
    property JoinMeetingController joinMeeting: null
    property var floatingPanel: null

    Component.onCompleted: auth.validateSession()

    Loader {
        id: loader
        objectName: "contentLoader"
        anchors.fill: parent
        sourceComponent: root.auth.isLoggedIn ? tabs : login
    }

    // qmllint disable unqualified
    // (Qt 6.4 cannot load a bound component through a Loader, so these stay
    // unbound and reach the view's properties by its id.)
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
    // qmllint enable unqualified
}
