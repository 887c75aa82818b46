#ifndef TESSIVANEREGISTRYFILE_H
#define TESSIVANEREGISTRYFILE_H

#include "tessivanetemplate_export.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class Tessivane;

/**
 * \brief Fills a registry backend from a registry file.
 *
 * Two formats, chosen by the file name's ending, compared ignoring case:
 * ".json" holds one object whose nested member names become the key's path
 * segments ({"etc":{"port":80}} gives "/etc/port"); any other file holds one
 * "key = value" a line, with blank lines and "#" comments skipped and values
 * optionally in double quotes with the escapes \" \\ \n \t.
 *
 * Files loaded one after the other override as layered configuration does:
 * a JSON array replaces whatever was stored under its key as a whole, a JSON
 * null removes it, objects merge member by member, and a line sets its key.
 *
 * Loading is all or nothing: when the file has an error, nothing from it is
 * stored and errorString() names the file, and the line (and column for
 * JSON) where the error is.
 *
 * \sa Tessivane
 */
class TESSIVANETEMPLATE_EXPORT TessivaneRegistryFile
{
public:
    TessivaneRegistryFile();
    ~TessivaneRegistryFile();

    /**
     * Reads \a fileName and stores its values in \a backend, replacing values
     * of keys it already holds. Returns true on success; otherwise returns
     * false, stores nothing, and errorString() describes the problem. A file
     * that cannot be read to its end, one larger than 1 GiB and a null
     * \a backend are refused.
     */
    bool load(const QString &fileName, Tessivane *backend);
    /// Parses \a data as a file named \a fileName would be, without storing it.
    bool parse(const QString &fileName, const QByteArray &data);
    /// The key/value pairs of the last successful parse(), in file order.
    QList<QPair<QString, QString>> values() const;
    /// Why the last load() or parse() failed; empty after a success.
    QString errorString() const;

private:
    Q_DISABLE_COPY(TessivaneRegistryFile)

    bool parseJson(const QString &fileName, const QByteArray &data);
    bool parseLines(const QString &fileName, const QByteArray &data);
    bool fail(const QString &message);

    QList<QPair<QString, QString>> m_values;
    // Keys removed, with all below them, before the values are stored: those
    // of JSON arrays, which replace as a whole, and of JSON nulls.
    QStringList m_removals;
    QString m_errorString;
};

#endif
