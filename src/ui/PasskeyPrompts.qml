import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// What a security key needs from the user during a passkey ceremony: its
// PIN, when the key asks for one, and a touch.
Item {
    id: root
    property var passkeyManager: null
    readonly property bool pinRequested: passkeyManager !== null && passkeyManager.isPinRequested
    readonly property bool waitingForTouch: passkeyManager !== null
                                            && passkeyManager.isWaitingForTouch
    anchors.fill: parent

    Popup {
        id: pinDialog
        objectName: "pinDialog"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(340, parent ? parent.width - 40 : 340)
        modal: true
        visible: root.pinRequested
        closePolicy: Popup.CloseOnEscape
        onClosed: if (root.pinRequested) root.passkeyManager.cancelPinRequest()
        onOpened: {
            pin.text = ""
            pin.forceActiveFocus()
        }
        padding: 20
        background: Rectangle { radius: 12; color: Theme.card; border.color: Theme.separator }

        ColumnLayout {
            anchors.fill: parent
            spacing: Theme.spacing
            RowLayout {
                spacing: 10
                Symbol { name: "lock-shield"; tint: Theme.accent; size: 28 }
                Label {
                    Layout.fillWidth: true
                    text: qsTr("Enter your security key's PIN")
                    font.pixelSize: Theme.bodySize + 3
                    font.weight: Font.DemiBold
                    wrapMode: Text.Wrap
                    color: Theme.text
                }
            }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                font.pixelSize: Theme.bodySize
                text: root.passkeyManager && root.passkeyManager.pinAttemptsLeft >= 0
                      ? qsTr("The key allows %1 more attempts before it locks.").arg(root.passkeyManager.pinAttemptsLeft)
                      : qsTr("The key asks for its PIN before it signs.")
            }
            TextField {
                id: pin
                objectName: "pinField"
                Layout.fillWidth: true
                echoMode: TextInput.Password
                placeholderText: qsTr("PIN")
                Accessible.name: qsTr("Security key PIN")
                onAccepted: if (text !== "") ok.clicked()
            }
            RowLayout {
                Layout.alignment: Qt.AlignRight
                spacing: 8
                SecondaryButton {
                    text: qsTr("Cancel")
                    onClicked: pinDialog.close()
                }
                SecondaryButton {
                    id: ok
                    text: qsTr("Continue")
                    enabled: pin.text !== ""
                    onClicked: {
                        const value = pin.text
                        pin.text = ""
                        root.passkeyManager.providePin(value)
                    }
                }
            }
        }
    }

    Popup {
        id: touchPrompt
        objectName: "touchPrompt"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(320, parent ? parent.width - 40 : 320)
        modal: true
        visible: root.waitingForTouch && !root.pinRequested
        closePolicy: Popup.NoAutoClose
        padding: 20
        background: Rectangle { radius: 12; color: Theme.card; border.color: Theme.separator }
        ColumnLayout {
            anchors.fill: parent
            spacing: Theme.spacing
            Symbol {
                Layout.alignment: Qt.AlignHCenter
                name: "person-key"
                tint: Theme.accent
                size: 36
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                text: qsTr("Touch your security key…")
                font.pixelSize: Theme.bodySize + 3
                font.weight: Font.DemiBold
                color: Theme.text
            }
            BusyIndicator { Layout.alignment: Qt.AlignHCenter; running: touchPrompt.visible }
            SecondaryButton {
                Layout.alignment: Qt.AlignHCenter
                text: qsTr("Cancel")
                onClicked: root.passkeyManager.cancel()
            }
        }
    }
}
