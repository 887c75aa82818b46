#include "tessivanetemplate.h"

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

TessivaneTemplate::~TessivaneTemplate() = default;

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

bool TessivaneTemplate::addTag(TessivaneTemplateTag *tag)
{
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
    QFile input(fileNameFromBytes(templateFile));
    if (!input.open(QIODevice::ReadOnly)) {
        qWarning("Could not open template file '%s'", templateFile);
        return 3;
    }
    return process(&input, input.fileName(), outFile);
}

int TessivaneTemplate::process(QIODevice *input, const QString &templateName, QFile &outFile)
{
    if (outFile.isOpen() && !outFile.isWritable()) {
        qWarning("File not opened in write mode '%s'",
                 formatArgument(outFile.fileName()).constData());
        return 3;
    }
    if (!outFile.isOpen() && !outFile.open(QIODevice::WriteOnly)) {
        qWarning("Could not open out file '%s'", formatArgument(outFile.fileName()).constData());
        return 3;
    }

    // Declared in this order so that they go in reverse: the parser leaves the
    // running list first, then the output stream flushes what it buffered.
    QTextStream in(input);
    QTextStream out(&outFile);
    setUtf8Codec(out);
    TessivaneTemplateParser parser(this, &in, &out, templateName);
    return parser.process();
}

int TessivaneTemplate::process(const char *templateFile, const char *outFileName)
{
    QFile outFile(fileNameFromBytes(outFileName));
    if (!outFile.open(QIODevice::WriteOnly)) {
        qWarning("Could not open out file '%s'", outFileName);
        return 3;
    }
    return process(templateFile, outFile);
}
