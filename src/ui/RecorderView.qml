pragma ComponentBehavior: Bound
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// The recording screen. Everything it shows comes from `screen` (the
// RecorderScreen view-model) and the recorder's own meters; every button is
// one call on it.
Item {
    id: root
    required property AudioRecorder recorder
    property RecorderScreen screen: null
    property ViewHelpers helpers: null
    readonly property string page: screen ? screen.page : "idle"

    // Each time the screen is shown (the tabs keep it alive when hidden):
    // the consent sheet comes back until it is acknowledged.
    Component.onCompleted: if (screen && visible) screen.appear()
    onVisibleChanged: if (screen && visible) screen.appear()

    // What may grow (warnings, the transcript) scrolls; the main button,
    // the timer and the status stay pinned below it, in the same place
    // whatever appears above.
    Flickable {
        id: scroller
        objectName: "recorderScroller"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.bottom: footer.visible ? footer.top : parent.bottom
        contentHeight: column.implicitHeight + 32
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        visible: root.screen !== null
        ScrollBar.vertical: ScrollBar {
            policy: scroller.contentHeight > scroller.height ? ScrollBar.AlwaysOn : ScrollBar.AsNeeded
        }

        ColumnLayout {
            id: column
            x: 20
            y: 12
            width: parent.width - 40
            spacing: Theme.spacing

            // ---- Before and during the recording ----
            ColumnLayout {
                Layout.fillWidth: true
                spacing: Theme.spacing
                visible: root.page === "idle" || root.page === "capturing"

                Card {
                    objectName: "modeSection"
                    visible: root.page === "idle"
                    Layout.fillWidth: true
                    ColumnLayout {
                        width: parent.width
                        spacing: 8
                        Caption { text: qsTr("Recording mode") }
                        RowLayout {
                            spacing: 6
                            Layout.fillWidth: true
                            Segment {
                                objectName: "audioOnlyButton"
                                text: qsTr("Audio only")
                                symbol: "waveform"
                                selected: !root.screen.recordVideo
                                onClicked: root.screen.recordVideo = false
                            }
                            Segment {
                                objectName: "videoCallButton"
                                text: qsTr("Video call")
                                symbol: "display"
                                selected: root.screen.recordVideo
                                onClicked: root.screen.recordVideo = true
                            }
                        }
                        Note { text: root.screen.recordVideo ? qsTr("Records your screen plus mic and call audio — best for WhatsApp, Zoom, and Teams.") : qsTr("Records microphone and system audio only (no screen video).") }
                        Note { objectName: "headphonesHint"; text: qsTr("Use headphones if you hear echo — speakers let the mic pick up the call twice.") }
                        Note { text: qsTr("Needs screen-sharing permission on Wayland desktops. After allowing, quit (Ctrl+Q) and reopen once."); visible: root.screen.recordVideo }

                        ColumnLayout {
                            visible: root.screen.recordVideo
                            Layout.fillWidth: true
                            spacing: 4
                            Caption { text: qsTr("Capture source") }
                            RowLayout {
                                Layout.fillWidth: true
                                Picker {
                                    id: sources
                                    objectName: "captureSourcePicker"
                                    Layout.fillWidth: true
                                    model: root.screen.captureSources
                                    textRole: "title"
                                    currentIndex: root.screen.selectedCaptureSourceIndex
                                    onActivated: index => root.screen.selectCaptureSource(index)
                                    Accessible.name: qsTr("Capture source")
                                    delegate: ItemDelegate {
                                        required property string title
                                        required property string subtitle
                                        required property string section
                                        required property bool firstInSection
                                        required property int index
                                        width: sources.width
                                        id: sourceRow
                                        highlighted: sources.highlightedIndex === sourceRow.index
                                        // The section's heading stays out of the highlight.
                                        background: Rectangle {
                                            y: sectionHeading.visible ? sectionHeading.height + sourceRow.topPadding : 0
                                            height: sourceRow.height - y
                                            color: sourceRow.highlighted ? sourceRow.palette.highlight : "transparent"
                                        }
                                        contentItem: ColumnLayout {
                                            spacing: 1
                                            Label {
                                                id: sectionHeading
                                                visible: sourceRow.firstInSection
                                                text: sourceRow.section
                                                font.pixelSize: Theme.captionSize
                                                font.weight: Font.DemiBold
                                                color: Theme.secondaryText
                                            }
                                            Label { text: sourceRow.title; color: sourceRow.highlighted ? sourceRow.palette.highlightedText : Theme.text; elide: Text.ElideRight; Layout.fillWidth: true }
                                            Label { text: sourceRow.subtitle; visible: text !== ""; color: sourceRow.highlighted ? sourceRow.palette.highlightedText : Theme.tertiaryText; opacity: sourceRow.highlighted ? 0.8 : 1; font.pixelSize: Theme.captionSize; elide: Text.ElideRight; Layout.fillWidth: true }
                                        }
                                    }
                                }
                                SecondaryButton {
                                    objectName: "refreshSourcesButton"
                                    symbol: "arrow-clockwise"
                                    text: qsTr("Refresh")
                                    enabled: !root.screen.captureSourcesLoading
                                    onClicked: root.screen.refreshCaptureSources()
                                }
                            }
                            Note { text: root.screen.captureSourcesError; visible: text !== ""; color: Theme.red }
                            Note { text: qsTr("Choose which display, app, or window to record.") }
                        }
                    }
                }

                Card {
                    Layout.fillWidth: true
                    visible: root.page === "idle" || root.screen.isRecording
                    RowLayout {
                        width: parent.width
                        spacing: 8
                        Symbol { name: "mic"; tint: Theme.secondaryText; size: 16 }
                        Picker {
                            objectName: "microphonePicker"
                            Layout.fillWidth: true
                            enabled: root.screen.soundServer !== RecorderScreen.Waiting
                            model: root.screen.microphones
                            textRole: "label"
                            currentIndex: root.screen.selectedMicrophoneIndex
                            onActivated: index => root.screen.selectMicrophone(index)
                            Accessible.name: qsTr("Microphone")
                        }
                        SecondaryButton {
                            objectName: "refreshMicrophonesButton"
                            symbol: "arrow-clockwise"
                            text: qsTr("Refresh device list")
                            onClicked: root.screen.refreshMicrophones()
                        }
                    }
                }

                // Meters.
                Card {
                    objectName: "meters"
                    Layout.fillWidth: true
                    visible: root.screen.isRecording
                    ColumnLayout {
                        width: parent.width
                        spacing: 6
                        Meter { label: qsTr("Microphone"); symbol: "mic"; level: root.recorder.micLevel }
                        Meter { label: qsTr("System Audio"); symbol: "speaker"; level: root.recorder.systemLevel }
                        Note { text: qsTr("During WhatsApp/Zoom calls, watch the Microphone meter — if it stays flat while you speak, your voice may not be recorded until the call ends.") }
                    }
                }

                Warning {
                    objectName: "micSilentWarning"
                    visible: root.screen.micSilentWarningVisible
                    title: qsTr("Microphone is silent")
                    message: root.screen.micSilentMessage
                }
                Warning {
                    objectName: "systemAudioWarning"
                    visible: root.screen.systemAudioWarningVisible
                    title: qsTr("Mic only — system audio unavailable")
                    message: root.screen.systemAudioError
                    SecondaryButton {
                        text: qsTr("Settings")
                        visible: root.screen.canOpenPrivacySettings
                        onClicked: root.screen.openPrivacySettings()
                    }
                    SecondaryButton {
                        objectName: "retrySystemAudioButton"
                        symbol: "arrow-clockwise"
                        text: qsTr("Retry")
                        onClicked: root.screen.retrySystemAudio()
                    }
                }
                Warning {
                    objectName: "screenAccessWarning"
                    visible: root.screen.screenAccessWarningVisible
                    title: ""
                    message: root.screen.screenAccessWarning
                    SecondaryButton {
                        text: qsTr("Open Settings")
                        visible: root.screen.canOpenPrivacySettings
                        onClicked: root.screen.openPrivacySettings()
                    }
                    SecondaryButton {
                        text: qsTr("I fixed it — check again")
                        onClicked: root.screen.checkScreenAccessAgain()
                    }
                }

                TranscriptSection {
                    Layout.fillWidth: true
                    visible: root.screen.isRecording
                    screen: root.screen
                }
            }

            // ---- After the recording ----
            Card {
                objectName: "pendingSavePage"
                visible: root.page === "pendingSave"
                Layout.fillWidth: true
                ColumnLayout {
                    width: parent.width
                    spacing: 10
                    Title { text: qsTr("Save this recording?") }
                    Note { text: root.screen.durationText; font.pixelSize: Theme.bodySize + 2; color: Theme.text }
                    PrimaryButton {
                        objectName: "saveButton"
                        text: qsTr("Save & Upload")
                        symbol: "cloud-upload"
                        onClicked: root.screen.saveAndUpload()
                    }
                    Note { text: qsTr("Save and upload recording") }
                    SecondaryButton {
                        objectName: "discardButton"
                        Layout.fillWidth: true
                        text: qsTr("Discard")
                        symbol: "trash"
                        tint: Theme.red
                        onClicked: discardConfirmation.open()
                    }
                    Note { text: qsTr("Discard recording") }
                }
            }
            Card {
                objectName: "uploadingPage"
                visible: root.page === "uploading"
                Layout.fillWidth: true
                ColumnLayout {
                    width: parent.width
                    spacing: 10
                    Title { text: qsTr("Uploading to Sorvelandrix...") }
                    ProgressBar { Layout.fillWidth: true; value: root.screen.uploadProgress }
                    Note { text: Math.round(root.screen.uploadProgress * 100) + " %" }
                }
            }
            Card {
                objectName: "uploadedPage"
                visible: root.page === "uploaded"
                Layout.fillWidth: true
                ColumnLayout {
                    width: parent.width
                    spacing: 10
                    Symbol { Layout.alignment: Qt.AlignHCenter; name: "checkmark-seal"; tint: Theme.green; size: 40 }
                    Title { Layout.alignment: Qt.AlignHCenter; text: qsTr("Uploaded successfully") }
                    PrimaryButton {
                        objectName: "viewRecordingButton"
                        visible: root.screen.canViewRecording
                        text: qsTr("View Recording")
                        onClicked: root.screen.viewRecording()
                    }
                    SecondaryButton {
                        Layout.fillWidth: true
                        text: qsTr("Record Another")
                        onClicked: root.screen.recordAnother()
                    }
                }
            }
            Card {
                objectName: "errorPage"
                visible: root.page === "error"
                Layout.fillWidth: true
                ColumnLayout {
                    width: parent.width
                    spacing: 10
                    ErrorLine { Layout.fillWidth: true; text: root.screen.errorMessage }
                    PrimaryButton {
                        objectName: "retryUploadButton"
                        visible: root.screen.retryUploadOffered
                        text: qsTr("Retry upload")
                        onClicked: root.screen.retryUpload()
                    }
                    SecondaryButton {
                        objectName: "startOverButton"
                        Layout.fillWidth: true
                        text: root.screen.retryUploadOffered ? qsTr("Start over") : qsTr("Try Again")
                        onClicked: root.screen.startOver()
                    }
                }
            }
        }
    }

    Rectangle {
        id: footer
        objectName: "recorderFooter"
        visible: root.screen !== null && (root.page === "idle" || root.page === "capturing")
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        implicitHeight: controls.implicitHeight + 12 + 18
        height: implicitHeight
        color: Theme.background
        Rectangle { width: parent.width; height: 1; color: Theme.separator }

        ColumnLayout {
            id: controls
            x: 20
            y: 12
            width: parent.width - 40
            spacing: 6
            Warning {
                objectName: "soundServerNotice"
                visible: root.screen.soundServer !== RecorderScreen.Answers
                good: root.screen.soundServer === RecorderScreen.Resumed
                title: !good ? qsTr("Waiting for the sound server")
                               : qsTr("The sound server is back — recording resumed")
                message: !good ? qsTr("Nothing is recorded until it answers again; the recording goes on by itself then.")
                                 : ""
            }
            Note {
                Layout.alignment: Qt.AlignHCenter
                horizontalAlignment: Text.AlignHCenter
                text: root.screen.recordingSourceLine
                visible: text !== ""
            }
            Label {
                objectName: "statusLine"
                Layout.alignment: Qt.AlignHCenter
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                // One line kept even when empty, for the same reason.
                text: root.screen.statusText !== "" ? root.screen.statusText : " "
                color: Theme.secondaryText
            }
            RoundButton {
                id: mainButton
                objectName: "mainButton"
                Layout.alignment: Qt.AlignHCenter
                implicitWidth: 84
                implicitHeight: 84
                enabled: root.screen.mainButtonEnabled
                Accessible.name: root.screen.isRecording ? qsTr("Stop recording") : qsTr("Start recording")
                onClicked: root.screen.pressMainButton()
                background: Rectangle {
                    radius: width / 2
                    color: mainButton.enabled ? (mainButton.down ? Theme.redFillPressed : Theme.redFill) : Theme.redFillDisabled
                    border.color: mainButton.visualFocus ? Theme.focus : Theme.card
                    border.width: 4
                }
                contentItem: Item {
                    Rectangle {
                        anchors.centerIn: parent
                        width: root.screen.mainButtonShowsStop ? 28 : 34
                        height: width
                        radius: root.screen.mainButtonShowsStop ? 5 : width / 2
                        color: Theme.onFill
                    }
                }
            }
            Label {
                objectName: "elapsedText"
                Layout.alignment: Qt.AlignHCenter
                // Its place is kept while hidden: nothing below the button moves.
                opacity: root.screen.isRecording ? 1 : 0
                text: root.recorder.elapsedText
                font.pixelSize: 28
                font.family: "monospace"
                color: Theme.text
            }
        }
    }

    ConfirmSheet {
        id: discardConfirmation
        objectName: "discardConfirmation"
        title: qsTr("Discard this recording?")
        message: qsTr("The recording is deleted from this computer and cannot be recovered.")
        confirmText: qsTr("Discard")
        onConfirmed: root.screen.discard()
    }

    ConsentSheet {
        objectName: "consentSheet"
        consent: root.screen ? root.screen.consent : null
        visible: root.screen !== null && root.screen.showingConsentSheet
        // Escape or a click outside: the same as Cancel.
        onClosed: if (root.screen.showingConsentSheet) root.screen.consent.cancel()
    }

    component Card: Rectangle {
        default property alias content: inner.data
        implicitHeight: inner.childrenRect.height + 24
        radius: Theme.radius
        color: Theme.card
        border.color: Theme.separator
        Item {
            id: inner
            x: 12
            y: 12
            width: parent.width - 24
            height: childrenRect.height
        }
    }
    component Caption: Label {
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
        font.letterSpacing: 0.5
        color: Theme.secondaryText
    }
    component Title: Label {
        font.pixelSize: Theme.bodySize + 4
        font.weight: Font.Bold
        color: Theme.text
        wrapMode: Text.Wrap
    }
    component Note: Label {
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        color: Theme.secondaryText
        font.pixelSize: Theme.bodySize
    }
    component Segment: Button {
        id: segment
        property bool selected: false
        property string symbol
        Layout.fillWidth: true
        implicitHeight: 34
        Accessible.name: text
        Accessible.checked: selected
        contentItem: Item {
            implicitWidth: segmentRow.implicitWidth
            implicitHeight: segmentRow.implicitHeight
            Row {
                id: segmentRow
                anchors.centerIn: parent
                spacing: 6
                Symbol { name: segment.symbol; tint: segment.selected ? Theme.onFill : Theme.text; size: 15; anchors.verticalCenter: parent.verticalCenter }
                Text { text: segment.text; color: segment.selected ? Theme.onFill : Theme.text; font.pixelSize: Theme.bodySize + 1; anchors.verticalCenter: parent.verticalCenter }
            }
        }
        background: Rectangle {
            radius: 8
            color: segment.selected ? Theme.accentFill : Theme.selectedTab
            border.color: segment.visualFocus ? (segment.selected ? Theme.onFill : Theme.focus) : "transparent"
            border.width: 2
        }
    }
    component Meter: RowLayout {
        property string label
        property string symbol
        id: meter
        property real level: 0
        Layout.fillWidth: true
        spacing: 8
        Symbol { name: parent.symbol; tint: Theme.secondaryText; size: 14 }
        Label { text: parent.label; color: Theme.text; Layout.preferredWidth: 110; elide: Text.ElideRight }
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: 8
            radius: 4
            color: Theme.selectedTab
            Rectangle {
                // Whole pixels: a change too small to see repaints nothing.
                width: Math.round(parent.width * Math.min(1, Math.max(0, meter.level)))
                height: parent.height
                radius: 4
                color: meter.level > 0.9 ? Theme.red : Theme.green
            }
        }
    }
    component Warning: Rectangle {
        id: warning
        // A good turn (something came back) rather than a problem.
        property bool good: false
        property string title
        property string message
        default property alias actions: actionRow.data
        Layout.fillWidth: true
        implicitHeight: warningColumn.implicitHeight + 20
        radius: 8
        color: Theme.warningBackground
        ColumnLayout {
            id: warningColumn
            x: 10
            y: 10
            width: parent.width - 20
            spacing: 6
            RowLayout {
                Layout.fillWidth: true
                spacing: 8
                Symbol { name: warning.good ? "checkmark-circle" : "warning"; tint: warning.good ? Theme.green : Theme.orange; size: 16; Layout.alignment: Qt.AlignTop }
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Label { visible: warning.title !== ""; text: warning.title; font.weight: Font.DemiBold; color: Theme.text; wrapMode: Text.Wrap; Layout.fillWidth: true }
                    Label { text: warning.message; color: Theme.text; wrapMode: Text.Wrap; Layout.fillWidth: true; visible: text !== "" }
                }
            }
            RowLayout { id: actionRow; Layout.alignment: Qt.AlignRight; spacing: 6 }
        }
    }
}
