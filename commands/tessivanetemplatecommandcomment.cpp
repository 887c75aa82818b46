#include "tessivanetemplatecommandcomment.h"

TessivaneTemplateCommandComment::~TessivaneTemplateCommandComment() = default;

bool TessivaneTemplateCommandComment::isResponsibleFor(const QString &name)
{
    // Every command name is offered here: the first letter is read in place.
    return !name.isEmpty() && name.at(0) == QLatin1Char('*');
}

int TessivaneTemplateCommandComment::executeCommand(TessivaneTemplateParser *parser,
                                                    const QString &name, const QString &parameter)
{
    Q_UNUSED(parser);
    Q_UNUSED(name);
    Q_UNUSED(parameter);
    return CommandDone;
}
