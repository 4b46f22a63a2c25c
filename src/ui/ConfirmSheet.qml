import QtQuick
import QtQuick.Controls
import QtQuick.Window
import QtQuick.Layouts
import "FocusCycle.js" as FocusCycle

// Asks before something that cannot be undone. Escape or Cancel keep
// things as they are; the confirming button says what will happen.
Popup {
    id: root
    property string title
    property string message
    property string confirmText
    signal confirmed()

    modal: true
    focus: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(380, parent ? parent.width - 32 : 380)
    padding: 20
    closePolicy: Popup.CloseOnEscape
    background: Rectangle { radius: 12; color: Theme.card; border.color: Theme.separator }
    onOpened: cancelButton.forceActiveFocus()

    ColumnLayout {
        anchors.fill: parent
        // Keyboard focus goes round the sheet while it is open.
        Keys.onTabPressed: event => FocusCycle.move(this, Window.activeFocusItem, true, event)
        Keys.onBacktabPressed: event => FocusCycle.move(this, Window.activeFocusItem, false, event)
        spacing: Theme.spacing
        Label {
            Layout.fillWidth: true
            text: root.title
            wrapMode: Text.Wrap
            font.pixelSize: Theme.bodySize + 3
            font.weight: Font.Bold
            color: Theme.text
        }
        Label {
            Layout.fillWidth: true
            text: root.message
            wrapMode: Text.Wrap
            color: Theme.text
        }
        RowLayout {
            Layout.fillWidth: true
            spacing: 8
            SecondaryButton {
                id: cancelButton
                objectName: "confirmCancelButton"
                Layout.fillWidth: true
                text: qsTr("Cancel")
                onClicked: root.close()
            }
            PrimaryButton {
                objectName: "confirmButton"
                text: root.confirmText
                tint: Theme.redFill
                onClicked: {
                    root.close()
                    root.confirmed()
                }
            }
        }
    }
}
