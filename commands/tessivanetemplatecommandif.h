#ifndef TESSIVANETEMPLATECOMMANDIF_H
#define TESSIVANETEMPLATECOMMANDIF_H

#include "tessivanetemplatecommand.h"

#include <QList>

/**
 * \brief Conditional blocks: "IF REG(...)" or "IF TAG(...)" ... "ENDIF".
 *
 * An IF compares a registry value or a tag handler's number with an expected
 * text under "==" or "!=" (without an operator: "!= 0"). The command does not
 * drop text itself: a block to be skipped returns CommandSkipBegin, which puts
 * this object on the parser's active-command list, and its ENDIF returns
 * CommandSkipEnd. IFs inside a skipped block are still evaluated, with their
 * lookups and messages, so that every ENDIF closes the block it belongs to.
 * A block whose value cannot be obtained is skipped. In version 2 of the
 * language an "ELSE" turns the block over: what follows it up to the ENDIF is
 * kept exactly when what precedes it is dropped.
 *
 * \sa TessivaneTemplateCommandReg, TessivaneTemplateCommandTag
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommandIf : public TessivaneTemplateCommand
{
public:
    ~TessivaneTemplateCommandIf() override;
    /// Names that begin with "IF", "ENDIF", and "ELSE", which only version 2 knows.
    bool isResponsibleFor(const QString &name) override;
    int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                       const QString &parameter) override;

    /// The registry value for the registry parameter \a lookup; false when there is none.
    bool getRegValue(TessivaneTemplateParser *parser, const QString &lookup, QString &value);
    /// A tag handler's number for "(name)" in decimal; false when there is none.
    bool getTagValue(TessivaneTemplateParser *parser, const QString &lookup, QString &value);

private:
    int executeEndIf();
    int executeElse(TessivaneTemplateParser *parser);
    int executeIf(TessivaneTemplateParser *parser, const QString &name, const QString &parameter);
    int openBlock(bool isSkipped);

    // One entry per open block, innermost last: true when this IF skips it.
    QList<bool> skipStack;
};

#endif
