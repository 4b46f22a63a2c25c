import QtQuick
import QtQuick.Controls
import QtQuick.Window
import Sorvelandrix.Ui

// The main window. Every object it shows comes from C++: the session, the
// recorder, the updater and the application's tray delegate.
ApplicationWindow {
    id: window
    required property AuthManager auth
    required property AudioRecorder recorder
    required property ViewHelpers helpers
    property var updater: null
    property var appDelegate: null
    property PasskeysModel passkeys: null
    property PasskeyOperations passkeyOps: null
    property var passkeyManager: null
    property RecorderScreen recorderScreen: null
    property RecordingsListController recordingsList: null
    property var pendingRecordings: null
    property JoinMeetingController joinMeeting: null
    property var floatingPanel: null

    width: 500
    height: 660
    minimumWidth: 420
    minimumHeight: 520
    title: qsTr("Sorvelandrix")
    color: Theme.background

    // The controls' own colours (fields, pickers, scroll bars) in the same scheme.
    palette.window: Theme.background
    palette.windowText: Theme.text
    palette.base: Theme.fieldBackground
    palette.alternateBase: Theme.card
    palette.text: Theme.text
    palette.button: Theme.card
    palette.buttonText: Theme.text
    palette.highlight: Theme.accentFill
    palette.highlightedText: Theme.onFill
    palette.placeholderText: Theme.tertiaryText
    palette.toolTipBase: Theme.card
    palette.toolTipText: Theme.text
    palette.light: Theme.card
    palette.midlight: Theme.hover
    palette.mid: Theme.separator
    palette.dark: Theme.strongSeparator
    palette.shadow: Theme.dark ? "#000000" : "#9a9aa0"
    palette.link: Theme.accent

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
