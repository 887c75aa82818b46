#include "registrykey_p.h"

#include "directread_p.h"
#include "enginestate_p.h"
#include "tessivanetemplate.h"

#include <QVarLengthArray>

#include <algorithm>
#include <cstring>

namespace TessivaneTemplatePrivate {

namespace {

const QLatin1String s_regRoot("$REGROOT");

bool isNameCharacter(QChar c)
{
    return (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))
        || (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c == QLatin1Char('_');
}

bool isRegRootAt(QStringView key, int at)
{
    static const char16_t regRoot[] = u"$REGROOT";
    return key.size() - at >= s_regRoot.size()
        && std::memcmp(key.utf16() + at, regRoot, sizeof(regRoot) - sizeof(char16_t)) == 0;
}

// The position of the first "$" in \a key at or after \a from, or -1: keys
// are short, and a plain loop costs less than the call to a vector search.
int indexOfDollar(QStringView key, int from)
{
    for (int i = from; i < key.size(); ++i) {
        if (key.at(i) == QLatin1Char('$'))
            return i;
    }
    return -1;
}

// Every "$REGROOT" becomes the registry root, built in place in the buffer
// \a expanded already owns: this runs for every registry command of a template.
void expandRegRoot(QStringView key, const QVarLengthArray<int, 4> &found,
                   const TessivaneTemplate *engine, QString &expanded)
{
    const QString &root = DirectRead::regRoot(engine);
    const int size = int(key.size() + found.size() * (root.size() - s_regRoot.size()));
    if (expanded.size() != size)
        expanded.resize(size);
    QChar *out = expanded.data();
    int from = 0;
    for (const int at : found) {
        out = std::copy(key.begin() + from, key.begin() + at, out);
        out = std::copy(root.unicode(), root.unicode() + root.size(), out);
        from = at + s_regRoot.size();
    }
    std::copy(key.begin() + from, key.end(), out);
}

// The general case, inside a loop's block: one pass over the "$" signs, and
// what replaces them is not looked at again, so that a registry root that
// holds "$S" stays as it is.
QString expandNames(QStringView key, const TessivaneTemplate *engine)
{
    QString expanded;
    int from = 0;
    for (int at = indexOfDollar(key, 0); at >= 0; at = indexOfDollar(key, at + 1)) {
        int end = at + 1;
        while (end < key.size() && isNameCharacter(key.at(end)))
            ++end;
        QString replacement;
        LoopBinding binding;
        if (isRegRootAt(key, at)) {
            replacement = engine->regRoot();
            end = at + s_regRoot.size();
        } else if (end > at + 1
                   && findLoopBinding(engine, key.mid(at, end - at).toString(), binding)) {
            replacement = binding.key;
        } else {
            continue;
        }
        expanded += key.mid(from, at - from);
        expanded += replacement;
        from = end;
        at = end - 1;
    }
    expanded += key.mid(from);
    return expanded;
}

} // namespace

// Only a "$" that starts a name other than "$REGROOT" asks the engine for
// its loops, which version 1 never has.
void expandRegistryKey(QStringView key, const TessivaneTemplate *engine, QString &expanded)
{
    QVarLengthArray<int, 4> roots;
    for (int at = indexOfDollar(key, 0); at >= 0; at = indexOfDollar(key, at + 1)) {
        if (isRegRootAt(key, at)) {
            roots.append(at);
            at += s_regRoot.size() - 1;
        } else if (at + 1 < key.size() && isNameCharacter(key.at(at + 1))) {
            expanded = expandNames(key, engine);
            return;
        }
    }
    expandRegRoot(key, roots, engine, expanded);
}

QString expandRegistryKey(QStringView key, const TessivaneTemplate *engine)
{
    QString expanded;
    expandRegistryKey(key, engine, expanded);
    return expanded;
}

} // namespace TessivaneTemplatePrivate
