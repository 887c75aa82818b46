#ifndef TESSIVANETEMPLATECOMMANDFOREACH_H
#define TESSIVANETEMPLATECOMMANDFOREACH_H

#include "tessivanetemplatecommand.h"

#include <QString>
#include <QStringView>

/**
 * \brief Loops of version 2: "FOREACH $NAME IN REG(prefix)" ... "ENDFOREACH", and "ITEM($NAME)".
 *
 * The FOREACH puts this object on the parser's active-command list, and the
 * parser hands it the text of the block, token by token, as it is written,
 * until the ENDFOREACH that closes it. Then the block is rendered once for
 * each child of the registry key prefix (the distinct next path segments of
 * the keys below it, in numeric order when every one is a decimal number and
 * by character code otherwise), each time by a parser of its own on the same
 * engine, with $NAME in registry keys standing for prefix/child and
 * ITEM($NAME) writing the child. Reports inside the block name the template's
 * file and line.
 *
 * A TEMPLATE_VERSION newer than the engine's inside the block ends the block,
 * as it ends an included file. A loop inside a region an IF drops is read to
 * its ENDFOREACH and rendered no time. An ENDFOREACH without FOREACH, a loop
 * header that is not of that form and an ITEM of a name no loop binds are
 * reported with warning(); so is a FOREACH left open at the end of the input.
 * Parsers of version 1 have no such object.
 *
 * \sa TessivaneTemplateParser, TessivaneTemplateCommandReg
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommandForeach : public TessivaneTemplateCommand
{
public:
    ~TessivaneTemplateCommandForeach() override;
    /// "FOREACH" and names that begin with "FOREACH" and a blank; "ENDFOREACH" and "ITEM".
    bool isResponsibleFor(const QString &name) override;
    int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                       const QString &parameter) override;

private:
    // The parser hands the block over and reports what is left open.
    friend class TessivaneTemplateParser;

    /// Whether a block is being read.
    bool isCapturing() const;
    /**
     * Takes \a token, of line \a lineNumber, into the block. Returns false,
     * taking nothing, for the ENDFOREACH that closes the block, which the
     * parser then dispatches. \a isControlLine tells a line of nothing but
     * control commands: the rest of the header's line and the start of the
     * closing line are then no part of the block.
     */
    bool capture(QStringView token, bool isCommand, int lineNumber, bool isControlLine);
    /// Reports a block left open at the end of the input.
    void finish(TessivaneTemplateParser *parser);

    int begin(TessivaneTemplateParser *parser, const QString &name, const QString &parameter);
    int end(TessivaneTemplateParser *parser);
    int writeItem(TessivaneTemplateParser *parser, const QString &parameter);
    bool render(TessivaneTemplateParser *parser, const QString &item);
    void takeHeaderRest();

    bool m_isCapturing = false;
    bool m_isValid = false; // a header of the right form
    bool m_isDropped = false; // inside a region an IF drops: read, never rendered
    int m_depth = 0; // loops opened inside the block and not yet closed
    int m_headerLine = 0;
    int m_bodyLine = 0; // the line the block's first token stands on
    int m_lastLine = 0;
    int m_lastLineStart = 0; // where the text of m_lastLine begins in m_body
    bool m_hasLastLineCommand = false; // whether m_lastLine holds a command
    // The rest of a header's control line: part of the block only when it holds a command.
    QString m_headerRest;
    bool m_hasHeaderRestCommand = false;
    QString m_body;
    QString m_name; // "$NAME"
    QString m_prefix; // expanded, without a trailing "/"
};

#endif
