#pragma once

#include "ui/desktophooks.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace sorv {

// The recording-consent sheet: the obligations of recording other people,
// the acknowledgement that must be ticked before agreeing, and the choice to
// be asked before every recording. Agreeing stores the acknowledgement, then
// says so; the sheet starts nothing itself.
class RecordingConsent : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool recordsVideo READ recordsVideo WRITE setRecordsVideo NOTIFY recordsVideoChanged)
    Q_PROPERTY(bool acknowledged READ acknowledged WRITE setAcknowledged NOTIFY acknowledgedChanged)
    Q_PROPERTY(bool remindEachRecording READ remindEachRecording WRITE setRemindEachRecording NOTIFY
                   remindEachRecordingChanged)
    Q_PROPERTY(bool canAgree READ canAgree NOTIFY acknowledgedChanged)
    Q_PROPERTY(QStringList obligations READ obligations NOTIFY recordsVideoChanged)
    Q_PROPERTY(QUrl termsUrl READ termsUrl CONSTANT)
    Q_PROPERTY(QString title READ title CONSTANT)
    Q_PROPERTY(QString subtitle READ subtitle CONSTANT)
    Q_PROPERTY(QString introduction READ introduction CONSTANT)
    Q_PROPERTY(QString note READ note CONSTANT)
    Q_PROPERTY(QString acknowledgeLabel READ acknowledgeLabel CONSTANT)
    Q_PROPERTY(QString remindLabel READ remindLabel CONSTANT)
    Q_PROPERTY(QString termsLinkLabel READ termsLinkLabel CONSTANT)
    Q_PROPERTY(QString cancelLabel READ cancelLabel CONSTANT)
    Q_PROPERTY(QString agreeLabel READ agreeLabel CONSTANT)

public:
    static inline const QString kAcknowledgedKey = QStringLiteral("consent_v1_acknowledged");
    static inline const QString kRemindKey = QStringLiteral("consent_v1_remind_each_recording");

    explicit RecordingConsent(QObject* parent = nullptr);

    // Whether the sheet comes before the next recording, from the stored
    // settings alone: until acknowledged once, and every time while the
    // user asks to be reminded.
    static bool isDue();
    // Acknowledged once, ever (the screen then does not open the sheet by
    // itself).
    static bool isAcknowledged();

    bool recordsVideo() const { return m_recordsVideo; }
    void setRecordsVideo(bool v);
    bool acknowledged() const { return m_acknowledged; }
    void setAcknowledged(bool v);
    bool remindEachRecording() const { return m_remindEachRecording; }
    // Stored at once, whatever happens to the sheet afterwards.
    void setRemindEachRecording(bool v);
    bool canAgree() const { return m_acknowledged; }

    QStringList obligations() const;
    // The service's terms, on its origin, at the consent section.
    QUrl termsUrl() const;

    QString title() const;
    QString subtitle() const;
    QString introduction() const;
    QString note() const;
    QString acknowledgeLabel() const;
    QString remindLabel() const;
    QString termsLinkLabel() const;
    QString cancelLabel() const;
    QString agreeLabel() const;

    void setDesktopHooks(DesktopHooks hooks) { m_hooks = std::move(hooks); }

public Q_SLOTS:
    // The sheet is presented afresh: nothing ticked, the stored remind choice.
    void reset();
    // Only once the acknowledgement is ticked (Return and the button alike):
    // stores it, then emits agreed().
    void agree();
    // Escape and the Cancel button: emits cancelled(), stores nothing.
    void cancel();
    // "Read our Recording Consent terms".
    void openTerms();

Q_SIGNALS:
    void recordsVideoChanged();
    void acknowledgedChanged();
    void remindEachRecordingChanged();
    void agreed();
    void cancelled();

private:
    bool m_recordsVideo = false;
    bool m_acknowledged = false;
    bool m_remindEachRecording = false;
    DesktopHooks m_hooks;
};

} // namespace sorv
