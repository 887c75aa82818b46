// Feeds arbitrary lines to the tokenizer and the parameter helpers, the way the
// parser and the commands call them, and checks the properties every caller
// builds on: the tokens give back the line, and the command split loses nothing.

#include "tessivanetemplatetokenizer.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

const QLatin1String s_mark("%%");

void check(bool condition)
{
    if (!condition)
        std::abort();
}

void fuzzParameter(const QString &parameter)
{
    const QStringList groups = TessivaneTemplateTokenizer::tokenizeParameters(parameter);
    check(groups.size() <= parameter.count(QLatin1Char(')')) || groups.size() == 1);
    for (const QString &group : groups) {
        for (const QString &string : TessivaneTemplateTokenizer::tokenizeParameter(group))
            check(string.size() < group.size());
        check(TessivaneTemplateTokenizer::unescape(group).size() <= group.size());
    }
}

void fuzzCommand(TessivaneTemplateTokenizer &tokenizer, const QString &token)
{
    QString name;
    QString parameter;
    check(tokenizer.parseCommandToken(token, name, parameter));
    check(!name.contains(QLatin1Char('(')));
    check(parameter.isNull() || parameter.startsWith(QLatin1Char('(')));
    fuzzParameter(parameter);
}

void fuzzLine(QString line)
{
    const QStringList tokens = TessivaneTemplateTokenizer::tokenize(line);
    check(!tokens.isEmpty());
    check(tokens.join(QString()) == line);

    TessivaneTemplateTokenizer tokenizer(line);
    check(tokenizer.containsTemplateCommands()
          == TessivaneTemplateTokenizer::containsTemplateCommands(line));
    QString token;
    bool isCommand = false;
    int count = 0;
    while (tokenizer.nextToken(token, isCommand)) {
        check(count < tokens.size() && token == tokens.at(count++));
        check(isCommand == token.startsWith(s_mark));
        // Marks pair from the left, so text between commands holds none.
        check(isCommand || !token.contains(s_mark));
        if (isCommand)
            fuzzCommand(tokenizer, token);
    }
    check(count == tokens.size());
    check(!tokenizer.nextToken(token, isCommand));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
    // The parser hands over each line with its line end.
    for (const QString &line : text.split(QLatin1Char('\n')))
        fuzzLine(line + QLatin1Char('\n'));
    // A parameter on its own, as IF and the tag lookup pass it on.
    fuzzParameter(text);
    return 0;
}
