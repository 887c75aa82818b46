#ifndef TESSIVANETEMPLATECOMMANDVERSION_H
#define TESSIVANETEMPLATECOMMANDVERSION_H

#include "tessivanetemplatecommand.h"

/**
 * \brief The template version declaration "TEMPLATE_VERSION(n)".
 *
 * Records the declared number in the parser and returns CommandVersionSet;
 * the parser then stops an input that declares a version newer than its own,
 * so that an old parser never writes a wrong file from a newer template.
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommandVersion : public TessivaneTemplateCommand
{
public:
    ~TessivaneTemplateCommandVersion() override;
    bool isResponsibleFor(const QString &name) override;
    /**
     * Stores the number between the parentheses (0 when it does not convert)
     * and returns CommandVersionSet; returns CommandFailed, silently, when the
     * parameter is not enclosed in parentheses.
     */
    int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                       const QString &parameter) override;
};

#endif
