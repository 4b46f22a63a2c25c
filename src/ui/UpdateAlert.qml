import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// What an update check found: not available in this build, up to date, a
// newer version to download, or why the check failed.
Popup {
    id: root
    property var updater: null
    property var helpers: null
    readonly property var alert: updater ? updater.alert : null
    modal: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(400, parent ? parent.width - 32 : 400)
    padding: 20
    closePolicy: Popup.CloseOnEscape
    background: Rectangle { radius: 12; color: Theme.card; border.color: Theme.separator }

    Connections {
        target: root.updater
        ignoreUnknownSignals: true
        function onAlertRequested() { root.open() }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: Theme.spacing
        RowLayout {
            spacing: 10
            Image {
                source: "image://symbol/waveform-circle/e5382d"
                sourceSize: Qt.size(64, 64)
                width: 32; height: 32
            }
            Label {
                objectName: "updateAlertTitle"
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                text: root.alert ? root.alert.title : ""
                font.pixelSize: Theme.bodySize + 3
                font.weight: Font.Bold
                color: Theme.text
            }
        }
        Label {
            objectName: "updateAlertText"
            Layout.fillWidth: true
            wrapMode: Text.Wrap
            text: root.alert ? root.alert.text : ""
            color: Theme.text
        }
        RowLayout {
            Layout.alignment: Qt.AlignRight
            spacing: 8
            Button {
                visible: root.alert && root.alert.downloadUrl !== ""
                text: "Later"
                onClicked: root.close()
            }
            Button {
                objectName: "updateAlertDefaultButton"
                highlighted: true
                text: root.alert && root.alert.downloadUrl !== "" ? "Download" : "OK"
                onClicked: {
                    if (root.alert && root.alert.downloadUrl !== "")
                        root.updater.openDownload()
                    root.close()
                }
            }
        }
    }
}
