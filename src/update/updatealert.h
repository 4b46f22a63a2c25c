#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>
#include <QStringList>

namespace sorv {

// What the update checker asks the application to show: an alert with a
// title, an informative text and its buttons (the first is the default).
// `None` is "nothing to show". An `Available` alert's first button, "Open",
// opens `filePath`: the update, already downloaded and its signature
// checked. Compared by value.
class UpdateAlert {
    Q_GADGET
    Q_PROPERTY(Kind kind READ kind CONSTANT)
    Q_PROPERTY(QString title READ title CONSTANT)
    Q_PROPERTY(QString text READ text CONSTANT)
    Q_PROPERTY(QStringList buttons READ buttons CONSTANT)
    Q_PROPERTY(QString filePath READ filePath CONSTANT)
    Q_PROPERTY(QString version READ version CONSTANT)

public:
    enum class Kind { None, Disabled, UpToDate, Available, Failed };
    Q_ENUM(Kind)

    UpdateAlert() = default;

    // In-app updates cannot work in this build (no release signing key).
    static UpdateAlert disabled();
    // `currentVersion` is the newest there is.
    static UpdateAlert upToDate(const QString& currentVersion);
    // `version` has been downloaded to `filePath` and verified.
    static UpdateAlert available(const QString& version, const QString& currentVersion,
                                 const QString& filePath);
    // The check failed; `description` says why.
    static UpdateAlert failed(const QString& description);

    Kind kind() const { return m_kind; }
    QString title() const { return m_title; }
    QString text() const { return m_text; }
    QStringList buttons() const { return m_buttons; }
    QString filePath() const { return m_filePath; }
    // The version offered (Available) or running (UpToDate); empty otherwise.
    QString version() const { return m_version; }

    friend bool operator==(const UpdateAlert&, const UpdateAlert&) = default;

private:
    UpdateAlert(Kind kind, QString title, QString text, QStringList buttons)
        : m_kind(kind), m_title(std::move(title)), m_text(std::move(text)),
          m_buttons(std::move(buttons))
    {}

    Kind m_kind = Kind::None;
    QString m_title;
    QString m_text;
    QStringList m_buttons;
    QString m_filePath;
    QString m_version;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::UpdateAlert)
