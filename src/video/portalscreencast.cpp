#include "portalscreencast.h"

#include "core/settings.h"
#include "video/videolog.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>
#include <QRandomGenerator>

namespace sorv {

namespace {

const QString kScreenCast = QStringLiteral("org.freedesktop.portal.ScreenCast");
const QString kRequest = QStringLiteral("org.freedesktop.portal.Request");
const QString kSession = QStringLiteral("org.freedesktop.portal.Session");
constexpr int kCallTimeoutMs = 25'000;
// The user reads the dialog and picks a screen or window.
constexpr int kDialogTimeoutMs = 10 * 60'000;

// Portal flags: source types and cursor modes.
constexpr std::uint32_t kMonitor = 1;
constexpr std::uint32_t kWindow = 2;
constexpr std::uint32_t kCursorHidden = 1;
constexpr std::uint32_t kCursorEmbedded = 2;
constexpr std::uint32_t kCursorMetadata = 4;
// Kept until the user revokes it.
constexpr std::uint32_t kPersistUntilRevoked = 2;

QString newToken()
{
    return QStringLiteral("sorv%1").arg(QRandomGenerator::global()->generate());
}

QVariantMap toMap(const QVariant& v)
{
    if (v.canConvert<QDBusArgument>())
        return qdbus_cast<QVariantMap>(v.value<QDBusArgument>());
    return v.toMap();
}

std::function<QString()>& parentWindowHandle()
{
    static std::function<QString()> handle;
    return handle;
}

bool isMissingPortal(const QDBusError& error)
{
    switch (error.type()) {
    case QDBusError::ServiceUnknown:
    case QDBusError::UnknownObject:
    case QDBusError::UnknownInterface:
    case QDBusError::UnknownMethod:
    case QDBusError::UnknownProperty:
    // xdg-desktop-portal without a screen-cast backend for this desktop has
    // no ScreenCast interface, and GDBus answers GetAll of an interface it
    // lacks with InvalidArgs ("No such interface").
    case QDBusError::InvalidArgs:
        return true;
    default:
        return false;
    }
}

} // namespace

PortalScreenCast::PortalScreenCast(QObject* parent) : QObject(parent)
{
    m_timeout.setSingleShot(true);
    connect(&m_timeout, &QTimer::timeout, this, [this] {
        stopListening();
        fail(QCoreApplication::translate(
                 "PortalScreencast",
                 "The desktop's screen-sharing portal did not answer %1 in time.")
                 .arg(m_method));
    });
}

PortalScreenCast::~PortalScreenCast()
{
    close();
}

QString PortalScreenCast::serviceName()
{
    return QStringLiteral("org.freedesktop.portal.Desktop");
}

QString PortalScreenCast::objectPath()
{
    return QStringLiteral("/org/freedesktop/portal/desktop");
}

QString PortalScreenCast::restoreTokenKey(Source source)
{
    return source == Source::Window ? QStringLiteral("screenCast/restoreTokenWindow")
                                    : QStringLiteral("screenCast/restoreTokenMonitor");
}

bool PortalScreenCast::hasRestoreToken(Source source)
{
    return !Settings::value(restoreTokenKey(source)).toString().isEmpty();
}

int PortalScreenCast::callTimeoutMs()
{
    bool ok = false;
    const int v = qEnvironmentVariableIntValue("SORVELANDRIX_PORTAL_TIMEOUT_MS", &ok);
    return ok && v > 0 ? v : kCallTimeoutMs;
}

int PortalScreenCast::dialogTimeoutMs()
{
    bool ok = false;
    const int v = qEnvironmentVariableIntValue("SORVELANDRIX_PORTAL_TIMEOUT_MS", &ok);
    return ok && v > 0 ? v : kDialogTimeoutMs;
}

void PortalScreenCast::setParentWindow(std::function<QString()> handle)
{
    parentWindowHandle() = std::move(handle);
}

void PortalScreenCast::probe(QObject* context, const std::function<void(bool)>& done)
{
    // A call on a bus that is not there would never answer.
    if (!QDBusConnection::sessionBus().isConnected()) {
        QTimer::singleShot(0, context, [done] { done(false); });
        return;
    }
    QDBusMessage get = QDBusMessage::createMethodCall(
        serviceName(), objectPath(), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    get << kScreenCast << QStringLiteral("version");
    auto* watcher = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(get, callTimeoutMs()), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [watcher, done](QDBusPendingCallWatcher*) {
                         watcher->deleteLater();
                         done(!watcher->isError());
                     });
}

void PortalScreenCast::start(Source source, Done done)
{
    m_source = source;
    m_done = std::move(done);
    if (!QDBusConnection::sessionBus().isConnected()) {
        finish({Result::Status::NoPortal, QStringLiteral("no session bus"), {}, 0, {}, false});
        return;
    }
    readProperties();
}

void PortalScreenCast::readProperties()
{
    QDBusMessage getAll = QDBusMessage::createMethodCall(
        serviceName(), objectPath(), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("GetAll"));
    getAll << kScreenCast;
    auto* watcher = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(getAll, callTimeoutMs()), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QVariantMap> reply = *watcher;
        if (reply.isError() || !reply.value().contains(QStringLiteral("version"))) {
            qCWarning(lcVideo, "No ScreenCast portal: %s", qPrintable(reply.error().message()));
            const QDBusError::ErrorType type = reply.error().type();
            finish(
                {reply.isError() && !isMissingPortal(reply.error()) && type != QDBusError::NoReply
                     ? Result::Status::Failed
                     : Result::Status::NoPortal,
                 reply.error().message(),
                 {},
                 0,
                 {},
                 false});
            return;
        }
        const QVariantMap props = reply.value();
        m_version = props.value(QStringLiteral("version")).toUInt();
        m_sourceTypes = props.value(QStringLiteral("AvailableSourceTypes")).toUInt();
        m_cursorModes = props.value(QStringLiteral("AvailableCursorModes")).toUInt();
        qCInfo(lcVideo, "ScreenCast portal version %u (sources %u, cursor modes %u)", m_version,
               m_sourceTypes, m_cursorModes);
        createSession();
    });
}

