// Replays the inputs a fuzz target once crashed on, and its seed corpus,
// through the target's own entry points. The targets abort on a broken
// invariant, so a file passes when the call returns. TT_FUZZ_TARGET names the
// target: its crashers are the files TT_FUZZ_CRASHERS_DIR/TARGET-*, its seeds
// all of TT_FUZZ_CORPUS_DIR.

#include "testsupport.h"

#include <QDir>
#include <QFile>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
// Only targets with state to set up define it; libFuzzer looks for it the same way.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int *argc, char ***argv);

#define TT_STRINGIFY_(x) #x
#define TT_STRINGIFY(x) TT_STRINGIFY_(x)
// Expands the target's name before gtest pastes it into identifiers.
#define TT_INSTANTIATE(prefix, ...) INSTANTIATE_TEST_SUITE_P(prefix, __VA_ARGS__)

namespace {

struct ReplayRow
{
    std::string name;
    QString path;
};
TT_PRINT_ROWS_AS_NAMES(ReplayRow)

// "unfinished-last-line.tmpl" names its row "UnfinishedLastLineTmpl": gtest
// takes letters, digits and underscores only, and ctest filters read best
// without the last.
std::string rowName(const char *kind, const QString &fileName)
{
    std::string name = kind;
    bool startsWord = true;
    for (const char c : QFile::encodeName(fileName)) {
        const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!isLetter && !(c >= '0' && c <= '9')) {
            startsWord = true;
            continue;
        }
        name += startsWord && c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c;
        startsWord = false;
    }
    return name;
}

std::vector<ReplayRow> replayRows()
{
    std::vector<ReplayRow> rows;
    std::set<std::string> names;
    const auto add = [&](const char *kind, const QDir &dir, const QString &file, int skip) {
        // Names that differ only in punctuation would collide.
        const std::string base = rowName(kind, file.mid(skip));
        std::string name = base;
        for (int n = 2; !names.insert(name).second; ++n)
            name = base + std::to_string(n);
        rows.push_back({name, dir.absoluteFilePath(file)});
    };
    const QString prefix = QStringLiteral(TT_STRINGIFY(TT_FUZZ_TARGET) "-");
    const QDir crashers(QStringLiteral(TT_FUZZ_CRASHERS_DIR));
    for (const QString &file : crashers.entryList({prefix + QLatin1Char('*')}, QDir::Files))
        add("Crasher", crashers, file, prefix.size());
    const QDir corpus(QStringLiteral(TT_FUZZ_CORPUS_DIR));
    for (const QString &file : corpus.entryList(QDir::Files))
        add("Seed", corpus, file, 0);
    return rows;
}

int initializeTarget()
{
    if (!LLVMFuzzerInitialize)
        return 0;
    static char program[] = TT_FUZZ_PROGRAM;
    static char *arguments[] = {program, nullptr};
    int argc = 1;
    char **argv = arguments;
    return LLVMFuzzerInitialize(&argc, &argv);
}

class FuzzReplay : public ::testing::TestWithParam<ReplayRow>
{
};

TEST_P(FuzzReplay, ReturnsAcceptedOrRejected)
{
    static const int initialized = initializeTarget();
    ASSERT_EQ(initialized, 0);
    QFile file(GetParam().path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << qPrintable(file.errorString());
    // A copy of exactly the file's size, as libFuzzer passes it, so that a read
    // past the end cannot land on QByteArray's terminating zero.
    const QByteArray bytes = file.readAll();
    const std::vector<uint8_t> input(bytes.cbegin(), bytes.cend());
    const int result = LLVMFuzzerTestOneInput(input.data(), input.size());
    // libFuzzer reserves every other value.
    EXPECT_TRUE(result == 0 || result == -1) << result;
}

TT_INSTANTIATE(TT_FUZZ_TARGET, FuzzReplay, ::testing::ValuesIn(replayRows()), testRowName);

} // namespace
