#ifndef TESSIVANETEMPLATE_ENGINESTATE_P_H
#define TESSIVANETEMPLATE_ENGINESTATE_P_H

class TessivaneTemplate;

namespace TessivaneTemplatePrivate {

// What an engine keeps beyond the members of its class. The class layout is
// part of the library's binary interface and cannot grow, so this state lives
// in a table of the library's own, found by the engine's address, as Qt did
// for classes without a private pointer. Engines in different threads may use
// the table at once.

// Marks that an input of the engine's current process() call, the template or
// a file it includes, could not be read to its end.
void setReadFailed(const TessivaneTemplate *engine, bool hasFailed);
bool hasReadFailed(const TessivaneTemplate *engine);

// Forgets everything kept for \a engine; called when it is destroyed.
void forgetEngine(const TessivaneTemplate *engine);

} // namespace TessivaneTemplatePrivate

#endif
