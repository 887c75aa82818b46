#include "tessivanetemplatecommandreg.h"

#include "directread_p.h"
#include "outputsink_p.h"
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

// A template tends to repeat one mapping and one default value line after
// line, so the last of each is kept, as the group that gave it and what it
// gave. Nothing that reads one runs another registry command meanwhile.
template<typename Value> struct LastParsed
{
    QString group;
    Value value;
};

// Consecutive strings pair up as registry value and replacement; a later pair
// for the same value wins and an unpaired last string is ignored.
const QMap<QString, QString> &valueMapping(QStringView group)
{
    thread_local LastParsed<QMap<QString, QString>> last;
    if (group != last.group) {
        const QStringList strings = TessivaneTemplateTokenizer::tokenizeParameter(group.toString());
        QMap<QString, QString> mapping;
        for (int i = 0; i + 1 < strings.size(); i += 2)
            mapping.insert(strings.at(i), strings.at(i + 1));
        last = {group.toString(), mapping};
    }
    return last.value;
}

const QString &defaultValueOf(QStringView group)
{
    thread_local LastParsed<QString> last;
    if (group != last.group || last.group.isNull())
        last = {group.toString(), TessivaneTemplateTokenizer::unescape(group.toString())};
    return last.value;
}

enum class Form { None, Plain, Quoted, Ini, Json, Shell };

// The name decides the form the value is written in. Their lengths tell the
// names apart but for two, so each costs one comparison at most.
Form formOf(const QString &name)
{
    switch (name.size()) {
    case 3:
        return isName(name, s_reg) ? Form::Plain : Form::None;
    case 7:
        return isName(name, s_regIni) ? Form::Ini : Form::None;
    case 8:
        return isName(name, s_regJson) ? Form::Json : Form::None;
    case 9:
        return isName(name, s_regQuote) ? Form::Quoted
            : isName(name, s_regShell)  ? Form::Shell
                                        : Form::None;
    default:
        return Form::None;
    }
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
// the value mapping, and the default value, where one is given.
struct RegParameter
{
    RegParameter(const GroupList &groups, const TessivaneTemplate *engine, QString &keyBuffer)
        : key(keyBuffer)
        , mapping(groups.size() >= 2 ? &valueMapping(groups.at(1)) : nullptr)
        , defaultValue(groups.size() >= 3 ? &defaultValueOf(groups.at(2)) : nullptr)
    {
        expandRegistryKey(groups.at(0), engine, keyBuffer);
    }

    // A found value goes through the mapping; one the mapping does not list
    // gives way to the default value, when there is one.
    const QString *resolve(const QString *found) const
    {
        if (!mapping || mapping->isEmpty())
            return found;
        const auto mapped = mapping->constFind(*found);
        if (mapped != mapping->constEnd())
            return &mapped.value();
        return defaultValue ? defaultValue : found;
    }

    const QString &key;
    const QMap<QString, QString> *mapping;
    const QString *defaultValue;
};

// REG_INI's value: "=" and "]" escaped. Most values hold neither character:
// they are looked for first.
QString iniValue(const QString &value)
{
    QString escaped = value;
    if (indexOfText(escaped, QLatin1String("=")) >= 0)
        escaped.replace(QLatin1Char('='), QLatin1String("%3D"));
    if (indexOfText(escaped, QLatin1String("]")) >= 0)
        escaped.replace(QLatin1Char(']'), QLatin1String("%5D"));
    return escaped;
}

// Reported after the value, so that an inline comment follows it.
int finish(TessivaneTemplateParser *parser, const QString &message)
{
    if (!message.isNull())
        parser->warning("%s", formatArgument(message).constData());
    return TessivaneTemplateCommand::CommandDone;
}

} // namespace

TessivaneTemplateCommandReg::~TessivaneTemplateCommandReg() = default;

bool TessivaneTemplateCommandReg::isResponsibleFor(const QString &name)
{
    return formOf(name) != Form::None;
}

int TessivaneTemplateCommandReg::executeCommand(TessivaneTemplateParser *parser,
                                                const QString &name, const QString &parameter)
{
    // The dispatch asked isResponsibleFor(): a name of three letters is REG.
    const Form form = name.size() == 3 ? Form::Plain : formOf(name);
    // The escaping forms are words of version 2; version 1 knows no such command.
    if ((form == Form::Json || form == Form::Shell) && parser->getTemplate()->languageVersion() < 2)
        return CommandUnhandled;
    const QString *value = nullptr;
    QString message;
    if (readRegistryValue(parser, parameter, value, message) != 0) {
        parser->warning("%s", formatArgument(message).constData());
        return CommandFailed;
    }

    QTextStream *out = parser->getOutStream();
    switch (form) {
    case Form::Quoted:
        OutputSink::write(out, u"\"");
        OutputSink::write(out, *value);
        OutputSink::write(out, u"\"");
        break;
    case Form::Ini:
        OutputSink::write(out, iniValue(*value));
        break;
    case Form::Json:
        OutputSink::write(out, jsonString(*value));
        break;
    case Form::Shell:
        OutputSink::write(out, shellWord(*value));
        break;
    default:
        OutputSink::write(out, *value);
        break;
    }
    return finish(parser, message);
}

int TessivaneTemplateCommandReg::getReg(TessivaneTemplateParser *parser, const QString &parameter,
                                        QString &value, QString &message)
{
    const QString *found = nullptr;
    const int result = readRegistryValue(parser, parameter, found, message);
    if (found)
        value = *found;
    return result;
}

namespace TessivaneTemplatePrivate {

int readRegistryValue(TessivaneTemplateParser *parser, QStringView parameter, const QString *&value,
                      QString &message)
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
    // Keys are built in one buffer, which a lookup does not reenter.
    thread_local QString keyBuffer;
    const RegParameter reg(groups, parser->getTemplate(), keyBuffer);
    if (const QString *found = DirectRead::value(backend, reg.key)) {
        value = reg.resolve(found);
        return 0;
    }
    message = QLatin1String("Could not find regkey ") + asInserted(reg.key);
    if (!reg.defaultValue)
        return 1;
    value = reg.defaultValue;
    message += QLatin1String(", but have default value. writing default value ")
        + asInserted(*reg.defaultValue);
    return 0;
}

} // namespace TessivaneTemplatePrivate
