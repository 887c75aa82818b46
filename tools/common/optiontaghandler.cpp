#include "optiontaghandler.h"

#include <limits>

namespace {

// The value of digits with an optional sign in front, and nothing else, when
// it fits an int: what QString::toInt() accepts of such a text, without the
// copy it makes to parse it. This runs for each numeric condition on a tag.
bool parseDecimal(QStringView text, int &number)
{
    const bool isNegative = text.startsWith(QLatin1Char('-'));
    if (isNegative || text.startsWith(QLatin1Char('+')))
        text = text.mid(1);
    if (text.isEmpty())
        return false;
    const qint64 limit = isNegative ? -qint64(std::numeric_limits<int>::min())
                                    : qint64(std::numeric_limits<int>::max());
    qint64 value = 0;
    for (const QChar c : text) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
        value = value * 10 + (c.unicode() - '0');
        if (value > limit)
            return false;
    }
    number = int(isNegative ? -value : value);
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
    int number = 0;
    if (!value || !parseDecimal(it.value(), number))
        return false;
    *value = number;
    return true;
}
