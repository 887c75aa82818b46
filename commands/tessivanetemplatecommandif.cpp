#include "tessivanetemplatecommandif.h"

#include "outputsink_p.h"
#include "parameter_p.h"
#include "qtcompat_p.h"
#include "syntaxscan_p.h"
#include "tessivanetemplatecommandreg.h"
#include "tessivanetemplatecommandtag.h"
#include "tessivanetemplateparser.h"
#include "tessivanetemplatetag.h"
#include "tessivanetemplate.h"

#include <QAtomicInt>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>

using namespace TessivaneTemplatePrivate;

namespace {

const QLatin1String s_endIf("ENDIF");
const QLatin1String s_else("ELSE");

// The blocks that have met their ELSE, by IF object, as depths of its block
// stack: the object's layout has no room for them. Only version 2 fills it,
// so version 1 looks at no more than the counter.
struct ElseTable
{
    QMutex mutex;
    QHash<const TessivaneTemplateCommandIf *, QList<int>> depths;
};
Q_GLOBAL_STATIC(ElseTable, s_elses)
QAtomicInt s_elseCount;

// Records an ELSE at \a depth; false when the block had one already.
bool recordElse(const TessivaneTemplateCommandIf *command, int depth)
{
    QMutexLocker locker(&s_elses->mutex);
    QList<int> &depths = s_elses->depths[command];
    if (depths.contains(depth))
        return false;
    depths.append(depth);
    s_elseCount.ref();
    return true;
}

// Forgets the ELSEs of blocks deeper than \a depth.
void forgetElses(const TessivaneTemplateCommandIf *command, int depth)
{
    if (s_elseCount.loadRelaxed() == 0 || s_elses.isDestroyed())
        return;
    QMutexLocker locker(&s_elses->mutex);
    const auto it = s_elses->depths.find(command);
    if (it == s_elses->depths.end())
        return;
    while (!it->isEmpty() && it->last() > depth) {
        it->removeLast();
        s_elseCount.deref();
    }
    if (it->isEmpty())
        s_elses->depths.erase(it);
}
const QChar s_quote(QLatin1Char('"'));

struct Condition
{
    QStringView lookup;
    QStringView expected;
    bool isEquality;
};

// The first "==" anywhere decides before any "!="; without either operator
// the condition is "!= 0".
Condition parseCondition(QStringView parameter)
{
    Condition condition {parameter, u"0", false};
    int op = indexOfText(parameter, QLatin1String("=="));
    condition.isEquality = op >= 0;
    if (op < 0)
        op = indexOfText(parameter, QLatin1String("!="));
    if (op >= 0) {
        condition.lookup = parameter.left(op);
        condition.expected = parameter.mid(op + 2);
    }
    condition.lookup = condition.lookup.trimmed();
    // One quote is removed at each end, and nothing else: blanks inside count.
    QStringView expected = condition.expected.trimmed();
    if (expected.startsWith(s_quote))
        expected = expected.mid(1);
    if (expected.endsWith(s_quote))
        expected.chop(1);
    condition.expected = expected;
    return condition;
}

// Sets \a value to the registry's text where it is kept; a text that a report
// follows is first copied into \a storage, since the code that a report runs
// may change the registry.
bool readRegValue(TessivaneTemplateParser *parser, QStringView lookup, const QString *&value,
                  QString &storage)
{
    QString message;
    const int result = readRegistryValue(parser, lookup, value, message);
    if (!message.isNull()) {
        if (result == 0) {
            storage = *value;
            value = &storage;
        }
        parser->warning("%s", formatArgument(message).constData());
    }
    return result == 0;
}

// The decimal text of \a number, as QString::number() writes it, in \a digits:
// each numeric condition on a tag compares one.
QLatin1String decimalText(int number, char (&digits)[12])
{
    char *const end = digits + sizeof(digits);
    char *at = end;
    uint magnitude = number < 0 ? 0u - uint(number) : uint(number);
    do {
        *--at = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (number < 0)
        *--at = '-';
    return QLatin1String(at, end);
}

bool readTagNumber(TessivaneTemplateParser *parser, QStringView lookup, int &number)
{
    QString tagName;
    TessivaneTemplateTag *tag = findTagOfParameter(parser, lookup, tagName);
    if (!tag)
        return false;
    // A handler that answers true without storing a number compares as 0.
    number = 0;
    const bool isAnswered = tag->processTag(tagName, nullptr, true, &number);
    // A handler may write into the output all the same.
    OutputSink::passOn(parser->getOutStream());
    return isAnswered;
}

} // namespace

TessivaneTemplateCommandIf::~TessivaneTemplateCommandIf()
{
    forgetElses(this, -1);
}

bool TessivaneTemplateCommandIf::isResponsibleFor(const QString &name)
{
    // Every command name is offered here.
    if (name.size() >= 2 && name.at(0) == QLatin1Char('I') && name.at(1) == QLatin1Char('F'))
        return true;
    return isName(name, s_endIf) || isName(name, s_else);
}

int TessivaneTemplateCommandIf::executeCommand(TessivaneTemplateParser *parser, const QString &name,
                                               const QString &parameter)
{
    if (isName(name, s_endIf))
        return executeEndIf();
    if (isName(name, s_else))
        return executeElse(parser);
    return executeIf(parser, name, parameter);
}

int TessivaneTemplateCommandIf::executeEndIf()
{
    if (skipStack.isEmpty())
        return CommandDone;
    const bool isSkipped = skipStack.takeLast();
    forgetElses(this, skipStack.size());
    return isSkipped ? CommandSkipEnd : CommandDone;
}

// A block that was kept is dropped from here on, and one that was dropped kept.
int TessivaneTemplateCommandIf::executeElse(TessivaneTemplateParser *parser)
{
    if (parser->getTemplate()->languageVersion() < 2)
        return CommandUnhandled;
    if (skipStack.isEmpty()) {
        parser->warning("ELSE without IF");
        return CommandFailed;
    }
    if (!recordElse(this, skipStack.size())) {
        parser->warning("a second ELSE in one IF block");
        return CommandFailed;
    }
    bool &isSkipped = skipStack.last();
    isSkipped = !isSkipped;
    return isSkipped ? CommandSkipBegin : CommandSkipEnd;
}

int TessivaneTemplateCommandIf::executeIf(TessivaneTemplateParser *parser, const QString &name,
                                          const QString &parameter)
{
    const QStringView source = QStringView(name).mid(2).trimmed();
    const Condition condition = parseCondition(parameter);
    const QString *value = nullptr;
    QString storage;
    int number = 0;
    bool isFound = false;
    if (isName(source, QLatin1String("REG"))) {
        isFound = readRegValue(parser, condition.lookup, value, storage);
    } else if (isName(source, QLatin1String("TAG"))) {
        isFound = readTagNumber(parser, condition.lookup, number);
    } else {
        parser->warning("parse error on if, unknown token '%s'",
                        formatArgument(source.toString()).constData());
        skipStack.append(false);
        return CommandFailed;
    }
    if (!isFound)
        return openBlock(true);
    char digits[12];
    const bool isEqual =
        value ? *value == condition.expected : decimalText(number, digits) == condition.expected;
    const bool holds = isEqual == condition.isEquality;
    return openBlock(!holds);
}

int TessivaneTemplateCommandIf::openBlock(bool isSkipped)
{
    skipStack.append(isSkipped);
    return isSkipped ? CommandSkipBegin : CommandDone;
}

bool TessivaneTemplateCommandIf::getRegValue(TessivaneTemplateParser *parser, const QString &lookup,
                                             QString &value)
{
    const QString *found = nullptr;
    QString storage;
    if (!readRegValue(parser, lookup, found, storage))
        return false;
    value = *found;
    return true;
}

bool TessivaneTemplateCommandIf::getTagValue(TessivaneTemplateParser *parser, const QString &lookup,
                                             QString &value)
{
    int number = 0;
    if (!readTagNumber(parser, lookup, number))
        return false;
    char digits[12];
    value = decimalText(number, digits);
    return true;
}