void PortalScreenCast::createSession()
{
    request(
        QStringLiteral("CreateSession"), {}, {{QStringLiteral("session_handle_token"), newToken()}},
        callTimeoutMs(), [this](std::uint32_t, const QVariantMap& results) {
            m_sessionPath = results.value(QStringLiteral("session_handle")).toString();
            if (m_sessionPath.isEmpty()) {
                fail(QCoreApplication::translate(
                    "PortalScreencast", "The desktop's screen-sharing portal made no session."));
                return;
            }
            QDBusConnection::sessionBus().connect(serviceName(), m_sessionPath, kSession,
                                                  QStringLiteral("Closed"), this,
                                                  SLOT(onSessionClosed()));
            selectSources();
        });
}

void PortalScreenCast::selectSources()
{
    std::uint32_t wanted = m_source == Source::Window ? kWindow : kMonitor;
    // A portal that shares no single windows (some wlroots ones) is asked
    // for a screen instead of failing.
    if (m_sourceTypes != 0 && (m_sourceTypes & wanted) == 0)
        wanted = kMonitor;
    QVariantMap options{{QStringLiteral("types"), QVariant::fromValue(wanted)},
                        {QStringLiteral("multiple"), false}};
    // Versions before 2 know no cursor modes; an unknown option is an error
    // to some portals. A pointer that only comes as metadata is drawn in by
    // PipeWireStream.
    m_cursorMode = 0;
    if (m_version >= 2 && m_cursorModes != 0) {
        m_cursorMode = (m_cursorModes & kCursorEmbedded) != 0   ? kCursorEmbedded
                       : (m_cursorModes & kCursorMetadata) != 0 ? kCursorMetadata
                                                                : kCursorHidden;
        options.insert(QStringLiteral("cursor_mode"), QVariant::fromValue(m_cursorMode));
    }
    m_sentToken.clear();
    if (m_version >= 4) {
        options.insert(QStringLiteral("persist_mode"), QVariant::fromValue(kPersistUntilRevoked));
        if (!m_retriedWithoutToken)
            m_sentToken = Settings::value(restoreTokenKey(m_source)).toString();
        if (!m_sentToken.isEmpty())
            options.insert(QStringLiteral("restore_token"), m_sentToken);
    }
    request(QStringLiteral("SelectSources"), {QVariant::fromValue(QDBusObjectPath(m_sessionPath))},
            options, callTimeoutMs(),
            [this](std::uint32_t, const QVariantMap&) { startSession(); });
}

