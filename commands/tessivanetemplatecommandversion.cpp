#include "tessivanetemplatecommandversion.h"

#include "parameter_p.h"
#include "syntaxscan_p.h"
#include "tessivanetemplateparser.h"

TessivaneTemplateCommandVersion::~TessivaneTemplateCommandVersion() = default;

bool TessivaneTemplateCommandVersion::isResponsibleFor(const QString &name)
{
    return TessivaneTemplatePrivate::isName(name, QLatin1String("TEMPLATE_VERSION"));
}

int TessivaneTemplateCommandVersion::executeCommand(TessivaneTemplateParser *parser,
                                                    const QString &name, const QString &parameter)
{
    Q_UNUSED(name);
    if (!TessivaneTemplatePrivate::isParenthesized(parameter))
        return CommandFailed;
    // Text that does not convert counts as version 0 and is accepted.
    parser->setVersion(parameter.mid(1, parameter.size() - 2).toInt(nullptr, 10));
    return CommandVersionSet;
}
