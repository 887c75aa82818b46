#ifndef TESSIVANETEMPLATETAG_H
#define TESSIVANETEMPLATETAG_H

#include "tessivanetemplate_export.h"

#include <QString>
#include <QStringList>
#include <QTextStream>

class Tessivane;
class TessivaneTemplate;

/**
 * \brief The host's way of supplying values for named tags.
 *
 * Derive from it, list the names the handler serves and register it with the
 * engine, in its handler list or as its default handler. The engine calls
 * processTag() in two ways: for "%%TAG(name)%%" with the output stream, false
 * and a null \a value, to write the tag's text; for an "IF TAG(name)"
 * condition with a null stream, true and a pointer to an int, to deliver a
 * number. Text written before a false result stays in the output.
 *
 * The host owns every handler and keeps it alive while it is registered; the
 * engine never deletes one. On registration the engine hands the handler
 * itself and its registry backend of that moment, for the handler's own use.
 *
 * \sa TessivaneTemplate::addTag(), TessivaneTemplateTagPtr
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateTag
{
public:
    TessivaneTemplateTag();
    virtual ~TessivaneTemplateTag();

    /**
     * Writes the text of \a tagName to \a out when \a wantValue is false, or
     * stores its number in \a *value when it is true. Must not touch a null
     * \a out nor dereference a null \a value. Returns true on success.
     */
    virtual bool processTag(const QString &tagName, QTextStream *out, bool wantValue,
                            int *value) = 0;

    /// Appends \a name (Latin-1) unless an equal name is already held.
    void addTagName(const char *name);
    /// Adds each name of \a names in order, dropping duplicates.
    void addTagNames(QStringList &names);
    /// Removes the first entry equal to \a name, if there is one.
    void removeTagName(const char *name);
    /// Whether \a name is served, compared exactly and case-sensitively.
    bool containsTagName(const char *name);
    /// A copy of the names served, in the order they were added.
    QStringList tagNameList() const;

    void setRegistryBackend(Tessivane *backend);
    Tessivane *registryBackend();
    void setTessivaneTemplate(TessivaneTemplate *engine);
    TessivaneTemplate *tessivaneTemplate();

private:
    Q_DISABLE_COPY(TessivaneTemplateTag)

    QStringList tagNames;
    // Given by the engine at registration; the library itself never reads them.
    Tessivane *backend;
    TessivaneTemplate *engine;
};

/**
 * \brief A tag handler that forwards to a plain function.
 *
 * Without a function every call answers false. The function has no access to
 * the handler object, so it cannot reach the handler's backend or engine.
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateTagPtr : public TessivaneTemplateTag
{
public:
    using TagFunction = bool (*)(const QString &, QTextStream *, bool, int *);

    TessivaneTemplateTagPtr();
    ~TessivaneTemplateTagPtr() override;

    /// Stores \a function; null clears it.
    void setTagPtr(TagFunction function);
    /// Calls the function with the same arguments, or returns false without one.
    bool processTag(const QString &tagName, QTextStream *out, bool wantValue, int *value) override;

private:
    TagFunction tagFunction;
};

#endif