void PortalScreenCast::startSession()
{
    // "" without a window (the command line): the dialog comes up on its own.
    const QString parentWin = parentWindowHandle() ? parentWindowHandle()() : QString();
    request(
        QStringLiteral("Start"), {QVariant::fromValue(QDBusObjectPath(m_sessionPath)), parentWin},
        {}, dialogTimeoutMs(), [this](std::uint32_t, const QVariantMap& results) {
            const QString token = results.value(QStringLiteral("restore_token")).toString();
            if (!token.isEmpty())
                Settings::setValue(restoreTokenKey(m_source), token);
            else if (!m_sentToken.isEmpty())
                Settings::remove(restoreTokenKey(m_source));
            const auto streams = results.value(QStringLiteral("streams")).value<QDBusArgument>();
            bool found = false;
            streams.beginArray();
            while (!streams.atEnd()) {
                std::uint32_t node = 0;
                QVariantMap props;
                streams.beginStructure();
                streams >> node >> props;
                streams.endStructure();
                if (found)
                    continue;
                found = true;
                m_nodeID = node;
                const QVariant size = props.value(QStringLiteral("size"));
                if (size.canConvert<QDBusArgument>()) {
                    int w = 0;
                    int h = 0;
                    const auto arg = size.value<QDBusArgument>();
                    arg.beginStructure();
                    arg >> w >> h;
                    arg.endStructure();
                    m_size = QSize(w, h);
                }
            }
            streams.endArray();
            if (!found) {
                fail(QCoreApplication::translate("PortalScreencast",
                                                 "The desktop shared no screen or window."));
                return;
            }
            openRemote();
        });
}

void PortalScreenCast::openRemote()
{
    QDBusMessage call = QDBusMessage::createMethodCall(serviceName(), objectPath(), kScreenCast,
                                                       QStringLiteral("OpenPipeWireRemote"));
    call << QVariant::fromValue(QDBusObjectPath(m_sessionPath)) << QVariantMap();
    m_method = QStringLiteral("OpenPipeWireRemote");
    auto* watcher = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(call, callTimeoutMs()), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *watcher;
        if (reply.isError() || !reply.value().isValid()) {
            fail(reply.error().message());
            return;
        }
        finish({Result::Status::Started,
                {},
                reply.value(),
                m_nodeID,
                m_size,
                m_cursorMode == kCursorMetadata});
    });
}

void PortalScreenCast::request(const QString& method, QList<QVariant> args, QVariantMap options,
                               int timeoutMs, Next next)
{
    if (m_finished)
        return;
    const QString token = newToken();
    options.insert(QStringLiteral("handle_token"), token);
    // The request object's path is known before the call, so its Response
    // cannot come before we listen.
    QString sender = QDBusConnection::sessionBus().baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    listen(QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token));
    m_method = method;
    m_next = std::move(next);
    m_timeout.start(timeoutMs);

    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName(), objectPath(), kScreenCast, method);
    args.append(options);
    call.setArguments(args);
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call, timeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, method] {
        watcher->deleteLater();
        if (m_method != method || m_finished)
            return;
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError()) {
            stopListening();
            fail(reply.error().message());
            return;
        }
        // Portals older than the handle_token convention answer elsewhere.
        if (reply.value().path() != m_requestPath)
            listen(reply.value().path());
    });
}

