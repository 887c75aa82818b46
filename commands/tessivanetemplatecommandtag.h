#ifndef TESSIVANETEMPLATECOMMANDTAG_H
#define TESSIVANETEMPLATECOMMANDTAG_H

#include "tessivanetemplatecommand.h"

class TessivaneTemplateTag;

/**
 * \brief The tag command "TAG(name)": the text of a host's tag handler.
 *
 * Finds the handler for the name through the engine and lets it write
 * straight into the output stream, so its text stands where the command
 * stood. The name is the first group exactly as written: neither trimmed nor
 * unquoted. The object holds no state; the conditional command uses
 * getTagUsingParameter() through an instance of its own.
 *
 * \sa TessivaneTemplateTag, TessivaneTemplate::getTag()
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommandTag : public TessivaneTemplateCommand
{
public:
    ~TessivaneTemplateCommandTag() override;
    bool isResponsibleFor(const QString &name) override;
    /// CommandDone when the handler returned true, CommandFailed otherwise.
    int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                       const QString &parameter) override;

    /**
     * Returns the handler for the parameter "(name)" and stores the name in
     * \a tagName, or returns null after reporting why through \a parser.
     */
    TessivaneTemplateTag *getTagUsingParameter(TessivaneTemplateParser *parser,
                                               const QString &parameter, QString &tagName);
};

#endif
