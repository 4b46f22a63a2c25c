import QtQuick
import QtQuick.Controls
import QtQuick.Window
import Sorvelandrix.Ui

// The floating live-transcript panel: a frameless window above the others
// that the user moves by its background and resizes from its corner. Its
// controller sets the flags, size limits and place.
Window {
    id: window
    required property var manager
    required property var transcript
    // The close button; the controller closes the panel.
    signal closeRequested()

    title: qsTr("Live Transcript")
    color: "transparent"
    width: 340
    height: 420

    // Moved by its background: the area lies under the view, so the
    // buttons and the list keep their own presses.
    WindowDragArea {
        objectName: "moveArea"
        anchors.fill: parent
    }

    FloatingTranscriptView {
        anchors.fill: parent
        manager: window.manager
        transcript: window.transcript
        onCloseRequested: window.closeRequested()
    }

    // Resized from the bottom-right corner.
    WindowDragArea {
        objectName: "resizeGrip"
        resizes: true
        width: 16
        height: 16
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        Canvas {
            anchors.fill: parent
            onPaint: {
                const ctx = getContext("2d")
                ctx.strokeStyle = "#a0a0a6"
                ctx.lineWidth = 1.2
                for (let i = 0; i < 3; ++i) {
                    ctx.beginPath()
                    ctx.moveTo(width - 3 - i * 4, height - 3)
                    ctx.lineTo(width - 3, height - 3 - i * 4)
                    ctx.stroke()
                }
            }
        }
    }
}
