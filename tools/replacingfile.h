#ifndef REPLACINGFILE_H
#define REPLACINGFILE_H

#include <QFile>
#include <QString>
#include <QTemporaryFile>

/**
 * \brief An output file that is replaced in one step, or not at all.
 *
 * Text is written into a new temporary file beside the target (created
 * exclusively, mode 0600); commit() flushes it to disk, gives it the target's
 * permission bits and, where the process may, its owner and group, and
 * renames it over the target. Until then, and whenever commit() is not
 * reached, the target stays byte for byte as it was and the temporary is
 * removed. A target that already holds exactly the new bytes is not touched.
 *
 * A symbolic link stays a link: the file it points to is replaced. A target
 * that is a device, a pipe or a socket cannot be replaced and is written in
 * place, as standard output would be.
 *
 * QSaveFile does most of this but is no QFile, which the engine writes into,
 * and neither keeps the owner nor leaves an unchanged target alone.
 */
class ReplacingFile
{
public:
    explicit ReplacingFile(const QString &target);
    ~ReplacingFile();

    /// Prepares the file to write into. Returns false and sets errorString() on failure.
    bool open();
    /// The file to write into once open() succeeded.
    QFile &file();
    /// Puts the written text in place. Returns false and sets errorString() on failure.
    bool commit();
    QString errorString() const;

private:
    Q_DISABLE_COPY(ReplacingFile)

    bool resolveTarget();
    bool writeFailed();
    bool fail(const QString &what, const QString &reason);
    bool isUnchanged(qint64 targetSize);
    bool takeOverAttributes(bool targetExists, const struct stat &target);

    QString m_name; // as the user gave it, for messages
    QString m_target; // the file finally replaced, links followed
    bool m_isInPlace = false;
    QTemporaryFile m_temporary;
    QFile m_inPlace;
    QString m_error;
};

#endif
