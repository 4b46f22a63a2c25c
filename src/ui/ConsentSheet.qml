pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Window
import QtQuick.Layouts
import "FocusCycle.js" as FocusCycle
import Sorvelandrix.Ui

// The recording-consent check before the first recording (and before every
// one when the user asks for it). `consent` holds its state and stores the
// answers; agreeing starts the recording through the screen that opened it.
Popup {
    id: root
    property RecordingConsent consent: null
    modal: true
    focus: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(460, parent ? parent.width - 24 : 460)
    height: Math.min(implicitHeight, parent ? parent.height - 24 : implicitHeight)
    padding: 0
    closePolicy: Popup.CloseOnEscape
    background: Rectangle { radius: 14; color: Theme.card; border.color: Theme.separator }

    // The text scrolls when the window is short; the buttons stay in view.
    contentItem: ColumnLayout {
        spacing: 0
        // Keyboard focus goes round the sheet while it is open.
        Keys.onTabPressed: event => FocusCycle.move(this, Window.activeFocusItem, true, event)
        Keys.onBacktabPressed: event => FocusCycle.move(this, Window.activeFocusItem, false, event)
    Flickable {
        id: scroller
        Layout.fillWidth: true
        Layout.fillHeight: true
        implicitHeight: body.implicitHeight + 40
        contentHeight: body.implicitHeight + 40
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        ScrollBar.vertical: ScrollBar {
            policy: scroller.contentHeight > scroller.height ? ScrollBar.AlwaysOn : ScrollBar.AsNeeded
        }

        ColumnLayout {
            id: body
            x: 20
            y: 20
            width: parent.width - 40
            spacing: Theme.spacing

            RowLayout {
                spacing: 12
                Rectangle {
                    width: 44; height: 44; radius: 22
                    color: Theme.errorBackground
                    Symbol { anchors.centerIn: parent; name: "record-fill"; tint: Theme.red; size: 26 }
                }
                ColumnLayout {
                    spacing: 2
                    Label {
                        text: qsTr("Before you record")
                        font.pixelSize: Theme.titleSize
                        font.weight: Font.Bold
                        color: Theme.text
                    }
                    Label {
                        text: qsTr("A quick recording-consent check")
                        color: Theme.secondaryText
                    }
                }
            }

            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                color: Theme.text
                text: root.consent ? root.consent.introduction : ""
            }

            // A positioner, not the layout: the list changes with the mode
            // while the sheet is closed, and a layout that loses children
            // then is arranged over the deleted ones on the next resize.
            Column {
                id: obligations
                Layout.fillWidth: true
                spacing: Theme.spacing
                Repeater {
                    model: root.consent ? root.consent.obligations : []
                    delegate: Row {
                        id: line
                        required property string modelData
                        width: obligations.width
                        spacing: 8
                        Label { id: bullet; text: "•"; color: Theme.text }
                        Label {
                            width: parent.width - bullet.width - parent.spacing
                            wrapMode: Text.Wrap
                            color: Theme.text
                            text: line.modelData
                        }
                    }
                }
            }

            Rectangle {
                Layout.fillWidth: true
                implicitHeight: note.implicitHeight + 20
                radius: 8
                color: Theme.infoBackground
                RowLayout {
                    id: note
                    anchors.fill: parent
                    anchors.margins: 10
                    spacing: 8
                    Symbol { name: "shield-half"; tint: Theme.accent; size: 18; Layout.alignment: Qt.AlignTop }
                    Label {
                        Layout.fillWidth: true
                        wrapMode: Text.Wrap
                        color: Theme.text
                        font.pixelSize: Theme.bodySize
                        text: root.consent ? root.consent.note : ""
                    }
                }
            }

            CheckBox {
                id: acknowledged
                objectName: "acknowledgeCheckBox"
                Layout.fillWidth: true
                text: qsTr("I understand and accept these obligations.")
                Accessible.name: text
                checked: root.consent ? root.consent.acknowledged : false
                onToggled: root.consent.acknowledged = checked
            }
            CheckBox {
                objectName: "remindCheckBox"
                Layout.fillWidth: true
                text: qsTr("Remind me before every recording")
                Accessible.name: text
                checked: root.consent ? root.consent.remindEachRecording : false
                onToggled: root.consent.remindEachRecording = checked
            }

            SecondaryButton {
                objectName: "termsLink"
                plain: true
                leftPadding: 0
                text: qsTr("Read our Recording Consent terms")
                Accessible.name: text
                symbol: "external-link"
                tint: Theme.accent
                onClicked: root.consent.openTerms()
            }

        }
    }
            RowLayout {
                Layout.fillWidth: true
                Layout.margins: 20
                Layout.topMargin: 12
                spacing: 10
                SecondaryButton {
                    objectName: "consentCancelButton"
                    Layout.fillWidth: true
                    implicitHeight: 38
                    text: qsTr("Cancel")
                    onClicked: root.consent.cancel()
                }
                PrimaryButton {
                    objectName: "agreeButton"
                    text: qsTr("I Agree, Start Recording")
                    symbol: "checkmark-seal"
                    tint: Theme.redFill
                    enabled: root.consent ? root.consent.canAgree : false
                    onClicked: root.consent.agree()
                }
            }
    }

    // Return agrees only once the first box is ticked; Escape cancels.
    Shortcut {
        sequences: ["Return", "Enter"]
        enabled: root.visible
        onActivated: if (root.consent && root.consent.canAgree) root.consent.agree()
    }
}
