#pragma once

#include "support/isolatedenvironment.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QRect>
#include <QStringList>

#include <csignal>
#include <sys/prctl.h>
#include <vector>

namespace sorv::test {

// Drives the x11testwindows helper: one process holding windows of known
// classes and titles ("CLASS|X|Y|W|H|TITLE"), told what to do line by line.
class TestWindows {
public:
    explicit TestWindows(const QStringList& specs)
    {
        m_process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(buildDirectory() + QStringLiteral("/tests/video/x11testwindows"), specs);
        if (!m_process.waitForStarted(5000))
            return;
        for (;;) {
            const QString line = readLine(15000);
            if (line.isNull())
                return;
            if (line == QLatin1String("ready"))
                break;
            ids.push_back(line.toUInt());
        }
        m_ready = ids.size() == size_t(specs.size());
    }

    ~TestWindows() { quit(); }

    bool isReady() const { return m_ready; }

    // Sends a command and returns its answer ("ok …"), or a null string.
    QString command(const QString& line, int timeoutMs = 5000)
    {
        send(line);
        return readLine(timeoutMs);
    }

    // The frame rectangle from a "move"/"resize" answer.
    static QRect frameFrom(const QString& answer)
    {
        const QStringList f = answer.split(QLatin1Char(' '));
        if (f.size() != 5)
            return {};
        return {f[1].toInt(), f[2].toInt(), f[3].toInt(), f[4].toInt()};
    }

    void send(const QString& line)
    {
        m_process.write((line + QLatin1Char('\n')).toUtf8());
        m_process.waitForBytesWritten(1000);
    }

    // The complete lines that have arrived, without waiting.
    QStringList availableLines()
    {
        QStringList lines;
        while (m_process.canReadLine())
            lines << QString::fromUtf8(m_process.readLine()).trimmed();
        return lines;
    }

    void quit()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        send(QStringLiteral("quit"));
        if (!m_process.waitForFinished(3000)) {
            m_process.kill();
            m_process.waitForFinished(3000);
        }
    }

    std::vector<quint32> ids;

private:
    QString readLine(int timeoutMs)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (!m_process.canReadLine()) {
            if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning ||
                !m_process.waitForReadyRead(int(deadline.remainingTime())))
                return m_process.canReadLine() ? readLine(0) : QString();
        }
        return QString::fromUtf8(m_process.readLine()).trimmed();
    }

    QProcess m_process;
    bool m_ready = false;
};

} // namespace sorv::test
