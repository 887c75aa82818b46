// Renders each template twice, with the same settings, registry, tags and
// included files: once through the engine, whose parsers write into its
// UTF-8 sink and so copy lines that need no decoding as the bytes they were
// read as, and once through a parser over a stream of the host's own, which
// decodes every line and leaves the encoding to QTextStream. The shortcut is
// only worth having if nobody can tell: both must write the same bytes,
// return the same code and report the same messages in the same order.

#include "../includedfiles.h"
#include "tessivane.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"
#include "tessivanetemplatetag.h"

#include <QBuffer>
#include <QFile>
#include <QStringList>
#include <QTemporaryFile>
#include <QTextCodec>
#include <QTextStream>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

// Qt 5's UTF-8 stream writes half a surrogate pair as '?', and so does the
// engine on either Qt; Qt 6's stream writes U+FFFD instead, so there the
// host's stream is no reference for a half alone, and only whole pairs are
// written, still cut over two writes.
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
constexpr bool s_writesHalves = false;
#else
constexpr bool s_writesHalves = true;
#endif

// TAG(hostname) writes non-ASCII text, astral characters among it. Any other
// name goes to the default handler, which writes its name a character at a
// time, except that 'H' and 'L' write the two halves of U+1F600 and 'W' a
// run long enough to fill the streams' buffers: so a pair cut over two
// writes, a half alone, and a half at a buffer's end are all in reach of the
// fuzzer. Names starting with "no" fail.
class FuzzTag : public TessivaneTemplateTag
{
public:
    bool processTag(const QString &tagName, QTextStream *out, bool wantValue, int *value) override
    {
        if (tagName.startsWith(QLatin1String("no")))
            return false;
        if (wantValue) {
            bool isNumber = false;
            const int number = tagName.toInt(&isNumber);
            if (value)
                *value = isNumber ? number : tagName.size();
            return true;
        }
        if (!out)
            return true;
        if (tagName == QLatin1String("hostname")) {
            *out << QStringLiteral("h\u00f4st-\u20ac-\U0001F600");
            return true;
        }
        for (const QChar c : tagName) {
            if (c == QLatin1Char('H') || c == QLatin1Char('L')) {
                if (c == QLatin1Char('H') || !s_writesHalves)
                    *out << QChar(0xD83D);
                if (c == QLatin1Char('L') || !s_writesHalves)
                    *out << QChar(0xDE00);
            } else if (c == QLatin1Char('W')) {
                *out << QString(4099, QChar(0x00FC));
            } else {
                *out << c;
            }
        }
        return true;
    }
};

// Included files mix what takes each path: a byte order mark, non-ASCII
// lines, a CRLF line, a Latin-1 byte, a half surrogate at a line's end, and
// a last line without its line feed.
const char s_included[] = "a \xc3\xbc %%REG($REGROOT/text)%% %%TAG(hostname)%%\r\n"
                          "%%TAG(H)%%\n%%TAG(xH)%%\xe2\x82\xac %%TAG(L)%%\n"
                          "%%IF REG($REGROOT/zero)%%hidden %%INCLUDE_FILE(b.tmpl)%%\n%%ENDIF%%\n"
                          "%%INCLUDE_FILE(b.tmpl)%%end of a \xc3\xa4";
const char s_nested[] = "\xef\xbb\xbf"
                        "b %%REG_QUOTE($REGROOT/percent)%% caf\xc3\xa9\n"
                        "\xe9 Latin-1 %%REG($REGROOT/half)%%\n"
                        "%%IF TAG(1) == 1%%kept \xf0\x9f\x98\x80\n%%IF TAG(no)%%open at the end\n";

struct Fixture
{
    Tessivane registry;
    FuzzTag hostTag;
    FuzzTag defaultTag;
    QTemporaryFile output;
    QStringList *messages = nullptr; // where the run under way records its messages
};

std::unique_ptr<Fixture> s_fixture;

void recordMessage(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (s_fixture && s_fixture->messages)
        s_fixture->messages->append(QString::number(type) + QLatin1Char(' ') + message);
}

// As in the render target: templates stay in the fixed directory.
bool leavesFixedDirectory(const QByteArray &data)
{
    if (!data.contains("INCLUDE_"))
        return false;
    return data.contains("..") || data.contains("(/");
}

void configure(TessivaneTemplate &engine, unsigned settings)
{
    engine.setRegistryBackend(&s_fixture->registry);
    engine.setRegRoot("/k");
    engine.setShowDebug(settings & 1);
    engine.setCommentPrefix(settings & 2 ? "#" : "");
    engine.setCommentSuffix(settings & 4 ? "*/" : "");
    engine.setLanguageVersion(settings & 0x10 ? 2 : 1);
    engine.addTag(&s_fixture->hostTag);
    engine.setDefaultTagHandler(&s_fixture->defaultTag);
}

