import QtQuick
import QtQuick.Controls
import QtQuick.Window
import Sorvelandrix.Ui

// The floating live-transcript panel: a frameless window above the others
// that the user moves by its background and resizes from its corner. Its
// controller sets the flags, size limits and place.
Window {
    id: window
    required property LiveTranscriptManager manager
    required property TranscriptListModel transcript
    // The close button; the controller closes the panel.
    signal closeRequested()

    title: qsTr("Live Transcript")
    color: "transparent"
    width: 340
    height: 420

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
            property color stroke: Theme.tertiaryText
            onStrokeChanged: requestPaint()
            onPaint: {
                const ctx = getContext("2d")
                ctx.strokeStyle = stroke
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
