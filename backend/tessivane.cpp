#include "tessivane.h"

Tessivane::Tessivane() = default;

Tessivane::~Tessivane() = default;

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
}

bool Tessivane::remove(const QString &key)
{
    return m_values.remove(key) > 0;
}

void Tessivane::clear()
{
    m_values.clear();
}

bool Tessivane::contains(const QString &key) const
{
    return m_values.contains(key);
}

QStringList Tessivane::keys() const
{
    QStringList result = m_values.keys();
    result.sort();
    return result;
}
