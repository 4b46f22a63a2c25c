#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QString>

#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace sorv {

class LiveTranscriptManager;
class TranscriptListModel;

// The floating "Live Transcript" panel: a small frameless window that stays
// above the others and follows one meeting bot's transcript. The
// application has one; at most one panel is open. Asking for a panel while
// one is open only raises it (it keeps its meeting).
//
// The panel's transcript manager lives exactly as long as the panel: closing
// it with its own button, or in any other way (the window manager, Alt+F4),
// ends the stream, drops both and says floatingTranscriptDidClose() once.
class FloatingPanelController : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isOpen READ isOpen NOTIFY isOpenChanged)
    // The meeting the open panel follows; empty when none is open.
    Q_PROPERTY(QString meetingId READ meetingId NOTIFY isOpenChanged)

public:
    static constexpr QSize kSize{340, 420};
    static constexpr QSize kMinimumSize{280, 200};
    static constexpr QSize kMaximumSize{600, 800};

    // The panel is built from the views' "FloatingTranscriptPanel" with this
    // engine, which must outlive the controller.
    explicit FloatingPanelController(QQmlEngine& engine, QObject* parent = nullptr);
    ~FloatingPanelController() override;

    bool isOpen() const { return m_window != nullptr; }
    QString meetingId() const;
    QQuickWindow* window() const { return m_window; }
    LiveTranscriptManager* manager() const { return m_manager.get(); }

    // Where a new panel goes on a screen's available area: its bottom-right
    // corner, 360 px in from the right edge and 20 px up from the bottom.
    static QRect initialGeometry(const QRect& available);

public Q_SLOTS:
    // Opens the panel for a meeting (or raises the open one). `serverURL` is
    // the service's origin. False when the panel could not be built (the
    // reasons are on standard error).
    bool show(const QString& meetingId, const QString& serverURL, const QString& token);
    // The panel's close button.
    void close();

Q_SIGNALS:
    void isOpenChanged();
    void floatingTranscriptDidClose();

private:
    void windowClosed();
    void release();

    QQmlEngine& m_engine;
    std::unique_ptr<LiveTranscriptManager> m_manager;
    std::unique_ptr<TranscriptListModel> m_transcript;
    QPointer<QQuickWindow> m_window;
};

} // namespace sorv