void PortalScreenCast::listen(const QString& requestPath)
{
    stopListening();
    m_requestPath = requestPath;
    QDBusConnection::sessionBus().connect(serviceName(), m_requestPath, kRequest,
                                          QStringLiteral("Response"), this,
                                          SLOT(onResponse(QDBusMessage)));
}

void PortalScreenCast::stopListening()
{
    if (m_requestPath.isEmpty())
        return;
    QDBusConnection::sessionBus().disconnect(serviceName(), m_requestPath, kRequest,
                                             QStringLiteral("Response"), this,
                                             SLOT(onResponse(QDBusMessage)));
    m_requestPath.clear();
}

void PortalScreenCast::onResponse(const QDBusMessage& message)
{
    if (message.path() != m_requestPath || message.arguments().size() < 2)
        return;
    m_timeout.stop();
    stopListening();
    const std::uint32_t code = message.arguments().at(0).toUInt();
    const QVariantMap results = toMap(message.arguments().at(1));
    Next next = std::move(m_next);
    if (code == 1) {
        finish({Result::Status::Cancelled, {}, {}, 0, {}, false});
        return;
    }
    if (code != 0) {
        // A stored consent the desktop no longer honours: forget it and ask.
        if (!m_sentToken.isEmpty() && !m_retriedWithoutToken &&
            (m_method == QLatin1String("SelectSources") || m_method == QLatin1String("Start"))) {
            qCInfo(lcVideo, "The desktop refused the stored screen-sharing consent; asking again");
            Settings::remove(restoreTokenKey(m_source));
            m_retriedWithoutToken = true;
            Done done = std::exchange(m_done, nullptr);
            close();
            m_done = std::move(done);
            m_finished = false;
            createSession();
            return;
        }
        const QString why = results.value(QStringLiteral("message")).toString();
        fail(why.isEmpty()
                 ? QStringLiteral("%1 failed (portal response %2)").arg(m_method).arg(code)
                 : why);
        return;
    }
    if (next)
        next(code, results);
}

void PortalScreenCast::onSessionClosed()
{
    qCInfo(lcVideo, "The desktop ended the screen-sharing session");
    QDBusConnection::sessionBus().disconnect(serviceName(), m_sessionPath, kSession,
                                             QStringLiteral("Closed"), this,
                                             SLOT(onSessionClosed()));
    m_sessionPath.clear();
    if (!m_finished)
        fail(QCoreApplication::translate("PortalScreencast",
                                         "The desktop ended the screen sharing."));
    else
        Q_EMIT closed();
}

void PortalScreenCast::close()
{
    // A start still waiting for the desktop answers now, once.
    if (m_done != nullptr) {
        fail(QCoreApplication::translate("PortalScreencast",
                                         "The screen sharing was closed before it started."));
        return;
    }
    m_timeout.stop();
    stopListening();
    m_finished = true;
    if (m_sessionPath.isEmpty())
        return;
    QDBusConnection::sessionBus().disconnect(serviceName(), m_sessionPath, kSession,
                                             QStringLiteral("Closed"), this,
                                             SLOT(onSessionClosed()));
    QDBusConnection::sessionBus().asyncCall(QDBusMessage::createMethodCall(
        serviceName(), m_sessionPath, kSession, QStringLiteral("Close")));
    m_sessionPath.clear();
}

void PortalScreenCast::fail(const QString& message)
{
    finish({Result::Status::Failed, message, {}, 0, {}, false});
}

void PortalScreenCast::finish(const Result& result)
{
    if (m_done == nullptr)
        return;
    Done done = std::exchange(m_done, nullptr);
    m_timeout.stop();
    if (result.status != Result::Status::Started)
        close();
    m_finished = true;
    done(result);
}

} // namespace sorv

#include "moc_portalscreencast.cpp"
