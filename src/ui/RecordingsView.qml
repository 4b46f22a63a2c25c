import QtQuick
import QtQuick.Controls

// The account's recordings and active meeting bots.
Item {
    id: root
    property var auth: null
    property var helpers: null
    Label { anchors.centerIn: parent; text: "Recordings"; color: Theme.secondaryText }
}
