pragma Singleton
import QtQuick
import Sorvelandrix.Ui

// Colours, sizes and type for every view, in one place, in the desktop's
// light or dark scheme. Every text colour keeps at least 4.5:1 against
// background, card and the warning and error backgrounds in both schemes;
// fills that carry text (accentFill, redFill) keep 4.5:1 against onFill.
QtObject {
    readonly property bool dark: ColorScheme.dark

    readonly property color background: dark ? "#1c1c1e" : "#f5f5f7"
    readonly property color card: dark ? "#2a2a2d" : "#ffffff"
    readonly property color separator: dark ? "#48484e" : "#dcdce0"
    readonly property color strongSeparator: dark ? "#66666d" : "#c8c8ce"
    readonly property color text: dark ? "#f2f2f5" : "#1d1d1f"
    readonly property color secondaryText: dark ? "#b4b4bb" : "#5f5f66"
    readonly property color tertiaryText: dark ? "#9d9da5" : "#6c6c72"
    readonly property color accent: dark ? "#6aa8ff" : "#0a5fcc"
    readonly property color red: dark ? "#ff7a70" : "#c42b21"
    readonly property color orange: dark ? "#ffa94d" : "#a35200"
    readonly property color green: dark ? "#5fd68a" : "#12773a"
    readonly property color blue: dark ? "#75a9ff" : "#1f5fc8"
    readonly property color accentFill: dark ? "#2f66c9" : "#0a5fcc"
    readonly property color redFill: dark ? "#c9372c" : "#c42b21"
    readonly property color redFillPressed: dark ? "#a82b22" : "#a3231b"
    readonly property color redFillDisabled: dark ? "#5e2a27" : "#eeb0ab"
    readonly property color onFill: "#ffffff"
    readonly property color fieldBackground: dark ? "#232326" : "#ffffff"
    readonly property color selectedTab: dark ? "#3a3a3e" : "#e8e8ed"
    readonly property color warningBackground: dark ? "#3a2f1c" : "#fff4e0"
    readonly property color errorBackground: dark ? "#3d2224" : "#fdecea"
    readonly property color infoBackground: dark ? "#1f2c40" : "#eef3fc"
    readonly property color hover: dark ? "#38383c" : "#f0f0f4"
    readonly property color rowHover: dark ? "#323236" : "#fafafc"
    readonly property color focus: accent

    readonly property int spacing: 12
    readonly property int smallSpacing: 6
    readonly property int radius: 10
    readonly property int fieldHeight: 36

    readonly property int bodySize: 13
    readonly property int captionSize: 11
    readonly property int titleSize: 20
}
