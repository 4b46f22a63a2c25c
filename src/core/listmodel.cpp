#include "listmodel.h"

#include "core/notify.h"

namespace sorv {

void ListModel::setLoading(bool loading)
{
    setAndNotify(this, m_loading, loading, &ListModel::loadingChanged);
}

void ListModel::setError(const QString& error)
{
    setAndNotify(this, m_error, error, &ListModel::errorChanged);
}

} // namespace sorv

#include "moc_listmodel.cpp"
