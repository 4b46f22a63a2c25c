#include "passkeysmodel.h"

#include "core/notify.h"
#include "service/accountsource.h"

#include <QCoreApplication>
#include <QLocale>

#include <algorithm>
#include <variant>

namespace sorv {
namespace {

QString dateText(const QDateTime& when)
{
    return QLocale().toString(when.toLocalTime(), QLocale::ShortFormat);
}

// The user closing the PIN dialog or declining on the key is not an error
// worth a line under the list.
bool isCancellation(const PasskeyFailure& failure)
{
    if (const auto* ceremony = std::get_if<PasskeyError>(&failure))
        return ceremony->kind() == PasskeyError::Kind::cancelled;
    return std::get<PasskeyAuthError>(failure).kind() == PasskeyAuthError::Kind::cancelled;
}

} // namespace

QString PasskeysModel::titleOf(const Passkey& passkey)
{
    return passkey.label.value_or(QString()).isEmpty()
               ? QCoreApplication::translate("PasskeysModel", "Passkey")
               : *passkey.label;
}

QString PasskeysModel::addedText(const Passkey& passkey)
{
    return QCoreApplication::translate("PasskeysModel", "Added %1")
        .arg(dateText(passkey.createdAt));
}

QString PasskeysModel::lastUsedText(const Passkey& passkey)
{
    return passkey.lastUsedAt ? QCoreApplication::translate("PasskeysModel", "Last used %1")
                                    .arg(dateText(*passkey.lastUsedAt))
                              : QCoreApplication::translate("PasskeysModel", "Never used");
}

PasskeysModel::PasskeysModel(AccountSource& source, QObject* parent)
    : ListModel(parent), m_source(source)
{
    connect(this, &ListModel::loadingChanged, this, &PasskeysModel::updateEmpty);
    connect(this, &ListModel::errorChanged, this, &PasskeysModel::updateEmpty);
    connect(this, &ListModel::countChanged, this, &PasskeysModel::updateEmpty);
}

int PasskeysModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_items.size());
}

QVariant PasskeysModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Passkey& p = m_items.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case TitleRole:
        return titleOf(p);
    case IdRole:
        return p.id;
    case AddedTextRole:
        return addedText(p);
    case LastUsedTextRole:
        return lastUsedText(p);
    case BackupEligibleRole:
        return p.backupEligible.value_or(false);
    case RemoveLabelRole:
        return QCoreApplication::translate("PasskeysModel", "Remove passkey %1").arg(titleOf(p));
    default:
        return {};
    }
}

QHash<int, QByteArray> PasskeysModel::roleNames() const
{
    return {{IdRole, "passkeyId"},
            {TitleRole, "title"},
            {AddedTextRole, "addedText"},
            {LastUsedTextRole, "lastUsedText"},
            {BackupEligibleRole, "backupEligible"},
            {RemoveLabelRole, "removeLabel"}};
}

QString PasskeysModel::addButtonText() const
{
    return m_registering ? QCoreApplication::translate("PasskeysModel", "Adding passkey…")
                         : QCoreApplication::translate("PasskeysModel", "Add a passkey");
}

bool PasskeysModel::isEmpty() const
{
    return m_isEmpty;
}

QString PasskeysModel::pendingDeleteTitle() const
{
    return m_pendingDelete ? titleOf(*m_pendingDelete) : QString();
}

void PasskeysModel::reload()
{
    const quint64 generation = ++m_loadGeneration;
    setError({});
    setLoading(true);
    m_source.listPasskeys(this,
                          [this, generation](const PasskeyOperationResult<QList<Passkey>>& result) {
                              if (generation != m_loadGeneration)
                                  return;
                              m_loadedOnce = true;
                              if (result.ok())
                                  replaceRows(m_items, result.value());
                              else
                                  setError(describe(result.error()));
                              setLoading(false);
                          });
}

void PasskeysModel::add()
{
    if (m_registering)
        return;
    setActionError({});
    setRegistering(true);
    const quint64 generation = m_actionGeneration;
    m_source.registerPasskey(this,
                             [this, generation](const PasskeyOperationResult<Passkey>& result) {
                                 setRegistering(false);
                                 if (generation != m_actionGeneration)
                                     return;
                                 if (result.ok()) {
                                     beginInsertRows({}, 0, 0);
                                     m_items.prepend(result.value());
                                     endInsertRows();
                                     Q_EMIT countChanged();
                                 } else if (!isCancellation(result.error())) {
                                     setActionError(describe(result.error()));
                                 }
                             });
}

void PasskeysModel::requestRemove(qint64 id)
{
    const auto it = std::find_if(m_items.cbegin(), m_items.cend(),
                                 [id](const Passkey& p) { return p.id == id; });
    if (it != m_items.cend())
        setPendingDelete(*it);
}

void PasskeysModel::cancelRemove()
{
    setPendingDelete(std::nullopt);
}

void PasskeysModel::confirmRemove()
{
    if (!m_pendingDelete)
        return;
    const qint64 id = m_pendingDelete->id;
    setPendingDelete(std::nullopt);
    setActionError({});
    const quint64 generation = m_actionGeneration;
    m_source.deletePasskey(id, this,
                           [this, id, generation](const std::optional<PasskeyFailure>& failure) {
                               if (generation != m_actionGeneration)
                                   return;
                               if (failure)
                                   setActionError(describe(*failure));
                               else
                                   removeRowsOf(id);
                           });
}

void PasskeysModel::clear()
{
    ++m_loadGeneration;
    ++m_actionGeneration;
    m_loadedOnce = false;
    replaceRows(m_items, QList<Passkey>());
    setPendingDelete(std::nullopt);
    setActionError({});
    setError({});
    setLoading(false);
    updateEmpty();
}

void PasskeysModel::removeRowsOf(qint64 id)
{
    // Every entry with that id, should the service have listed one twice.
    bool removed = false;
    for (qsizetype row = m_items.size() - 1; row >= 0; --row) {
        if (m_items.at(row).id != id)
            continue;
        beginRemoveRows({}, static_cast<int>(row), static_cast<int>(row));
        m_items.removeAt(row);
        endRemoveRows();
        removed = true;
    }
    if (removed)
        Q_EMIT countChanged();
}

void PasskeysModel::setRegistering(bool value)
{
    setAndNotify(this, m_registering, value, &PasskeysModel::registeringChanged);
}

void PasskeysModel::setActionError(const QString& error)
{
    setAndNotify(this, m_actionError, error, &PasskeysModel::actionErrorChanged);
}

void PasskeysModel::setPendingDelete(std::optional<Passkey> passkey)
{
    const bool same = passkey.has_value() == m_pendingDelete.has_value() &&
                      (!passkey || passkey->id == m_pendingDelete->id);
    m_pendingDelete = std::move(passkey);
    if (!same)
        Q_EMIT pendingDeleteChanged();
}

void PasskeysModel::updateEmpty()
{
    const bool empty = m_loadedOnce && !loading() && error().isEmpty() && m_items.isEmpty();
    setAndNotify(this, m_isEmpty, empty, &PasskeysModel::isEmptyChanged);
}

} // namespace sorv

#include "moc_passkeysmodel.cpp"
