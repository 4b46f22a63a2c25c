pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Window
import QtQuick.Layouts
import "FocusCycle.js" as FocusCycle

// What an update check found: not available in this build, up to date, a
// newer version downloaded and checked, or why the check failed; while the
// check runs, what it is doing. The updater says what to show and takes
// the answer.
Popup {
    id: root
    property var updater: null
    readonly property var alert: updater ? updater.alert : null
    readonly property var buttons: alert ? alert.buttons : []
    readonly property bool alerting: alert !== null && alert.title !== ""
    readonly property string activity: updater ? updater.activity : ""
    modal: alerting
    focus: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(400, parent ? parent.width - 32 : 400)
    padding: 20
    closePolicy: Popup.CloseOnEscape
    visible: alerting || activity !== ""
    onClosed: if (root.alerting) root.updater.answerAlert(-1)
    background: Rectangle { radius: 12; color: Theme.card; border.color: Theme.separator }

    ColumnLayout {
        anchors.fill: parent
        // Keyboard focus goes round the sheet while it is open.
        Keys.onTabPressed: event => FocusCycle.move(this, Window.activeFocusItem, true, event)
        Keys.onBacktabPressed: event => FocusCycle.move(this, Window.activeFocusItem, false, event)
        spacing: Theme.spacing
        RowLayout {
            spacing: 10
            Symbol { name: "waveform-circle"; tint: Theme.red; size: 32 }
            Label {
                objectName: "updateAlertTitle"
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                text: root.alerting ? root.alert.title : qsTr("Checking for Updates")
                font.pixelSize: Theme.bodySize + 3
                font.weight: Font.Bold
                color: Theme.text
            }
        }
        Label {
            objectName: "updateAlertText"
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            text: root.alerting ? root.alert.text : root.activity
            color: Theme.text
        }
        ProgressBar {
            objectName: "updateProgress"
            Layout.fillWidth: true
            visible: !root.alerting && root.activity !== ""
            indeterminate: !root.updater || root.updater.progress < 0
            value: root.updater ? Math.max(0, root.updater.progress) : 0
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8
            // The first button is the default one; it goes last, on the right.
            Repeater {
                model: root.buttons.length
                delegate: Button {
                    id: alertButton
                    required property int index
                    readonly property int buttonIndex: root.buttons.length - 1 - alertButton.index
                    objectName: "updateAlertButton" + buttonIndex
                    text: root.buttons[buttonIndex]
                    highlighted: buttonIndex === 0
                    onClicked: root.updater.answerAlert(buttonIndex)
                }
            }
        }
    }
}
