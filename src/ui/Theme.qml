pragma Singleton
import QtQuick

// Colours, sizes and type for every view, in one place.
QtObject {
    readonly property color background: "#f5f5f7"
    readonly property color card: "#ffffff"
    readonly property color separator: "#dcdce0"
    readonly property color text: "#1d1d1f"
    readonly property color secondaryText: "#6e6e73"
    readonly property color tertiaryText: "#8e8e93"
    readonly property color accent: "#0a64d8"
    readonly property color red: "#e5382d"
    readonly property color orange: "#f08a00"
    readonly property color green: "#1f9d55"
    readonly property color blue: "#2f6fdf"
    readonly property color fieldBackground: "#ffffff"
    readonly property color selectedTab: "#e8e8ed"
    readonly property color warningBackground: "#fff4e0"
    readonly property color errorBackground: "#fdecea"
    readonly property color hover: "#f0f0f4"
    readonly property color focus: "#0a64d8"

    readonly property int spacing: 12
    readonly property int smallSpacing: 6
    readonly property int radius: 10
    readonly property int fieldHeight: 36

    readonly property int bodySize: 13
    readonly property int captionSize: 11
    readonly property int titleSize: 20
}
