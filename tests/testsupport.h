#ifndef TESTSUPPORT_H
#define TESTSUPPORT_H

#include "tessivanetemplate.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <string>

// Readable values in assertion failures; lists of them print through these too.
void PrintTo(const QString &text, std::ostream *os);
void PrintTo(const QByteArray &bytes, std::ostream *os);

/// Names each test of a table after the `name` of its row.
inline const auto testRowName = [](const auto &info) { return std::string(info.param.name); };

/// Records every Qt message while it exists; only one may exist at a time.
struct MessageRecorder
{
    MessageRecorder();
    ~MessageRecorder();

    QtMessageHandler previous;
    QStringList warnings;
    QStringList debugs;
};

/// A fixture with a fresh engine on a fresh, empty in-memory backend.
template<typename Row> class EngineTest : public ::testing::TestWithParam<Row>
{
protected:
    EngineTest() { engine.setRegistryBackend(&backend); }

    Tessivane backend;
    TessivaneTemplate engine;
};

/// Makes a fresh temporary directory the working directory while it exists.
struct WorkingDirectory
{
    WorkingDirectory() { EXPECT_TRUE(dir.isValid() && QDir::setCurrent(dir.path())); }
    ~WorkingDirectory() { QDir::setCurrent(previous); }

    const QString previous = QDir::currentPath();
    QTemporaryDir dir;
};

// Rows of a table print as their names, in failure messages and at test
// registration alike, where gtest would otherwise dump the row's bytes,
// padding included. Use it beside the row type, in its namespace.
#define TT_PRINT_ROWS_AS_NAMES(Row)                                                                \
    [[maybe_unused]] void PrintTo(const Row &row, std::ostream *os)                                \
    {                                                                                              \
        *os << row.name;                                                                           \
    }

/// What one template run produced.
struct Rendered
{
    int result = -1;
    QByteArray output;
    QStringList warnings;
    QStringList debugs;
};

/// Runs \a templateText through \a engine as the template named \a name.
Rendered render(TessivaneTemplate &engine, const QByteArray &templateText,
                const QString &name = QStringLiteral("in.tmpl"));
/// The same through a parser over text streams of the caller's own, which
/// decodes every line and leaves the encoding to QTextStream.
Rendered renderDecoded(TessivaneTemplate &engine, const QByteArray &templateText,
                       const QString &name = QStringLiteral("in.tmpl"));

/**
 * A bash script and what it must print, run by expectTranscript() in a
 * directory of the test's. In the script $T names tessivane-template, $S
 * tessivane-sync, $SHIM the library that makes system calls fail and
 * $EXAMPLES the folder of the shipped examples and $ETCDLIB the script that
 * starts etcd members (tools/etcd.sh); in what
 * it prints, "@" stands for the directory. A script exits with 77, giving
 * the reason on standard error, where the machine forbids what it needs.
 */
struct TranscriptRow
{
    std::string name;
    std::string script;
    std::string out;
    std::string err; // exact, or a regular expression when it begins with "^"
};
void PrintTo(const TranscriptRow &row, std::ostream *os);

/// Runs \a row's script in \a dir and compares what it printed.
void expectTranscript(const TranscriptRow &row, const QString &dir);

// writeFile() fails the test on error; readFile() is empty when the file cannot be read.
void writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);

#endif
