#include "registrykey_p.h"

#include "enginestate_p.h"
#include "syntaxscan_p.h"
#include "tessivanetemplate.h"

#include <QVarLengthArray>

#include <algorithm>

namespace TessivaneTemplatePrivate {

namespace {

// Every "$REGROOT" becomes the registry root, built in place in one
// allocation: this runs for every registry command of a template.
QString expandRegRoot(const QStringRef &key, const TessivaneTemplate *engine)
{
    const QLatin1String variable("$REGROOT");
    QVarLengthArray<int, 4> found;
    for (int at = indexOfText(key, variable); at >= 0; at = indexOfText(key, variable, at + 8))
        found.append(at);
    if (found.isEmpty())
        return key.toString();
    const QString root = engine->regRoot();
    QString expanded(key.size() + found.size() * (root.size() - variable.size()),
                     Qt::Uninitialized);
    QChar *out = expanded.data();
    int from = 0;
    found.append(key.size());
    for (const int at : qAsConst(found)) {
        out = std::copy(key.unicode() + from, key.unicode() + at, out);
        if (at == key.size())
            break;
        out = std::copy(root.unicode(), root.unicode() + root.size(), out);
        from = at + variable.size();
    }
    return expanded;
}

bool isNameCharacter(QChar c)
{
    return (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))
        || (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c == QLatin1Char('_');
}

// Only keys with a "$" left ask the engine for its loops: version 1 never binds one.
QString expandLoopNames(const QString &key, const TessivaneTemplate *engine)
{
    QString expanded;
    int from = 0;
    for (int at = key.indexOf(QLatin1Char('$')); at >= 0;
         at = key.indexOf(QLatin1Char('$'), at + 1)) {
        int end = at + 1;
        while (end < key.size() && isNameCharacter(key.at(end)))
            ++end;
        LoopBinding binding;
        if (end == at + 1 || !findLoopBinding(engine, key.mid(at, end - at), binding))
            continue;
        expanded += QStringRef(&key, from, at - from) + binding.key;
        from = end;
        at = end - 1;
    }
    return from == 0 ? key : expanded + QStringRef(&key, from, key.size() - from);
}

} // namespace

QString expandRegistryKey(const QStringRef &key, const TessivaneTemplate *engine)
{
    const QString rooted = expandRegRoot(key, engine);
    return rooted.contains(QLatin1Char('$')) ? expandLoopNames(rooted, engine) : rooted;
}

} // namespace TessivaneTemplatePrivate
