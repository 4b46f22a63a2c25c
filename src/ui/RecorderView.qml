import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The recording screen.
Item {
    id: root
    required property var recorder
    property var screen: null
    property var helpers: null
    Label {
        anchors.centerIn: parent
        text: root.recorder.isRecording ? "Recording " + root.recorder.elapsedText : "Ready to record"
        color: Theme.secondaryText
    }
}
