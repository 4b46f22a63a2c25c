#pragma once

#include "recording/audiorecorder.h"
#include "transcript/localtranscriptmanager.h"
#include "transcript/servertranscriptmanager.h"
#include "ui/recorderscreen.h"
#include "ui/recordingconsent.h"
#include "ui/transcriptlistmodel.h"
#include "video/screencapturetargetstore.h"

#include <QtQml/qqml.h>

// The view-models the application builds, known to QML by type (for typed
// properties and their enumerations); QML never creates them.
namespace sorv::qml {

struct RecorderScreenType {
    Q_GADGET
    QML_FOREIGN(sorv::RecorderScreen)
    QML_NAMED_ELEMENT(RecorderScreen)
    QML_UNCREATABLE("built by the application")
};

// The recorder's states, for comparisons in the views.
namespace RecordingStateType {
Q_NAMESPACE
QML_FOREIGN_NAMESPACE(sorv::RecordingState)
QML_NAMED_ELEMENT(RecordingState)
} // namespace RecordingStateType

} // namespace sorv::qml
