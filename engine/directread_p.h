#ifndef TESSIVANETEMPLATE_DIRECTREAD_P_H
#define TESSIVANETEMPLATE_DIRECTREAD_P_H

#include "tessivane.h"
#include "tessivanetemplate.h"

namespace TessivaneTemplatePrivate {

// Reads the registry root of an engine and the values of a registry backend
// where they are kept. The registry commands read both for every command,
// and the public getters hand out copies, each of which costs two atomic
// reference count operations. What these return stays valid while nothing
// sets the root or changes the backend, which no command does.
class DirectRead
{
public:
    static const QString &regRoot(const TessivaneTemplate *engine) { return engine->m_regRoot; }

    // The value stored for \a key, or null when there is none.
    static const QString *value(const Tessivane *backend, const QString &key)
    {
        const auto it = backend->m_values.constFind(key);
        return it == backend->m_values.constEnd() ? nullptr : &it.value();
    }
};

} // namespace TessivaneTemplatePrivate

#endif
