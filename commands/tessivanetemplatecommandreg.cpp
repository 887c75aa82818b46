#include "tessivanetemplatecommandreg.h"

#include "parameter_p.h"
#include "qtcompat_p.h"
#include "registrykey_p.h"
#include "tessivane.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"
#include "tessivanetemplatetokenizer.h"
#include "syntaxscan_p.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMap>

using namespace TessivaneTemplatePrivate;

namespace {

const QLatin1String s_reg("REG");
const QLatin1String s_regQuote("REG_QUOTE");
const QLatin1String s_regIni("REG_INI");
const QLatin1String s_regJson("REG_JSON");
const QLatin1String s_regShell("REG_SHELL");

// Consecutive strings pair up as registry value and replacement; a later pair
// for the same value wins and an unpaired last string is ignored.
QMap<QString, QString> valueMapping(const QString &group)
{
    const QStringList strings = TessivaneTemplateTokenizer::tokenizeParameter(group);
    QMap<QString, QString> mapping;
    for (int i = 0; i + 1 < strings.size(); i += 2)
        mapping.insert(strings.at(i), strings.at(i + 1));
    return mapping;
}

// A JSON string literal, quotes and escapes included, as Qt's own writer makes it.
QString jsonString(const QString &value)
{
    const QByteArray array = QJsonDocument(QJsonArray {value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

// One word for a POSIX shell: single quotes, and each ' written as '\''.
QString shellWord(QString value)
{
    return QLatin1Char('\'') + value.replace(QLatin1Char('\''), QLatin1String("'\\''"))
        + QLatin1Char('\'');
}

// Messages insert texts as printf's "%s" does: a text ends at its first NUL.
QString asInserted(const QString &text)
{
    const int nul = text.indexOf(QChar(0));
    return nul < 0 ? text : text.left(nul);
}

// A registry parameter taken apart: the key with the registry root in place,
// the value mapping, and the default value.
struct RegParameter
{
    RegParameter(const GroupList &groups, const TessivaneTemplate *engine)
        : key(expandRegistryKey(groups.at(0), engine))
        , hasDefault(groups.size() >= 3)
    {
        if (groups.size() >= 2)
            mapping = valueMapping(groups.at(1).toString());
        if (hasDefault)
            defaultValue = TessivaneTemplateTokenizer::unescape(groups.at(2).toString());
    }

    // A found value goes through the mapping; one the mapping does not list
    // gives way to the default value, when there is one.
    void resolve(QString &found) const
    {
        if (mapping.isEmpty())
            return;
        const auto mapped = mapping.constFind(found);
        if (mapped != mapping.constEnd())
            found = mapped.value();
        else if (hasDefault)
            found = defaultValue;
    }

    QString key;
    QMap<QString, QString> mapping;
    QString defaultValue;
    bool hasDefault;
};

} // namespace

TessivaneTemplateCommandReg::~TessivaneTemplateCommandReg() = default;

bool TessivaneTemplateCommandReg::isResponsibleFor(const QString &name)
{
    return name == s_reg || name == s_regQuote || name == s_regIni || name == s_regJson
        || name == s_regShell;
}

int TessivaneTemplateCommandReg::executeCommand(TessivaneTemplateParser *parser,
                                                const QString &name, const QString &parameter)
{
    // The escaping forms are words of version 2; version 1 knows no such command.
    if ((name == s_regJson || name == s_regShell) && parser->getTemplate()->languageVersion() < 2)
        return CommandUnhandled;
    QString value;
    QString message;
    if (getReg(parser, parameter, value, message) != 0) {
        parser->warning("%s", formatArgument(message).constData());
        return CommandFailed;
    }

    QTextStream &out = *parser->getOutStream();
    const bool isQuoted = name == s_regQuote;
    if (name == s_regIni)
        value.replace(QLatin1Char('='), QLatin1String("%3D"))
            .replace(QLatin1Char(']'), QLatin1String("%5D"));
    if (isQuoted)
        out << QLatin1Char('"');
    out << (name == s_regJson ? jsonString(value) : name == s_regShell ? shellWord(value) : value);
    if (isQuoted)
        out << QLatin1Char('"');
    // Reported after the value, so that an inline comment follows it.
    if (!message.isNull())
        parser->warning("%s", formatArgument(message).constData());
    return CommandDone;
}

int TessivaneTemplateCommandReg::getReg(TessivaneTemplateParser *parser, const QString &parameter,
                                        QString &value, QString &message)
{
    if (!isParenthesized(parameter))
        return 1;
    Tessivane *backend = parser->registryBackend();
    if (!backend) {
        message = QStringLiteral("no registry backend set, can't lookup reg key");
        return 1;
    }
    // The groups are views of the parameter: only what is used gets copied.
    GroupList groups;
    splitGroups(parameter, groups);
    if (groups.isEmpty()) {
        message = QStringLiteral("empty parameter for REG");
        return 1;
    }
    const RegParameter reg(groups, parser->getTemplate());
    QString found;
    if (backend->get(reg.key, found, _RegEntryParam {0}, QLatin1String("")) == 0) {
        reg.resolve(found);
        value = std::move(found);
        return 0;
    }
    message = QLatin1String("Could not find regkey ") + asInserted(reg.key);
    if (!reg.hasDefault)
        return 1;
    value = reg.defaultValue;
    message += QLatin1String(", but have default value. writing default value ")
        + asInserted(reg.defaultValue);
    return 0;
}
