import QtQuick
import QtQuick.Controls
import QtQuick.Window

// The main window. Every object it shows comes from C++: the session, the
// recorder, the updater and the application's tray delegate.
ApplicationWindow {
    id: window
    required property var auth
    required property var recorder
    required property var helpers
    property var updater: null
    property var appDelegate: null
    property var passkeys: null
    property var passkeyOps: null
    property var passkeyManager: null
    property var recorderScreen: null
    property var recordingsList: null
    property var pendingRecordings: null
    property var joinMeeting: null
    property var floatingPanel: null

    width: 500
    height: 660
    minimumWidth: 420
    minimumHeight: 520
    title: qsTr("Sorvelandrix")
    color: Theme.background

    ContentView {
        id: content
        objectName: "contentView"
        anchors.fill: parent
        auth: window.auth
        recorder: window.recorder
        helpers: window.helpers
        passkeys: window.passkeys
        passkeyOps: window.passkeyOps
        passkeyManager: window.passkeyManager
        recorderScreen: window.recorderScreen
        recordingsList: window.recordingsList
        pendingRecordings: window.pendingRecordings
        joinMeeting: window.joinMeeting
        floatingPanel: window.floatingPanel
    }

    Shortcut {
        sequence: "Ctrl+Q"
        context: Qt.ApplicationShortcut
        onActivated: if (window.appDelegate) window.appDelegate.quitApp()
    }
    Shortcut {
        sequence: "Ctrl+Shift+U"
        context: Qt.ApplicationShortcut
        onActivated: if (window.updater) window.updater.checkForUpdates()
    }

    UpdateAlert {
        id: updateAlert
        objectName: "updateAlert"
        updater: window.updater
    }
}
