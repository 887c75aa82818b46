#include "tessivanetemplatecommandtag.h"

#include "parameter_p.h"
#include "qtcompat_p.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"
#include "tessivanetemplatetag.h"
#include "syntaxscan_p.h"

using namespace TessivaneTemplatePrivate;

TessivaneTemplateCommandTag::~TessivaneTemplateCommandTag() = default;

bool TessivaneTemplateCommandTag::isResponsibleFor(const QString &name)
{
    return name == QLatin1String("TAG");
}

int TessivaneTemplateCommandTag::executeCommand(TessivaneTemplateParser *parser,
                                                const QString &name, const QString &parameter)
{
    Q_UNUSED(name);
    QString tagName;
    TessivaneTemplateTag *tag = getTagUsingParameter(parser, parameter, tagName);
    if (!tag)
        return CommandFailed;
    return tag->processTag(tagName, parser->getOutStream(), false, nullptr) ? CommandDone
                                                                            : CommandFailed;
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
    TessivaneTemplateTag *tag = parser->getTemplate()->getTag(toAscii(tagName).constData());
    if (!tag)
        parser->warning("tag for '%s' not found.", formatArgument(tagName).constData());
    return tag;
}
