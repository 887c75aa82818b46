#ifndef TESSIVANETEMPLATE_ENGINESTATE_P_H
#define TESSIVANETEMPLATE_ENGINESTATE_P_H

#include <QString>

class TessivaneTemplate;
class TessivaneTemplateParser;

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

// The version of the template language the engine's parsers understand: 1
// unless a host chose 2.
void setLanguageVersion(const TessivaneTemplate *engine, int version);
int languageVersion(const TessivaneTemplate *engine);

// A loop name bound while the body of a FOREACH is rendered: $NAME in a
// registry key stands for key, and ITEM($NAME) writes item.
struct LoopBinding
{
    QString name;
    QString key;
    QString item;
};
void pushLoopBinding(const TessivaneTemplate *engine, const LoopBinding &binding);
void popLoopBinding(const TessivaneTemplate *engine);
// The innermost binding of \a name; false when no loop binds it.
bool findLoopBinding(const TessivaneTemplate *engine, const QString &name, LoopBinding &binding);

// Counts the inline comments a parser writes into the output, so that a line
// that writes nothing of its own still ends one with a line feed. Each parser
// counts its own: those of a loop's parsers are no comments of the line that
// closes the loop.
void countInlineComment(const TessivaneTemplateParser *parser);
uint inlineComments(const TessivaneTemplateParser *parser);
void forgetParser(const TessivaneTemplateParser *parser);

// Forgets everything kept for \a engine; called when it is destroyed.
void forgetEngine(const TessivaneTemplate *engine);

} // namespace TessivaneTemplatePrivate

#endif
