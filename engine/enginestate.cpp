#include "enginestate_p.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QMutexLocker>

namespace TessivaneTemplatePrivate {

namespace {

struct EngineState
{
    bool hasReadFailed = false;
    int languageVersion = 1;
    QList<LoopBinding> bindings; // innermost last
};

// An engine enters the table only once it needs state there.
struct StateTable
{
    QMutex mutex;
    QHash<const TessivaneTemplate *, EngineState> states;
    QHash<const TessivaneTemplateParser *, uint> comments;
};

Q_GLOBAL_STATIC(StateTable, s_table)

} // namespace

void setReadFailed(const TessivaneTemplate *engine, bool hasFailed)
{
    QMutexLocker locker(&s_table->mutex);
    if (hasFailed || s_table->states.contains(engine))
        s_table->states[engine].hasReadFailed = hasFailed;
}

bool hasReadFailed(const TessivaneTemplate *engine)
{
    QMutexLocker locker(&s_table->mutex);
    return s_table->states.value(engine).hasReadFailed;
}

void setLanguageVersion(const TessivaneTemplate *engine, int version)
{
    QMutexLocker locker(&s_table->mutex);
    s_table->states[engine].languageVersion = version;
}

int languageVersion(const TessivaneTemplate *engine)
{
    QMutexLocker locker(&s_table->mutex);
    const auto it = s_table->states.constFind(engine);
    return it == s_table->states.constEnd() ? 1 : it->languageVersion;
}

void pushLoopBinding(const TessivaneTemplate *engine, const LoopBinding &binding)
{
    QMutexLocker locker(&s_table->mutex);
    s_table->states[engine].bindings.append(binding);
}

void popLoopBinding(const TessivaneTemplate *engine)
{
    QMutexLocker locker(&s_table->mutex);
    s_table->states[engine].bindings.removeLast();
}

bool findLoopBinding(const TessivaneTemplate *engine, const QString &name, LoopBinding &binding)
{
    QMutexLocker locker(&s_table->mutex);
    const auto it = s_table->states.constFind(engine);
    if (it == s_table->states.constEnd())
        return false;
    for (int i = it->bindings.size() - 1; i >= 0; --i) {
        if (it->bindings.at(i).name == name) {
            binding = it->bindings.at(i);
            return true;
        }
    }
    return false;
}

void countInlineComment(const TessivaneTemplateParser *parser)
{
    QMutexLocker locker(&s_table->mutex);
    ++s_table->comments[parser];
}

uint inlineComments(const TessivaneTemplateParser *parser)
{
    QMutexLocker locker(&s_table->mutex);
    return s_table->comments.value(parser);
}

void forgetParser(const TessivaneTemplateParser *parser)
{
    if (s_table.isDestroyed())
        return;
    QMutexLocker locker(&s_table->mutex);
    s_table->comments.remove(parser);
}

void forgetEngine(const TessivaneTemplate *engine)
{
    // A static engine may be destroyed after the table.
    if (s_table.isDestroyed())
        return;
    QMutexLocker locker(&s_table->mutex);
    s_table->states.remove(engine);
}

} // namespace TessivaneTemplatePrivate
