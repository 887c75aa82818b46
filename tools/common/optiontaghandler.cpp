#include "optiontaghandler.h"

namespace {

// Digits with an optional sign in front, and nothing else.
bool isDecimal(QStringView text)
{
    if (text.startsWith(QLatin1Char('+')) || text.startsWith(QLatin1Char('-')))
        text = text.mid(1);
    if (text.isEmpty())
        return false;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    }
    return true;
}

} // namespace

void OptionTagHandler::define(const QString &name, const QString &text)
{
    if (m_texts.contains(name))
        return;
    m_texts.insert(name, text);
    QStringList names(name);
    addTagNames(names);
}

bool OptionTagHandler::isEmpty() const
{
    return m_texts.isEmpty();
}

bool OptionTagHandler::processTag(const QString &tagName, QTextStream *out, bool wantValue,
                                  int *value)
{
    const auto it = m_texts.constFind(tagName);
    if (it == m_texts.constEnd())
        return false;
    if (!wantValue) {
        if (out)
            *out << it.value();
        return true;
    }
    bool isNumber = false;
    const int number = it.value().toInt(&isNumber, 10);
    if (!isNumber || !isDecimal(it.value()) || !value)
        return false;
    *value = number;
    return true;
}
