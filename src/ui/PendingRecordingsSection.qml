import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// "NOT UPLOADED YET": recordings on this computer that the service does not
// have (kept, left by a crash, or whose upload failed), above the service's
// list. A damaged one can only be shown in its folder.
ColumnLayout {
    id: root
    property var model: null
    property string deletePath: ""

    visible: model !== null && model.count > 0
    spacing: 6

    Label {
        text: qsTr("NOT UPLOADED YET")
        color: Theme.secondaryText
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
        font.letterSpacing: 0.8
    }

    // The rows and the sheet reach the section by its id: bound components
    // (pragma ComponentBehavior) would say it to the linter, but a Loader
    // cannot make a bound component in Qt 6.4.
    Repeater {
        model: root.model
        delegate: Rectangle {
            id: pendingRow
            required property string path
            required property string summary
            required property string reason
            required property bool damaged

            objectName: "pendingRow"
            Layout.fillWidth: true
            implicitHeight: row.implicitHeight + 16
            radius: 8
            color: Theme.card
            border.color: Theme.separator

            RowLayout {
                id: row
                anchors.fill: parent
                anchors.margins: 8
                spacing: 8
                Symbol {
                    name: pendingRow.damaged ? "warning" : "waveform"
                    tint: pendingRow.damaged ? Theme.orange : Theme.secondaryText
                    size: 18
                }
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Label {
                        Layout.fillWidth: true
                        text: pendingRow.summary
                        color: Theme.text
                        elide: Text.ElideRight
                    }
                    Label {
                        Layout.fillWidth: true
                        text: pendingRow.reason
                        color: Theme.secondaryText
                        font.pixelSize: Theme.captionSize
                        wrapMode: Text.Wrap
                    }
                }
                SecondaryButton {
                    objectName: "pendingUploadButton"
                    visible: !pendingRow.damaged
                    text: qsTr("Upload")
                    onClicked: root.model.upload(pendingRow.path) // qmllint disable unqualified
                }
                SecondaryButton {
                    objectName: "pendingDeleteButton"
                    visible: !pendingRow.damaged
                    text: qsTr("Delete")
                    onClicked: {
                        root.deletePath = pendingRow.path // qmllint disable unqualified
                        deleteConfirmation.active = true
                        // A Loader's item is a QObject to the linter; it is
                        // the Item below, with its sheet.
                        // qmllint disable
                        deleteConfirmation.item.sheet.open()
                        // qmllint enable
                    }
                }
                SecondaryButton {
                    objectName: "pendingShowButton"
                    text: qsTr("Show in Folder")
                    onClicked: root.model.showInFolder(pendingRow.path) // qmllint disable unqualified
                }
            }
        }
    }

    // Made when first needed: its buttons' names are the other sheets' too.
    Loader {
        id: deleteConfirmation
        active: false
        sourceComponent: Item {
            property alias sheet: sheet
            ConfirmSheet {
                id: sheet
                objectName: "pendingDeleteConfirmation"
                title: qsTr("Delete this recording?")
                message: qsTr("It was never uploaded: it is deleted from this computer and cannot be recovered.")
                confirmText: qsTr("Delete")
                onConfirmed: root.model.remove(root.deletePath) // qmllint disable unqualified
            }
        }
    }
}
