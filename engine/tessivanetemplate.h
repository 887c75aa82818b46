#ifndef TESSIVANETEMPLATE_H
#define TESSIVANETEMPLATE_H

#include "tessivanetemplate_export.h"
#include "tessivane.h"
#include "tessivanetemplatetag.h"

#include <QFile>
#include <QIODevice>
#include <QList>
#include <QString>

class TessivaneTemplateParser;

/**
 * \brief The engine a host creates to turn template files into output files.
 *
 * It holds the configuration that the template commands read (registry root,
 * comment prefix and suffix, debug switch, registry backend), the host's tag
 * handlers and the parsers running at the moment. It owns none of the objects
 * it is given: the registry backend and the tag handlers stay the host's and
 * must outlive every process() call that uses them. Settings are read when
 * they are needed, so a change takes effect at once.
 *
 * Failures are small integer results: process() returns 0, 1 or 3, and the
 * engine's own messages go to qWarning(). One engine must not be used from two
 * threads at a time.
 *
 * \sa TessivaneTemplateParser, TessivaneTemplateTag, Tessivane
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplate
{
public:
    TessivaneTemplate();
    ~TessivaneTemplate();

    QString regRoot() const;
    /// Sets the text that replaces "$REGROOT" in registry keys (Latin-1).
    void setRegRoot(const char *root);
    QString commentPrefix() const;
    /// An empty prefix keeps diagnostics out of the output altogether.
    void setCommentPrefix(const char *prefix);
    QString commentSuffix() const;
    void setCommentSuffix(const char *suffix);
    bool showDebug() const;
    void setShowDebug(bool show);
    Tessivane *registryBackend() const;
    /// Only stores the pointer: handlers registered earlier keep the backend they were given.
    void setRegistryBackend(Tessivane *backend);
    /**
     * The version of the template language: 1, the default, or 2, which adds
     * ELSE, FOREACH loops with ITEM, lines of control commands that write no
     * line, the literal mark "%%%%", and REG_JSON and REG_SHELL. Parsers made
     * afterwards understand the version set; another value draws a warning
     * and changes nothing.
     */
    void setLanguageVersion(int version);
    int languageVersion() const;

    /**
     * Appends \a tag to the handler list and gives it this engine and the
     * current registry backend. Returns false, with a warning and the handler
     * left unchanged, when the handler is null, lists no tag name or is the
     * default handler.
     */
    bool addTag(TessivaneTemplateTag *tag);
    /// Unregisters the first occurrence of \a tag; the handler is not deleted.
    void removeTag(TessivaneTemplateTag *tag);
    /**
     * Returns the first registered handler that serves \a name, else the
     * default handler, which may be null.
     */
    TessivaneTemplateTag *getTag(const char *name);
    /// Makes \a tag serve every name no registered handler serves; a null \a tag is refused with a
    /// warning.
    void setDefaultTagHandler(TessivaneTemplateTag *tag);
    TessivaneTemplateTag *defaultTagHandler() const;

    /// Called by a parser on construction: appends it to the running parsers.
    void setCurrentParser(TessivaneTemplateParser *parser);
    /**
     * Returns the outermost running parser, that of the template given to
     * process(), also while an included file is processed. Outside process()
     * no parser runs and null is returned.
     */
    TessivaneTemplateParser *currentParser();
    /// Called by a parser on destruction: removes its first occurrence.
    void removeCurrentParser(TessivaneTemplateParser *parser);
    /// The running parsers, outermost first: the template's, then nested includes.
    const QList<TessivaneTemplateParser *> &runningParsers() const;

    /**
     * Processes \a templateFile into \a outFile, writing UTF-8 from the file's
     * current position. An unopened \a outFile is opened write-only and
     * truncated; one that is open must be writable. \a outFile is left open.
     * Returns 0 when the template was read to its end, 1 when it declared a
     * newer template version, 3 when a file could not be opened, read to its
     * end (the template, or a file it includes) or written; a warning says
     * which and why.
     *
     * A template may be a pipe, a FIFO or a terminal: it is read to its end.
     */
    int process(const char *templateFile, QFile &outFile);
    /**
     * Creates or truncates \a outFileName, then processes as above. The output
     * file is emptied even when the template then cannot be opened.
     */
    int process(const char *templateFile, const char *outFileName);
    /**
     * Processes the template read from \a input, which must be open for
     * reading, into \a outFile as above; reports name it \a templateName.
     * For templates that are no file of their own, such as standard input.
     * Returns 0, 1 or 3 as above; a null \a input, or one not open for
     * reading, draws "Could not open template file" and 3.
     */
    int process(QIODevice *input, const QString &templateName, QFile &outFile);

private:
    Q_DISABLE_COPY(TessivaneTemplate)
    friend class TessivaneTemplatePrivate::DirectRead;

    int run(QIODevice *input, const QString &templateName, QFile &outFile);

    QList<TessivaneTemplateTag *> m_tags;
    TessivaneTemplateTag *m_defaultTag;
    QString m_regRoot;
    QString m_commentPrefix;
    QString m_commentSuffix;
    bool m_showDebug;
    Tessivane *m_registryBackend;
    QList<TessivaneTemplateParser *> m_parsers;
};

#endif
