#ifndef TESSIVANETEMPLATECOMMANDCOMMENT_H
#define TESSIVANETEMPLATECOMMANDCOMMENT_H

#include "tessivanetemplatecommand.h"

/**
 * \brief Template comments: any command whose name begins with "*".
 *
 * The remark never reaches the output; the text around it on its line does,
 * so a line holding only a comment becomes an empty line.
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommandComment : public TessivaneTemplateCommand
{
public:
    ~TessivaneTemplateCommandComment() override;
    bool isResponsibleFor(const QString &name) override;
    /// Writes nothing and returns CommandDone.
    int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                       const QString &parameter) override;
};

#endif
