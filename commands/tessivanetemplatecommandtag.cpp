#include "tessivanetemplatecommandtag.h"

#include "outputsink_p.h"
#include "parameter_p.h"
#include "qtcompat_p.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"
#include "tessivanetemplatetag.h"
#include "syntaxscan_p.h"

#include <QVarLengthArray>

using namespace TessivaneTemplatePrivate;

TessivaneTemplateCommandTag::~TessivaneTemplateCommandTag() = default;

bool TessivaneTemplateCommandTag::isResponsibleFor(const QString &name)
{
    return isName(name, QLatin1String("TAG"));
}

int TessivaneTemplateCommandTag::executeCommand(TessivaneTemplateParser *parser,
                                                const QString &name, const QString &parameter)
{
    Q_UNUSED(name);
    QString tagName;
    TessivaneTemplateTag *tag = getTagUsingParameter(parser, parameter, tagName);
    if (!tag)
        return CommandFailed;
    QTextStream *out = parser->getOutStream();
    const bool isDone = tag->processTag(tagName, out, false, nullptr);
    OutputSink::passOn(out);
    return isDone ? CommandDone : CommandFailed;
}

TessivaneTemplateTag *
TessivaneTemplateCommandTag::getTagUsingParameter(TessivaneTemplateParser *parser,
                                                  const QString &parameter, QString &tagName)
{
    return findTagOfParameter(parser, parameter, tagName);
}

TessivaneTemplateTag *TessivaneTemplatePrivate::findTagOfParameter(TessivaneTemplateParser *parser,
                                                                   QStringView parameter,
                                                                   QString &tagName)
{
    if (!isParenthesized(parameter)) {
        parser->debug("parameter doesn't contain '(' and ')'");
        return nullptr;
    }
    GroupList groups;
    splitGroups(parameter, groups);
    if (groups.isEmpty()) {
        parser->warning("empty parameter for TAG");
        return nullptr;
    }
    if (groups.size() > 1)
        parser->warning("too many parameters for TAG, continuing with first");
    tagName = groups.first().toString();
    // The engine takes names as Latin-1, as toAscii() makes them, but on the stack.
    QVarLengthArray<char, 64> latin1(tagName.size() + 1);
    for (int i = 0; i < tagName.size(); ++i) {
        const ushort c = tagName.at(i).unicode();
        latin1[i] = c > 0xFF ? '?' : char(c);
    }
    latin1[tagName.size()] = '\0';
    TessivaneTemplateTag *tag = parser->getTemplate()->getTag(latin1.constData());
    if (!tag)
        parser->warning("tag for '%s' not found.", formatArgument(tagName).constData());
    return tag;
}
