#include "tessivanetemplate.h"

#include "enginestate_p.h"
#include "outputsink_p.h"
#include "qtcompat_p.h"
#include "tessivanetemplateparser.h"

#include <QTextStream>

using namespace TessivaneTemplatePrivate;

TessivaneTemplate::TessivaneTemplate()
    : m_defaultTag(nullptr)
    , m_showDebug(false)
    , m_registryBackend(nullptr)
{
}

TessivaneTemplate::~TessivaneTemplate()
{
    forgetEngine(this);
}

QString TessivaneTemplate::regRoot() const
{
    return m_regRoot;
}

void TessivaneTemplate::setRegRoot(const char *root)
{
    m_regRoot = fromAscii(root);
}

QString TessivaneTemplate::commentPrefix() const
{
    return m_commentPrefix;
}

void TessivaneTemplate::setCommentPrefix(const char *prefix)
{
    m_commentPrefix = fromAscii(prefix);
}

QString TessivaneTemplate::commentSuffix() const
{
    return m_commentSuffix;
}

void TessivaneTemplate::setCommentSuffix(const char *suffix)
{
    m_commentSuffix = fromAscii(suffix);
}

bool TessivaneTemplate::showDebug() const
{
    return m_showDebug;
}

void TessivaneTemplate::setShowDebug(bool show)
{
    m_showDebug = show;
}

Tessivane *TessivaneTemplate::registryBackend() const
{
    return m_registryBackend;
}

void TessivaneTemplate::setRegistryBackend(Tessivane *backend)
{
    m_registryBackend = backend;
}

void TessivaneTemplate::setLanguageVersion(int version)
{
    if (version != 1 && version != 2) {
        qWarning("unknown template language version %d", version);
        return;
    }
    TessivaneTemplatePrivate::setLanguageVersion(this, version);
}

int TessivaneTemplate::languageVersion() const
{
    return TessivaneTemplatePrivate::languageVersion(this);
}

bool TessivaneTemplate::addTag(TessivaneTemplateTag *tag)
{
    if (!tag) {
        qWarning("tried to add a null tag handler");
        return false;
    }
    if (tag->tagNameList().isEmpty()) {
        qWarning("tried to add a tag without tag names.");
        return false;
    }
    if (tag == m_defaultTag) {
        qWarning("tried to add the default handler to the tag list");
        return false;
    }
    tag->setRegistryBackend(m_registryBackend);
    tag->setTessivaneTemplate(this);
    m_tags.append(tag);
    return true;
}

void TessivaneTemplate::removeTag(TessivaneTemplateTag *tag)
{
    m_tags.removeOne(tag);
}

TessivaneTemplateTag *TessivaneTemplate::getTag(const char *name)
{
    for (TessivaneTemplateTag *tag : qAsConst(m_tags)) {
        if (tag->containsTagName(name))
            return tag;
    }
    return m_defaultTag;
}

void TessivaneTemplate::setDefaultTagHandler(TessivaneTemplateTag *tag)
{
    if (!tag) {
        qWarning("tried to set a null default tag handler");
        return;
    }
    tag->setRegistryBackend(m_registryBackend);
    tag->setTessivaneTemplate(this);
    m_defaultTag = tag;
}

TessivaneTemplateTag *TessivaneTemplate::defaultTagHandler() const
{
    return m_defaultTag;
}

void TessivaneTemplate::setCurrentParser(TessivaneTemplateParser *parser)
{
    m_parsers.append(parser);
}

TessivaneTemplateParser *TessivaneTemplate::currentParser()
{
    return m_parsers.isEmpty() ? nullptr : m_parsers.first();
}

void TessivaneTemplate::removeCurrentParser(TessivaneTemplateParser *parser)
{
    m_parsers.removeOne(parser);
}

const QList<TessivaneTemplateParser *> &TessivaneTemplate::runningParsers() const
{
    return m_parsers;
}

int TessivaneTemplate::process(const char *templateFile, QFile &outFile)
{
    const char *name = templateFile ? templateFile : "";
    // File names are taken as the bytes the file system holds, so that every
    // name that exists can be opened. QFile would print a complaint of its own
    // about an empty name.
    QFile input(QFile::decodeName(name));
    if (!*name || !input.open(QIODevice::ReadOnly)) {
        qWarning("Could not open template file '%s'", name);
        return 3;
    }
    return process(&input, input.fileName(), outFile);
}

int TessivaneTemplate::process(QIODevice *input, const QString &templateName, QFile &outFile)
{
    if (!input || !input->isReadable()) {
        qWarning("Could not open template file '%s'", formatArgument(templateName).constData());
        return 3;
    }
    if (outFile.isOpen() && !outFile.isWritable()) {
        qWarning("File not opened in write mode '%s'",
                 formatArgument(outFile.fileName()).constData());
        return 3;
    }
    if (!outFile.isOpen() && !outFile.open(QIODevice::WriteOnly)) {
        qWarning("Could not open out file '%s'", formatArgument(outFile.fileName()).constData());
        return 3;
    }
    // A template that a tag handler processes inside this run shares its record.
    const bool isOutermost = m_parsers.isEmpty();
    if (isOutermost)
        setReadFailed(this, false);
    int result = run(input, templateName, outFile);
    if (isOutermost && hasReadFailed(this))
        result = 3;
    return result;
}

// Returns the parser's result, or 3 when the output could not be written.
int TessivaneTemplate::run(QIODevice *input, const QString &templateName, QFile &outFile)
{
    QTextStream in(input);
    OutputSink sink(&outFile);
    int result;
    {
        // Leaves the running list before the output is checked.
        TessivaneTemplateParser parser(this, &in, &sink.stream(), templateName);
        result = parser.process();
    }
    if (!sink.finish()) {
        qWarning("Could not write out file '%s': %s",
                 formatArgument(outFile.fileName()).constData(),
                 formatArgument(outFile.errorString()).constData());
        return 3;
    }
    return result;
}

int TessivaneTemplate::process(const char *templateFile, const char *outFileName)
{
    const char *name = outFileName ? outFileName : "";
    QFile outFile(QFile::decodeName(name));
    if (!*name || !outFile.open(QIODevice::WriteOnly)) {
        qWarning("Could not open out file '%s'", name);
        return 3;
    }
    return process(templateFile, outFile);
}
