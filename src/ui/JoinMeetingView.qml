import QtQuick
import QtQuick.Controls

// Sends the meeting bot into an online meeting.
Item {
    id: root
    property var auth: null
    property var helpers: null
    signal joined()
    Label { anchors.centerIn: parent; text: "Join Meeting"; color: Theme.secondaryText }
}
