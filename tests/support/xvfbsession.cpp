#include "xvfbsession.h"

#include <QDeadlineTimer>
#include <QRect>
#include <QStandardPaths>
#include <QThread>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace sorv::test {

namespace {

void dieWithParent()
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
}

} // namespace

bool XvfbSession::toolsAvailable()
{
    for (const char* tool : {"Xvfb", "openbox", "xprop", "xrandr"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            return false;
    return true;
}

XvfbSession::XvfbSession(Options options)
{
    m_hadDisplay = qEnvironmentVariableIsSet("DISPLAY");
    m_previousDisplay = qgetenv("DISPLAY");
    if (!toolsAvailable()) {
        m_error = QStringLiteral("Xvfb, openbox, xprop or xrandr missing");
        return;
    }
    // Xvfb picks a free display number and writes it to this pipe once it
    // accepts connections: no guessing, no race with other tests.
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        m_error = QStringLiteral("pipe failed");
        return;
    }
    const int writeEnd = fds[1];
    m_server.setChildProcessModifier([writeEnd] {
        dieWithParent();
        ::fcntl(writeEnd, F_SETFD, 0); // inherited by Xvfb only
    });
    m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_server.start(QStringLiteral("Xvfb"),
                   {QStringLiteral("-displayfd"), QString::number(writeEnd),
                    QStringLiteral("-screen"), QStringLiteral("0"),
                    QStringLiteral("%1x%2x24").arg(options.size.width()).arg(options.size.height()),
                    // No reset when the last client leaves: monitors set with
                    // xrandr must survive between clients.
                    QStringLiteral("-noreset"), QStringLiteral("-nolisten"),
                    QStringLiteral("tcp")});
    ::close(writeEnd);
    if (!m_server.waitForStarted(5000)) {
        ::close(fds[0]);
        m_error = QStringLiteral("Xvfb did not start: ") + m_server.errorString();
        return;
    }
    QByteArray number;
    const QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired()) {
        pollfd p{fds[0], POLLIN, 0};
        const int r = ::poll(&p, 1, 100);
        if (r < 0 && errno != EINTR)
            break;
        if (r <= 0)
            continue;
        char buffer[32];
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n <= 0)
            break;
        number.append(buffer, n);
        if (number.contains('\n'))
            break;
    }
    ::close(fds[0]);
    if (number.trimmed().isEmpty()) {
        m_error = QStringLiteral("Xvfb did not report its display");
        stop();
        return;
    }
    m_display = QStringLiteral(":") + QString::fromLatin1(number.trimmed());
    qputenv("DISPLAY", m_display.toLatin1());

    if (options.windowManager) {
        m_windowManager.setChildProcessModifier(dieWithParent);
        m_windowManager.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_windowManager.start(QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
        if (!m_windowManager.waitForStarted(5000)) {
            m_error = QStringLiteral("openbox did not start");
            stop();
            return;
        }
        // openbox is managing once it has published its check window.
        bool managing = false;
        const QDeadlineTimer wmDeadline(15000);
        while (!wmDeadline.hasExpired() && m_windowManager.state() == QProcess::Running) {
            QString out;
            if (run(QStringLiteral("xprop"),
                    {QStringLiteral("-root"), QStringLiteral("_NET_SUPPORTING_WM_CHECK")}, &out) &&
                out.contains(QLatin1String("window id"))) {
                managing = true;
                break;
            }
            QThread::msleep(50);
        }
        if (!managing) {
            m_error = QStringLiteral("openbox did not take over the display");
            stop();
            return;
        }
    }
    m_running = true;
}

XvfbSession::~XvfbSession()
{
    stop();
}

void XvfbSession::stop()
{
    for (QProcess* p : {&m_windowManager, &m_server}) {
        if (p->state() == QProcess::NotRunning)
            continue;
        p->terminate();
        if (!p->waitForFinished(5000)) {
            p->kill();
            p->waitForFinished(5000);
        }
    }
    m_running = false;
    if (m_hadDisplay)
        qputenv("DISPLAY", m_previousDisplay);
    else
        qunsetenv("DISPLAY");
}

bool XvfbSession::run(const QString& program, const QStringList& args, QString* output) const
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), m_display);
    p.setProcessEnvironment(env);
    p.start(program, args);
    if (!p.waitForFinished(10000)) {
        p.kill();
        p.waitForFinished();
        return false;
    }
    if (output)
        *output = QString::fromUtf8(p.readAllStandardOutput());
    return p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

bool XvfbSession::setMonitor(const QString& name, const QRect& rect, const QString& output) const
{
    // Physical size at 96 dpi; it only matters to DPI calculations.
    const auto mm = [](int pixels) { return int(pixels * 25.4 / 96.0 + 0.5); };
    const QString geometry = QStringLiteral("%1/%2x%3/%4+%5+%6")
                                 .arg(rect.width())
                                 .arg(mm(rect.width()))
                                 .arg(rect.height())
                                 .arg(mm(rect.height()))
                                 .arg(rect.x())
                                 .arg(rect.y());
    return run(QStringLiteral("xrandr"), {QStringLiteral("--setmonitor"), name, geometry, output});
}

} // namespace sorv::test
