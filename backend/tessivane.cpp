#include "tessivane.h"

#include <QAtomicInteger>
#include <QMutex>
#include <QMutexLocker>
#include <QSet>

#include <algorithm>

namespace {

// Every change of any store counts here, so that a sorted list made before it
// is known to be stale without a lock on every change.
QAtomicInteger<quint64> s_generation;

struct SortedKeys
{
    quint64 generation = ~quint64(0);
    QStringList keys;
};

// The store's layout is part of the library's binary interface and cannot
// grow, so its sorted keys are kept here, found by the store's address.
struct KeyCache
{
    QMutex mutex;
    QHash<const Tessivane *, SortedKeys> sorted;
};

Q_GLOBAL_STATIC(KeyCache, s_cache)

} // namespace

Tessivane::Tessivane() = default;

Tessivane::~Tessivane()
{
    if (s_cache.isDestroyed())
        return;
    QMutexLocker locker(&s_cache->mutex);
    s_cache->sorted.remove(this);
}

int Tessivane::get(const QString &key, QString &value, const _RegEntryParam &param,
                   const QString &text)
{
    Q_UNUSED(param);
    Q_UNUSED(text);
    const auto it = m_values.constFind(key);
    if (it == m_values.constEnd())
        return 1;
    value = it.value();
    return 0;
}

void Tessivane::set(const QString &key, const QString &value)
{
    m_values.insert(key, value);
    s_generation.fetchAndAddRelaxed(1);
}

bool Tessivane::remove(const QString &key)
{
    s_generation.fetchAndAddRelaxed(1);
    return m_values.remove(key) > 0;
}

void Tessivane::clear()
{
    m_values.clear();
    s_generation.fetchAndAddRelaxed(1);
}

bool Tessivane::contains(const QString &key) const
{
    return m_values.contains(key);
}

QStringList Tessivane::keys() const
{
    const quint64 generation = s_generation.loadAcquire();
    QMutexLocker locker(&s_cache->mutex);
    SortedKeys &sorted = s_cache->sorted[this];
    if (sorted.generation != generation) {
        sorted.keys = m_values.keys();
        sorted.keys.sort();
        sorted.generation = generation;
    }
    return sorted.keys;
}

// Keys below a child sort together, from "child/" up to "child0" ('0'
// follows '/'): the search jumps past them, and looks at one key a child.
QStringList Tessivane::children(const QString &prefix) const
{
    const QStringList sorted = keys();
    const QString start = prefix + QLatin1Char('/');
    QStringList items;
    QSet<QString> seen;
    auto it = std::lower_bound(sorted.cbegin(), sorted.cend(), start);
    while (it != sorted.cend() && it->startsWith(start)) {
        const QString item = it->mid(start.size()).section(QLatin1Char('/'), 0, 0);
        if (!item.isEmpty() && !seen.contains(item)) {
            seen.insert(item);
            items << item;
        }
        if (it->startsWith(start + item + QLatin1Char('/')))
            it = std::lower_bound(it, sorted.cend(), start + item + QLatin1Char('0'));
        else
            ++it;
    }
    return items;
}
