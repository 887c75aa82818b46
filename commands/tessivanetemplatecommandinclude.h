#ifndef TESSIVANETEMPLATECOMMANDINCLUDE_H
#define TESSIVANETEMPLATECOMMANDINCLUDE_H

#include "tessivanetemplatecommand.h"

/**
 * \brief Includes: "INCLUDE_FILE", "INCLUDE_DIR" and "INCLUDE_EXECUTABLE".
 *
 * A file is processed by a nested parser on the same engine and output
 * stream, so its commands run too and its diagnostics name it and its own
 * lines. A directory includes its readable plain files (no hidden files, no
 * symbolic links) sorted by name ignoring case, and stops at the first file
 * that fails. A shell command's standard output is copied as it comes.
 *
 * The argument is the parameter without its parentheses, taken verbatim;
 * relative names resolve against the working directory. A file that is
 * already being processed further out (an include cycle) and nesting deeper
 * than MaxIncludeDepth are refused with a warning, and the including template
 * goes on. Whatever an include wrote before a failure stays in the output.
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateCommandInclude : public TessivaneTemplateCommand
{
public:
    /// The most parsers, the template's own included, that may run at once.
    enum { MaxIncludeDepth = 100 };

    ~TessivaneTemplateCommandInclude() override;
    bool isResponsibleFor(const QString &name) override;
    int executeCommand(TessivaneTemplateParser *parser, const QString &name,
                       const QString &parameter) override;

    /// Returns 0 when \a path was processed to its end, 1 otherwise.
    int includeFile(TessivaneTemplateParser *parser, const QString &path);
    /// Returns 0 when every listed file of \a path was included, 1 otherwise.
    int includeDir(TessivaneTemplateParser *parser, const QString &path);
    /// Returns 0 when \a command could be started, whatever its exit status; 1 otherwise.
    int includeExecutable(TessivaneTemplateParser *parser, const QString &command);

private:
    bool isRefused(TessivaneTemplateParser *parser, const QString &path);
};

#endif
