#ifndef LOCALREGISTRY_H
#define LOCALREGISTRY_H

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class Tessivane;

/**
 * \brief The registry values a tool is given locally: registry files, the
 * environment and single values.
 *
 * load() stores them in this order, a later value replacing an earlier one:
 * the files in turn, then every environment variable NAME as the key
 * /env/NAME (its value as the locale decodes it), then the single values.
 * A file that cannot be loaded stops it, with errorString() naming the file.
 *
 * \sa TessivaneRegistryFile
 */
struct LocalRegistry
{
    QStringList files;
    bool includesEnvironment = false;
    QList<QPair<QString, QString>> values;

    /// Returns true on success; otherwise false, and errorString() says why.
    bool load(Tessivane &registry);
    QString errorString() const;

private:
    QString m_error;
};

#endif
