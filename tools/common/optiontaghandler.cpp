#include "optiontaghandler.h"

#include <QRegularExpression>

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
    static const QRegularExpression decimal(QStringLiteral("^[+-]?[0-9]+$"));
    bool isNumber = false;
    const int number = it.value().toInt(&isNumber, 10);
    if (!isNumber || !decimal.match(it.value()).hasMatch() || !value)
        return false;
    *value = number;
    return true;
}
