// Micro-benchmarks of the commands: one registry lookup, the step every REG,
// REG_QUOTE, REG_INI and IF REG command takes.

#include "tessivane.h"
#include "tessivanetemplate.h"
#include "tessivanetemplatecommandreg.h"
#include "tessivanetemplateparser.h"

#include <QBuffer>
#include <QTextStream>

#include <benchmark/benchmark.h>

namespace {

const int s_keyCount = 1000;

// An engine with a registry of s_keyCount keys "/etc/bench/k/N" = "valueN" and
// a parser over empty in-memory streams, as a command sees them while running.
class LookupFixture
{
public:
    LookupFixture()
        : m_parser(&m_engine, &m_in, &m_out, QStringLiteral("bench.tmpl"))
    {
        for (int key = 0; key < s_keyCount; ++key)
            m_registry.set(QStringLiteral("/etc/bench/k/%1").arg(key),
                           QStringLiteral("value%1").arg(key));
        m_engine.setRegistryBackend(&m_registry);
        m_engine.setRegRoot("/etc/bench");
    }

    TessivaneTemplateParser *parser() { return &m_parser; }

private:
    Tessivane m_registry;
    TessivaneTemplate m_engine;
    QBuffer m_inBuffer;
    QBuffer m_outBuffer;
    QTextStream m_in {&m_inBuffer};
    QTextStream m_out {&m_outBuffer};
    TessivaneTemplateParser m_parser;
};

void lookUp(benchmark::State &state, const QString &parameter, const QString &expected)
{
    LookupFixture fixture;
    TessivaneTemplateCommandReg reg;
    QString value;
    QString message;
    if (reg.getReg(fixture.parser(), parameter, value, message) != 0 || value != expected
        || !message.isNull()) {
        state.SkipWithError("the lookup must find the key quietly");
        return;
    }
    for (auto _ : state) {
        QString result;
        QString note;
        benchmark::DoNotOptimize(reg.getReg(fixture.parser(), parameter, result, note));
        benchmark::DoNotOptimize(result);
    }
}

void BM_GetReg(benchmark::State &state)
{
    lookUp(state, QStringLiteral("($REGROOT/k/500)"), QStringLiteral("value500"));
}
BENCHMARK(BM_GetReg);

// A mapping that does not list the value, so the default stands in.
void BM_GetRegMappingAndDefault(benchmark::State &state)
{
    lookUp(state,
           QStringLiteral("($REGROOT/k/500)(\"value1\" \"one\" \"value2\" \"two\")(\"other\")"),
           QStringLiteral("other"));
}
BENCHMARK(BM_GetRegMappingAndDefault);

} // namespace

BENCHMARK_MAIN();
