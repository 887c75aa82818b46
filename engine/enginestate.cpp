#include "enginestate_p.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>

namespace TessivaneTemplatePrivate {

namespace {

struct EngineState
{
    bool hasReadFailed = false;
};

// An engine enters the table only once it needs state there.
struct StateTable
{
    QMutex mutex;
    QHash<const TessivaneTemplate *, EngineState> states;
};

Q_GLOBAL_STATIC(StateTable, s_table)

} // namespace

void setReadFailed(const TessivaneTemplate *engine, bool hasFailed)
{
    QMutexLocker locker(&s_table->mutex);
    if (hasFailed)
        s_table->states[engine].hasReadFailed = true;
    else if (s_table->states.contains(engine))
        s_table->states[engine].hasReadFailed = false;
}

bool hasReadFailed(const TessivaneTemplate *engine)
{
    QMutexLocker locker(&s_table->mutex);
    return s_table->states.value(engine).hasReadFailed;
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