struct Rendering
{
    int result = -1;
    QByteArray output;
    QStringList messages;
};

Rendering throughEngine(const QByteArray &data, unsigned settings)
{
    Rendering rendering;
    TessivaneTemplate engine;
    configure(engine, settings);
    QByteArray input = data;
    QBuffer buffer(&input);
    QTemporaryFile &output = s_fixture->output;
    if (!buffer.open(QIODevice::ReadOnly) || !output.resize(0) || !output.seek(0))
        std::abort();
    s_fixture->messages = &rendering.messages;
    rendering.result = engine.process(&buffer, QStringLiteral("fuzz.tmpl"), output);
    s_fixture->messages = nullptr;
    if (!engine.runningParsers().isEmpty() || !output.seek(0))
        std::abort();
    rendering.output = output.readAll();
    return rendering;
}

// A host's own parser never sees the engine's sink. Its result is compared
// with the engine's as it is: the engine makes it 3 only when the output
// cannot be written, which a temporary file always can here, or when an
// included file breaks off, which none in the fixed directory does.
Rendering throughParser(const QByteArray &data, unsigned settings)
{
    Rendering rendering;
    TessivaneTemplate engine;
    configure(engine, settings);
    QByteArray input = data;
    QBuffer inBuffer(&input);
    QBuffer outBuffer(&rendering.output);
    if (!inBuffer.open(QIODevice::ReadOnly) || !outBuffer.open(QIODevice::WriteOnly))
        std::abort();
    QTextStream in(&inBuffer);
    QTextStream out(&outBuffer);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    out.setEncoding(QStringConverter::Utf8);
#else
    out.setCodec("UTF-8");
#endif
    s_fixture->messages = &rendering.messages;
    {
        TessivaneTemplateParser parser(&engine, &in, &out, QStringLiteral("fuzz.tmpl"));
        rendering.result = parser.process();
    }
    out.flush();
    s_fixture->messages = nullptr;
    return rendering;
}

void printDifference(const char *what, const QByteArray &engine, const QByteArray &parser)
{
    std::fprintf(stderr, "bytepath: the %s differ\n  engine: %s\n  parser: %s\n", what,
                 engine.toPercentEncoding(" ").constData(),
                 parser.toPercentEncoding(" ").constData());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    qInstallMessageHandler(recordMessage);
    s_fixture = std::make_unique<Fixture>();
    enterIncludedFiles(*argc > 0 ? (*argv)[0] : nullptr, "bytepath-includes", s_included, s_nested);
    if (!s_fixture->output.open())
        std::abort();

    Tessivane &registry = s_fixture->registry;
    registry.set(QStringLiteral("/k/zero"), QStringLiteral("0"));
    registry.set(QStringLiteral("/k/one"), QStringLiteral("1"));
    registry.set(QStringLiteral("/k/empty"), QString());
    registry.set(QStringLiteral("/k/text"), QStringLiteral("a \"b\" = ]\u00fc \u20ac \U0001F600"));
    registry.set(QStringLiteral("/k/percent"), QStringLiteral("100% %s %%d %"));
    registry.set(QStringLiteral("/k/half"),
                 QStringLiteral("x") + QChar(0xD83D)
                     + (s_writesHalves ? QString() : QChar(0xDE00)));
    registry.set(QStringLiteral("/k/\u00fc"), QStringLiteral("%%"));
    s_fixture->hostTag.addTagName("hostname");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const QByteArray data(reinterpret_cast<const char *>(bytes), int(size));
    if (leavesFixedDirectory(data))
        return -1;

    // The first byte, which is also the template's, picks the settings: bit 0
    // debug reports, bits 1 and 2 a comment prefix and suffix, bit 4 language
    // version 2, bit 7 Latin-1 input, in which only ASCII lines are copied as
    // bytes. So "a" to "o" are version 1, "p" to "z" version 2.
    const unsigned settings = size ? bytes[0] : 0;
    QTextCodec::setCodecForLocale(
        QTextCodec::codecForName(settings & 0x80 ? "ISO-8859-1" : "UTF-8"));
    const Rendering engine = throughEngine(data, settings);
    const Rendering parser = throughParser(data, settings);
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    bool same = true;
    if (engine.output != parser.output) {
        printDifference("outputs", engine.output, parser.output);
        same = false;
    }
    if (engine.result != parser.result) {
        printDifference("results", QByteArray::number(engine.result),
                        QByteArray::number(parser.result));
        same = false;
    }
    if (engine.messages != parser.messages) {
        printDifference("messages", engine.messages.join(QLatin1Char('\n')).toUtf8(),
                        parser.messages.join(QLatin1Char('\n')).toUtf8());
        same = false;
    }
    if (!same)
        std::abort();
    return 0;
}
