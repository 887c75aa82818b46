#ifndef TESSIVANETEMPLATECOMMAND_H
#define TESSIVANETEMPLATECOMMAND_H

#include "tessivanetemplate_export.h"

#include <QString>

class TessivaneTemplateParser;

/**
 * \brief The interface every family of template commands implements.
 *
 * A parser owns one object of each command class for the whole of its input
 * and offers each command name to them in a fixed order; the first that is
 * responsible executes the command, writes whatever it produces to the
 * parser's output stream and steers the parser with a CommandResult. A command
 * reports its own failures through the parser's warning() or debug().
 *
 * \sa TessivaneTemplateParser
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommand
{
public:
    enum CommandResult {
        CommandDone = 0, ///< Done, or nothing to do.
        CommandFailed = 1, ///< Failed; the command has reported why, if it wanted to.
        CommandUnhandled = 2, ///< No command accepted the name (made by the dispatch only).
        CommandSkipBegin = 3, ///< Opens a region whose text is dropped.
        CommandSkipEnd = 4, ///< Closes one such region.
        CommandVersionSet = 5 ///< A template version was stored with setVersion().
    };

    virtual ~TessivaneTemplateCommand();
    /// Whether this command serves the command name \a name.
    virtual bool isResponsibleFor(const QString &name) = 0;
    /**
     * Carries out the command \a name with \a parameter (everything from the
     * first "(" of the command on, or empty) and returns a CommandResult.
     */
    virtual int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                               const QString &parameter) = 0;
};

#endif
