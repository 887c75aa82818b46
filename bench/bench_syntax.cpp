// Micro-benchmarks of the line tokenizer: the work done for every template
// line, and for every command parameter.

#include "tessivanetemplatetokenizer.h"

#include <benchmark/benchmark.h>

namespace {

// 75 characters and a line feed, as the parser hands a line over.
const QString s_plainLine =
    QStringLiteral("The quick brown fox jumps over the lazy dog while the cat sleeps on a mat.\n");
const QString s_commandLine = QStringLiteral(
    "listen = %%REG($REGROOT/net/port)(\"0\" \"80\")(\"8080\")%% # %%TAG(hostname)%% port\n");

// Stops the run with a message when a benchmark would measure the wrong thing.
void require(benchmark::State &state, bool condition, const char *what)
{
    if (!condition)
        state.SkipWithError(what);
}

void BM_TokenizePlainLine(benchmark::State &state)
{
    require(state, TessivaneTemplateTokenizer::tokenize(s_plainLine) == QStringList {s_plainLine},
            "a plain line must stay one token");
    for (auto _ : state)
        benchmark::DoNotOptimize(TessivaneTemplateTokenizer::tokenize(s_plainLine));
    state.SetBytesProcessed(state.iterations() * s_plainLine.size());
}
BENCHMARK(BM_TokenizePlainLine);

void BM_TokenizeCommandLine(benchmark::State &state)
{
    const QStringList tokens = TessivaneTemplateTokenizer::tokenize(s_commandLine);
    require(state, tokens.size() == 5 && tokens.join(QString()) == s_commandLine,
            "the line must cut into two commands and three texts");
    for (auto _ : state)
        benchmark::DoNotOptimize(TessivaneTemplateTokenizer::tokenize(s_commandLine));
    state.SetBytesProcessed(state.iterations() * s_commandLine.size());
}
BENCHMARK(BM_TokenizeCommandLine);

// The way the parser walks a line: one tokenizer, then token after token.
void BM_WalkCommandLine(benchmark::State &state)
{
    const auto walk = [](QString line) {
        TessivaneTemplateTokenizer tokenizer(line);
        int commands = 0;
        if (tokenizer.containsTemplateCommands()) {
            QString token;
            bool isCommand = false;
            while (tokenizer.nextToken(token, isCommand))
                commands += isCommand ? 1 : 0;
        }
        return commands;
    };
    require(state, walk(s_commandLine) == 2, "the walk must meet two commands");
    for (auto _ : state)
        benchmark::DoNotOptimize(walk(s_commandLine));
    state.SetBytesProcessed(state.iterations() * s_commandLine.size());
}
BENCHMARK(BM_WalkCommandLine);

void BM_ParseCommandToken(benchmark::State &state)
{
    QString line = s_commandLine;
    TessivaneTemplateTokenizer tokenizer(line);
    const QString token = QStringLiteral("%%REG($REGROOT/net/port)(\"0\" \"80\")(\"8080\")%%");
    QString name;
    QString parameter;
    tokenizer.parseCommandToken(token, name, parameter);
    require(state,
            name == QLatin1String("REG")
                && parameter == QLatin1String("($REGROOT/net/port)(\"0\" \"80\")(\"8080\")"),
            "the token must split into REG and its parameter");
    for (auto _ : state) {
        QString commandName;
        QString commandParameter;
        benchmark::DoNotOptimize(tokenizer.parseCommandToken(token, commandName, commandParameter));
        benchmark::DoNotOptimize(commandParameter);
    }
}
BENCHMARK(BM_ParseCommandToken);

// A parameter of state.range(0) groups, each holding a pair of quoted strings,
// one of them with an escaped quote and a ")" that must not close the group.
void BM_TokenizeParameters(benchmark::State &state)
{
    const int groups = int(state.range(0));
    QString parameter;
    for (int group = 0; group < groups; ++group)
        parameter += QStringLiteral("(\"value%1\" \"say \\\"hi)\\\"\")").arg(group);
    const QStringList split = TessivaneTemplateTokenizer::tokenizeParameters(parameter);
    require(state,
            split.size() == groups
                && split.value(groups - 1)
                    == QStringLiteral("\"value%1\" \"say \\\"hi)\\\"\"").arg(groups - 1),
            "every group must come back whole");
    for (auto _ : state)
        benchmark::DoNotOptimize(TessivaneTemplateTokenizer::tokenizeParameters(parameter));
    state.SetBytesProcessed(state.iterations() * parameter.size());
    state.SetComplexityN(groups);
}
BENCHMARK(BM_TokenizeParameters)->RangeMultiplier(8)->Range(1, 4096)->Complexity();

} // namespace

BENCHMARK_MAIN();
