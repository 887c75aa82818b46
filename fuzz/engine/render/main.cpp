// Runs arbitrary templates through the whole engine: every command, nested
// conditions, tags, registry lookups and includes of a small fixed set of files.
// Each template is read twice, once as a buffer and once as a pipe that hands
// its bytes over a few at a time, and the two outputs must agree: a template
// renders the same however its bytes are cut on the way in.

#include "../includedfiles.h"
#include "tessivane.h"
#include "tessivanetemplate.h"
#include "tessivanetemplatetag.h"

#include <QBuffer>
#include <QFile>
#include <QTemporaryFile>
#include <QTextCodec>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

// Writes its name, or answers a number derived from it; names starting with
// "no" fail, so that both outcomes of a handler are reached.
class FuzzTag : public TessivaneTemplateTag
{
public:
    bool processTag(const QString &tagName, QTextStream *out, bool wantValue, int *value) override
    {
        if (tagName.startsWith(QLatin1String("no")))
            return false;
        if (!wantValue) {
            if (out)
                *out << tagName;
            return true;
        }
        bool isNumber = false;
        const int number = tagName.toInt(&isNumber);
        if (value)
            *value = isNumber ? number : tagName.size();
        return true;
    }
};

// Included files live in a directory of their own that is the working
// directory, so that relative names in templates resolve against it.
const char s_included[] = "a %%REG($REGROOT/one)%% %%TAG(hostname)%%\n"
                          "%%IF REG($REGROOT/zero)%%hidden %%INCLUDE_FILE(b.tmpl)%%\n%%ENDIF%%\n"
                          "%%INCLUDE_FILE(b.tmpl)%%end of a\n";
const char s_nested[] = "b %%REG_QUOTE($REGROOT/text)%%\n"
                        "%%IF TAG(1) == 1%%kept\n%%IF TAG(no)%%open at the end\n"
                        "%%TEMPLATE_VERSION(1)%%\n";

// A pipe over the input that delivers it in pieces of one to seven bytes, as
// a slow writer would. The byte that starts a piece sets its length, so that
// the fuzzer chooses where line ends, CRLF pairs, UTF-8 sequences and byte
// order marks are cut, and a finding cuts the same way when it is replayed.
class Pipe : public QIODevice
{
public:
    explicit Pipe(const QByteArray &data)
        : m_data(data)
    {
    }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override
    {
        return m_data.size() - m_position + QIODevice::bytesAvailable();
    }

protected:
    qint64 readData(char *out, qint64 size) override
    {
        const qint64 rest = m_data.size() - m_position;
        if (rest > 0)
            size = qMin<qint64>(size, 1 + static_cast<uchar>(m_data.at(int(m_position))) % 7);
        size = qMin(size, rest);
        std::memcpy(out, m_data.constData() + m_position, size_t(size));
        m_position += size;
        return size;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const QByteArray m_data;
    qint64 m_position = 0;
};

struct Fixture
{
    Tessivane registry;
    FuzzTag hostTag;
    FuzzTag defaultTag;
    QTemporaryFile fromBuffer;
    QTemporaryFile fromPipe;
};

std::unique_ptr<Fixture> s_fixture;

void ignoreMessage(QtMsgType, const QMessageLogContext &, const QString &)
{
}

// Absolute names and ".." would let a template include anything on the
// machine, /dev/zero or /proc/kcore among them, and the run would stall on
// input that is endless by design; such inputs are left out.
bool leavesFixedDirectory(const QByteArray &data)
{
    if (!data.contains("INCLUDE_"))
        return false;
    return data.contains("..") || data.contains("(/");
}

// Returns the result code and the output of one run. A run ends (0), stops
// at a newer template version (1), or where an input cannot be read to its end
// (3), such as an included file that cannot be read or a line too long to hold.
QByteArray render(TessivaneTemplate &engine, QIODevice &input, QTemporaryFile &output)
{
    if (!input.open(QIODevice::ReadOnly) || !output.resize(0) || !output.seek(0))
        std::abort();
    const int result = engine.process(&input, QStringLiteral("fuzz.tmpl"), output);
    if ((result != 0 && result != 1 && result != 3) || !engine.runningParsers().isEmpty()
        || !output.seek(0))
        std::abort();
    return QByteArray::number(result) + ':' + output.readAll();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    // The engine decodes templates with the locale's codec; pin it so that a
    // finding reproduces whatever the shell's locale.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    qInstallMessageHandler(ignoreMessage);
    s_fixture = std::make_unique<Fixture>();
    enterIncludedFiles(*argc > 0 ? (*argv)[0] : nullptr, "render-includes", s_included, s_nested);
    if (!s_fixture->fromBuffer.open() || !s_fixture->fromPipe.open())
        std::abort();

    Tessivane &registry = s_fixture->registry;
    registry.set(QStringLiteral("/k/zero"), QStringLiteral("0"));
    registry.set(QStringLiteral("/k/one"), QStringLiteral("1"));
    registry.set(QStringLiteral("/k/empty"), QString());
    registry.set(QStringLiteral("/k/text"), QStringLiteral("a \"b\" = ]\u00fc"));
    s_fixture->hostTag.addTagName("hostname");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    QByteArray data = QByteArray::fromRawData(reinterpret_cast<const char *>(bytes), int(size));
    if (leavesFixedDirectory(data))
        return -1;

    // The first byte also picks the engine's settings, so that diagnostics in
    // the output, debug reports and both language versions are fuzzed along
    // with the text.
    const unsigned settings = size ? bytes[0] : 0;
    TessivaneTemplate engine;
    engine.setRegistryBackend(&s_fixture->registry);
    engine.setRegRoot("/k");
    engine.setShowDebug(settings & 1);
    engine.setCommentPrefix(settings & 2 ? "#" : "");
    engine.setCommentSuffix(settings & 4 ? "*/" : "");
    engine.setLanguageVersion(settings & 8 ? 2 : 1);
    engine.addTag(&s_fixture->hostTag);
    engine.setDefaultTagHandler(&s_fixture->defaultTag);

    // Both ways of reading a template must give the same output, byte for byte.
    QBuffer buffer(&data);
    Pipe pipe(data);
    if (render(engine, buffer, s_fixture->fromBuffer) != render(engine, pipe, s_fixture->fromPipe))
        std::abort();
    return 0;
}
