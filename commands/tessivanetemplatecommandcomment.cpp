#include "tessivanetemplatecommandcomment.h"

TessivaneTemplateCommandComment::~TessivaneTemplateCommandComment() = default;

bool TessivaneTemplateCommandComment::isResponsibleFor(const QString &name)
{
    return name.startsWith(QLatin1Char('*'));
}

int TessivaneTemplateCommandComment::executeCommand(TessivaneTemplateParser *parser,
                                                    const QString &name, const QString &parameter)
{
    Q_UNUSED(parser);
    Q_UNUSED(name);
    Q_UNUSED(parameter);
    return CommandDone;
}
