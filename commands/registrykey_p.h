#ifndef TESSIVANETEMPLATE_REGISTRYKEY_P_H
#define TESSIVANETEMPLATE_REGISTRYKEY_P_H

#include <QString>
#include <QStringView>

class TessivaneTemplate;

namespace TessivaneTemplatePrivate {

// A registry key as a template writes it, made into the key asked for: every
// "$REGROOT" becomes the engine's registry root and, inside the body of a
// FOREACH, every loop name ("$" and upper-case letters, digits and "_") that
// a loop binds becomes the key of its current child. Names no loop binds stay
// as they are.
QString expandRegistryKey(QStringView key, const TessivaneTemplate *engine);
// The same into \a expanded, in the buffer it owns when that is large enough.
void expandRegistryKey(QStringView key, const TessivaneTemplate *engine, QString &expanded);

} // namespace TessivaneTemplatePrivate

#endif
