#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>
#include <optional>

namespace sorv {

// One choice of what a video recording captures: the main display, another
// display, one application or one window. A plain value identified by `id`.
struct ScreenCaptureTargetOption {
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id CONSTANT)
    Q_PROPERTY(QString title MEMBER title CONSTANT)
    Q_PROPERTY(QString subtitle MEMBER subtitle CONSTANT)
    Q_PROPERTY(QString kindName READ kindName CONSTANT)

public:
    // What to capture. On X11 a display identifier is the RandR output id of
    // the monitor (see ShareableContent for monitors without an output), an
    // application's "bundle identifier" is its WM_CLASS class name, and a
    // window identifier is the client window's XID.
    struct Kind {
        // PortalMonitor and PortalWindow: on Wayland the desktop's sharing
        // dialog picks which screen or window.
        enum class Type { Display, Application, Window, MainDisplay, PortalMonitor, PortalWindow };

        Type type = Type::MainDisplay;
        std::uint32_t displayID = 0; // Display
        QString bundleIdentifier;    // Application
        std::uint32_t windowID = 0;  // Window

        static Kind display(std::uint32_t id) { return {Type::Display, id, {}, 0}; }
        static Kind application(const QString& bundle) { return {Type::Application, 0, bundle, 0}; }
        static Kind window(std::uint32_t id) { return {Type::Window, 0, {}, id}; }
        static Kind mainDisplay() { return {}; }
        static Kind portal(Type t) { return {t, 0, {}, 0}; }

        // "display", "application", "window", "mainDisplay", "portalMonitor",
        // "portalWindow"
        QString name() const;

        friend bool operator==(const Kind&, const Kind&) = default;
    };

    QString id;
    QString title;
    QString subtitle;
    Kind kind;

    QString kindName() const { return kind.name(); }

    static ScreenCaptureTargetOption mainDisplay();
    static ScreenCaptureTargetOption display(std::uint32_t displayID, const QString& screenName,
                                             int width, int height);
    static ScreenCaptureTargetOption application(const QString& bundleIdentifier,
                                                 const QString& name);
    static ScreenCaptureTargetOption window(std::uint32_t windowID, const QString& title,
                                            const QString& applicationName);
    // Wayland: "Entire screen" and "A window", each picked in the desktop's
    // sharing dialog ("portal:monitor", "portal:window").
    static ScreenCaptureTargetOption portalMonitor();
    static ScreenCaptureTargetOption portalWindow();
    // The option an id stands for ("display:main", "display:N", "app:CLASS",
    // "window:N", "portal:monitor", "portal:window"), without the title and subtitle only a listing
    // knows; nothing for an id of no such form.
    static std::optional<ScreenCaptureTargetOption> fromID(const QString& id);

    friend bool operator==(const ScreenCaptureTargetOption&,
                           const ScreenCaptureTargetOption&) = default;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::ScreenCaptureTargetOption)
