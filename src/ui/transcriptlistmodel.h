#pragma once

#include "transcript/transcriptsegment.h"

#include <QAbstractListModel>
#include <QList>
#include <QMetaObject>
#include <QString>
#include <QStringList>

#include <functional>

namespace sorv {

class LiveTranscriptManager;
class LocalTranscriptManager;
class ServerTranscriptManager;

// The bubbles of a live transcript, for a list view: follows one transcript
// manager's segments (appended, changed in place, cleared) row by row, so a
// view keeps its scroll position, and gives each row its speaker's colour.
// Colours follow the order in which speakers first appear in the list.
class TranscriptListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(QString placeholder READ placeholder CONSTANT)

public:
    enum Role {
        SegmentIdRole = Qt::UserRole + 1,
        SpeakerRole,
        DisplayNameRole,
        TextRole,
        TimestampRole,
        ColorIndexRole,
        ColorRole,
        AccessibleNameRole,
    };
    Q_ENUM(Role)

    explicit TranscriptListModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return static_cast<int>(m_rows.size()); }
    // Shown while there is nothing to show.
    QString placeholder() const;

    // Follows this manager from now on (null: none); the rows are replaced.
    void follow(const ServerTranscriptManager* manager);
    void follow(const LocalTranscriptManager* manager);
    void follow(const LiveTranscriptManager* manager);

    const QList<TranscriptSegment>& segments() const { return m_rows; }
    // The speakers in the order they first appear.
    const QStringList& speakers() const { return m_speakers; }

    // A speaker's palette entry and colour ("#RRGGBB"), against the
    // speakers in the list now.
    Q_INVOKABLE int colorIndexForSpeaker(const QString& speaker) const;
    Q_INVOKABLE QString colorForSpeaker(const QString& speaker) const;

Q_SIGNALS:
    void countChanged();

private:
    template <typename Manager> void followManager(const Manager* manager);
    void resync();
    void appended(int row);
    void trimmed(int dropped);
    void changed(int row, const QList<int>& roles);

    std::function<const QList<TranscriptSegment>*()> m_source;
    QList<QMetaObject::Connection> m_connections;
    QList<TranscriptSegment> m_rows;
    QStringList m_speakers;
};

} // namespace sorv
