#pragma once

#include <QByteArray>
#include <QProcess>
#include <QSize>
#include <QString>
#include <QStringList>

namespace sorv::test {

// A private X server for one test: Xvfb on a display number it picks itself
// (-displayfd), optionally with openbox as window manager (for the EWMH window
// list), and DISPLAY pointing at it for this process and its children while
// the object lives. Both die with the test process, even when it crashes.
class XvfbSession {
public:
    struct Options {
        QSize size{1280, 720};
        bool windowManager = true;
    };

    XvfbSession() : XvfbSession(Options{}) {}
    explicit XvfbSession(Options options);
    ~XvfbSession();
    XvfbSession(const XvfbSession&) = delete;
    XvfbSession& operator=(const XvfbSession&) = delete;

    // False (with errorString()) when the server or the window manager did
    // not come up.
    bool isRunning() const { return m_running; }
    const QString& errorString() const { return m_error; }
    // ":N"
    QString display() const { return m_display; }

    // Runs an X client (xrandr, xprop, …) against the session; its standard
    // output in `output`.
    bool run(const QString& program, const QStringList& args, QString* output = nullptr) const;
    // xrandr --setmonitor NAME W/MMWxH/MMH+X+Y OUTPUT ("none" for no output).
    bool setMonitor(const QString& name, const QRect& rect, const QString& output) const;

    // True when Xvfb (and openbox, xprop and xrandr) are installed.
    static bool toolsAvailable();

private:
    void stop();

    QProcess m_server;
    QProcess m_windowManager;
    QString m_display;
    bool m_running = false;
    QString m_error;
    bool m_hadDisplay = false;
    QByteArray m_previousDisplay;
};

} // namespace sorv::test
