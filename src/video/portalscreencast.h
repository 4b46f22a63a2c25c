#pragma once

#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QObject>
#include <QSize>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <cstdint>
#include <functional>

namespace sorv {

// One screen-sharing session with the desktop through the xdg-desktop-portal
// ScreenCast interface: CreateSession → SelectSources → Start (the desktop's
// dialog) → OpenPipeWireRemote. Every call's answer comes as a Response
// signal on a request object; each is awaited with a timeout, never by
// blocking. Lives on the GUI thread.
//
// The desktop's consent is kept as a restore token in the settings, one per
// source kind, and sent next time so the dialog is shown once. A token the
// portal refuses is dropped and the dialog shown again.
class PortalScreenCast : public QObject {
    Q_OBJECT

public:
    enum class Source { Monitor, Window };

    struct Result {
        enum class Status { Started, Cancelled, Failed, NoPortal };
        Status status = Status::Failed;
        QString message; // Failed: what went wrong, the portal's words where it gave some
        QDBusUnixFileDescriptor remote; // Started: the PipeWire connection
        std::uint32_t nodeID = 0;       // Started: the stream's node on that connection
        QSize size;                     // Started: the stream's size when the portal tells it
        bool cursorMetadata = false;    // Started: the pointer comes beside the pictures
    };
    using Done = std::function<void(const Result& result)>;

    explicit PortalScreenCast(QObject* parent = nullptr);
    // Closes the session when one is open.
    ~PortalScreenCast() override;

    // Only once per object. `done` is called later, on the GUI thread.
    void start(Source source, Done done);
    // Ends the session (the desktop stops sharing); no `closed` follows. A
    // start still under way answers at once, as failed.
    void close();

    // Settings keys of the stored restore tokens.
    static QString restoreTokenKey(Source source);
    static bool hasRestoreToken(Source source);
    // How long one portal call may take to answer. The dialog gets longer.
    // SORVELANDRIX_PORTAL_TIMEOUT_MS overrides both (for tests).
    static int callTimeoutMs();
    static int dialogTimeoutMs();

    // Asks the session bus whether a ScreenCast portal answers; `done(bool)`
    // later on the calling thread's event loop (a Qt thread).
    static void probe(QObject* context, const std::function<void(bool available)>& done);

    // The window the desktop's dialog belongs to, as the portal spells it
    // ("x11:<hex XID>"), asked at every Start; without one (the command
    // line has no window) the dialog comes up on its own. GUI thread.
    static void setParentWindow(std::function<QString()> handle);

    static QString serviceName();
    static QString objectPath();

Q_SIGNALS:
    // The desktop ended the sharing ("Stop sharing", the screen went away).
    void closed();

private Q_SLOTS:
    void onResponse(const QDBusMessage& message);
    void onSessionClosed();

private:
    using Next = std::function<void(std::uint32_t code, const QVariantMap& results)>;

    void readProperties();
    void createSession();
    void selectSources();
    void startSession();
    void openRemote();
    // Calls `method` with its handle_token set in `options` and waits for
    // the Response on the request object.
    void request(const QString& method, QList<QVariant> args, QVariantMap options, int timeoutMs,
                 Next next);
    void listen(const QString& requestPath);
    void stopListening();
    void finish(const Result& result);
    void fail(const QString& message);

    Source m_source = Source::Monitor;
    Done m_done;
    std::uint32_t m_version = 0;
    std::uint32_t m_sourceTypes = 0;
    std::uint32_t m_cursorModes = 0;
    std::uint32_t m_cursorMode = 0; // the one asked for
    QString m_sessionPath;
    QString m_sentToken;
    bool m_retriedWithoutToken = false;
    std::uint32_t m_nodeID = 0;
    QSize m_size;

    QString m_requestPath; // the Response being waited for
    QString m_method;
    Next m_next;
    QTimer m_timeout;
    bool m_finished = false;
};

} // namespace sorv
