#ifndef TESSIVANE_H
#define TESSIVANE_H

#include "tessivanetemplate_export.h"

#include <QHash>
#include <QString>
#include <QStringList>

/**
 * \brief The per-lookup record a registry query takes.
 *
 * Only the first field exists for this backend; the template engine sets it
 * to zero and relies on nothing else.
 */
namespace TessivaneTemplatePrivate {
class DirectRead;
} // namespace TessivaneTemplatePrivate

struct _RegEntryParam
{
    qint32 flags;
};

/**
 * \brief The registry backend: an in-memory store of text keys and text values.
 *
 * Keys are exact, case-sensitive strings; nothing normalises slashes or case.
 * A stored empty value is a found key with an empty value. The host creates
 * the store, fills it (directly or through TessivaneRegistryFile) and hands a
 * pointer to the engine, which never copies, changes or deletes it.
 *
 * \sa TessivaneTemplate::setRegistryBackend(), TessivaneRegistryFile
 */
class TESSIVANETEMPLATE_EXPORT Tessivane
{
public:
    Tessivane();
    ~Tessivane();

    /**
     * Returns 0 and stores the value of \a key in \a value when the key is
     * stored; otherwise returns 1 and leaves \a value untouched. \a param and
     * \a text are accepted for the registry interface and ignored.
     */
    int get(const QString &key, QString &value, const _RegEntryParam &param, const QString &text);
    /// Inserts \a key or replaces its value.
    void set(const QString &key, const QString &value);
    /// Returns true when a key was removed.
    bool remove(const QString &key);
    void clear();
    bool contains(const QString &key) const;
    /// All keys, sorted. The sorted list is kept until the store changes.
    QStringList keys() const;
    /**
     * The distinct path segments that follow "prefix/" in the stored keys, in
     * the order of keys(): the children of \a prefix. Found in the sorted keys
     * without looking at every key below a child.
     */
    QStringList children(const QString &prefix) const;

private:
    Q_DISABLE_COPY(Tessivane)
    friend class TessivaneTemplatePrivate::DirectRead;

    QHash<QString, QString> m_values;
};

#endif
