#pragma once

#include <QAbstractListModel>
#include <QString>

namespace sorv {

// The state every list the views show shares: whether it is being loaded and
// why the last load failed (empty: it did not). Subclasses hold the rows and
// say which roles they have.
class ListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    using QAbstractListModel::QAbstractListModel;

    bool loading() const { return m_loading; }
    QString error() const { return m_error; }
    int count() const { return rowCount(); }

Q_SIGNALS:
    void loadingChanged();
    void errorChanged();
    void countChanged();

protected:
    void setLoading(bool loading);
    void setError(const QString& error);
    // Replaces every row at once, for lists that are fetched whole.
    template <typename List, typename Rows> void replaceRows(List& rows, Rows fresh)
    {
        const int before = static_cast<int>(rows.size());
        beginResetModel();
        rows = std::move(fresh);
        endResetModel();
        if (static_cast<int>(rows.size()) != before)
            Q_EMIT countChanged();
    }

private:
    bool m_loading = false;
    QString m_error;
};

} // namespace sorv
