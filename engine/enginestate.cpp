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

// An engine enters the table only once it needs state there, so that a host
// that never meets a failure never takes the lock twice.
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
    QMutexLocker locker(&s_table->mutex);
    s_table->states.remove(engine);
}

} // namespace TessivaneTemplatePrivate
