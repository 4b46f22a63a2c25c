pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Window
import QtQuick.Layouts
import "FocusCycle.js" as FocusCycle
import Sorvelandrix.Ui

// The account's passkeys: list, add one for this computer's security key,
// remove one after confirming.
Popup {
    id: root
    property PasskeysModel passkeys: null
    property var passkeyManager: null
    modal: true
    focus: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(440, parent ? parent.width - 32 : 440)
    height: Math.min(520, parent ? parent.height - 48 : 520)
    padding: 0
    closePolicy: Popup.CloseOnEscape
    onOpened: if (passkeys) passkeys.reload()
    // Closing discards what it showed: the next opening loads afresh.
    onClosed: if (passkeys) passkeys.clear()
    background: Rectangle { radius: 12; color: Theme.background; border.color: Theme.separator }

    ColumnLayout {
        anchors.fill: parent
        // Keyboard focus goes round the sheet while it is open.
        Keys.onTabPressed: event => FocusCycle.move(this, Window.activeFocusItem, true, event)
        Keys.onBacktabPressed: event => FocusCycle.move(this, Window.activeFocusItem, false, event)
        anchors.margins: 18
        spacing: Theme.spacing

        RowLayout {
            Layout.fillWidth: true
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Label {
                    text: qsTr("Passkeys")
                    font.pixelSize: Theme.titleSize
                    font.weight: Font.Bold
                    color: Theme.text
                }
                Label {
                    Layout.fillWidth: true
                    text: qsTr("Sign in without a password using your security key.")
                    wrapMode: Text.Wrap
                    color: Theme.secondaryText
                    font.pixelSize: Theme.bodySize
                }
            }
            ToolButton {
                id: closeButton
                objectName: "closePasskeysButton"
                Accessible.name: qsTr("Close passkeys")
                Layout.alignment: Qt.AlignTop
                onClicked: root.close()
                contentItem: Symbol { name: "xmark-circle"; tint: Theme.tertiaryText; size: 20 }
                background: Rectangle { radius: 6; color: "transparent"; border.color: closeButton.visualFocus ? Theme.focus : "transparent"; border.width: 2 }
            }
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            BusyIndicator {
                anchors.centerIn: parent
                running: visible
                visible: root.passkeys && root.passkeys.loading && root.passkeys.count === 0
                         && root.passkeys.error === ""
            }

            ColumnLayout {
                objectName: "passkeysLoadError"
                anchors.centerIn: parent
                width: parent.width - 20
                visible: root.passkeys && root.passkeys.error !== "" && !root.passkeys.loading
                spacing: 8
                Symbol { Layout.alignment: Qt.AlignHCenter; name: "warning"; tint: Theme.orange; size: 30 }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: qsTr("Couldn't load your passkeys")
                    font.weight: Font.DemiBold
                    font.pixelSize: Theme.bodySize + 2
                    color: Theme.text
                }
                Label {
                    Layout.fillWidth: true
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.Wrap
                    text: root.passkeys ? root.passkeys.error : ""
                    color: Theme.secondaryText
                }
                SecondaryButton {
                    Layout.alignment: Qt.AlignHCenter
                    text: qsTr("Retry")
                    onClicked: root.passkeys.reload()
                }
            }

            ColumnLayout {
                objectName: "passkeysEmpty"
                anchors.centerIn: parent
                width: parent.width - 20
                visible: root.passkeys && root.passkeys.isEmpty
                spacing: 8
                Symbol { Layout.alignment: Qt.AlignHCenter; name: "person-key"; tint: Theme.tertiaryText; size: 34 }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: qsTr("No passkeys yet")
                    font.weight: Font.DemiBold
                    font.pixelSize: Theme.bodySize + 2
                    color: Theme.text
                }
                Label {
                    Layout.fillWidth: true
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.Wrap
                    text: qsTr("Add your first passkey to skip the password next time.")
                    color: Theme.secondaryText
                }
            }

            ListView {
                id: list
                objectName: "passkeysList"
                anchors.fill: parent
                clip: true
                spacing: 6
                visible: root.passkeys && root.passkeys.count > 0 && root.passkeys.error === ""
                model: root.passkeys
                delegate: Rectangle {
                    id: row
                    required property string title
                    required property string addedText
                    required property string lastUsedText
                    required property bool backupEligible
                    required property string removeLabel
                    required property var passkeyId
                    width: list.width
                    height: 58
                    radius: 8
                    color: hover.hovered ? Theme.hover : Theme.card
                    border.color: Theme.separator
                    HoverHandler { id: hover }
                    RowLayout {
                        anchors.fill: parent
                        anchors.margins: 10
                        spacing: 10
                        Symbol { name: "person-key"; tint: row.backupEligible ? Theme.accent : Theme.secondaryText; size: 22 }
                        ColumnLayout {
                            Layout.fillWidth: true
                            spacing: 2
                            Label { text: row.title; font.weight: Font.DemiBold; color: Theme.text; elide: Text.ElideRight; Layout.fillWidth: true }
                            Label { text: row.addedText + "  ·  " + row.lastUsedText; color: Theme.secondaryText; font.pixelSize: Theme.captionSize + 1; elide: Text.ElideRight; Layout.fillWidth: true }
                        }
                        ToolButton {
                            id: removeButton
                            Accessible.name: row.removeLabel
                            onClicked: root.passkeys.requestRemove(row.passkeyId)
                            contentItem: Symbol { name: "trash"; tint: Theme.red; size: 16 }
                            background: Rectangle { radius: 6; color: "transparent"; border.color: removeButton.visualFocus ? Theme.focus : "transparent"; border.width: 2 }
                        }
                    }
                }
            }
        }

        ErrorLine {
            objectName: "passkeysActionError"
            Layout.fillWidth: true
            text: root.passkeys ? root.passkeys.actionError : ""
        }

        PrimaryButton {
            objectName: "addPasskeyButton"
            text: root.passkeys ? root.passkeys.addButtonText : qsTr("Add a passkey")
            symbol: "plus-circle"
            enabled: root.passkeys && !root.passkeys.registering
            onClicked: root.passkeys.add()
        }
    }

    Popup {
        id: confirm
        objectName: "confirmRemoval"
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(340, root.width - 24)
        modal: true
        visible: root.passkeys !== null && root.passkeys.confirmingRemoval
        closePolicy: Popup.CloseOnEscape
        onClosed: if (root.passkeys && root.passkeys.confirmingRemoval) root.passkeys.cancelRemove()
        padding: 18
        background: Rectangle { radius: 12; color: Theme.card; border.color: Theme.separator }
        ColumnLayout {
            anchors.fill: parent
            spacing: 10
            Label { text: qsTr("Remove this passkey?"); font.weight: Font.Bold; font.pixelSize: Theme.bodySize + 3; color: Theme.text }
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: Theme.secondaryText
                text: qsTr("You won't be able to use this passkey to sign in. You can always add another one later.")
            }
            RowLayout {
                Layout.alignment: Qt.AlignRight
                SecondaryButton { text: qsTr("Cancel"); onClicked: root.passkeys.cancelRemove() }
                SecondaryButton {
                    text: qsTr("Remove")
                    tint: Theme.red
                    onClicked: root.passkeys.confirmRemove()
                }
            }
        }
    }

    PasskeyPrompts {
        passkeyManager: root.passkeyManager
    }
}
