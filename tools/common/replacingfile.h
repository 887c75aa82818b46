#ifndef REPLACINGFILE_H
#define REPLACINGFILE_H

#include "outputfile.h"

#include <QByteArray>
#include <QString>

#include <sys/stat.h>

/**
 * \brief An output that replaces a live file in one step, or not at all.
 *
 * Text is written into a new, unnamed temporary file (O_TMPFILE, mode 0600)
 * in the directory of the file finally replaced. commit() checks that every
 * write succeeded, flushes the temporary to disk, gives it the replaced
 * file's owner and group (where the process may), permission bits, access
 * control lists and extended attributes, links it under a name and renames
 * it over the target, then flushes the directory. Until then, and whenever
 * commit() fails or is not reached, the target stays byte for byte as it was;
 * the temporary has no name, so nothing is left behind whatever ends the
 * process. A target that already holds exactly the new bytes is not touched.
 *
 * Symbolic links are followed as the kernel follows them, each directory
 * part opened by the system, so that "link/../x" means what open(2) makes of
 * it. A target that is one of the process's open descriptors however it is
 * named (standard output, /dev/stdout, /proc/self/fd/N, a link to them) is
 * written into that descriptor; a device, a FIFO, a socket and a file of the
 * kernel's state (/proc, /sys) are written in place, as the shell's ">" would.
 * With holdBack() such a stream receives nothing until commit().
 *
 * On a file system without unnamed files the temporary is named from the
 * start and listed with PendingNames, so that a caught signal removes it.
 *
 * QSaveFile does part of this, but is no QFile of ours, names its temporary
 * from the start, and keeps neither the owner, the ACLs nor an unchanged file.
 *
 * \sa OutputFile, PendingNames
 */
class ReplacingFile
{
public:
    /// An output that replaces the file \a target names.
    explicit ReplacingFile(const QString &target);
    /// An output to the open \a descriptor (not taken over), reported as \a label.
    ReplacingFile(int descriptor, const QString &label);
    ~ReplacingFile();

    /// A stream written in place receives the text only at commit().
    void holdBack();
    /**
     * Gives every replacement the permission bits \a mode, the owner \a owner
     * and the group \a group in place of those of the file replaced; -1 keeps
     * that one. A target that differs in them is replaced even when it holds
     * the same bytes.
     */
    void setAttributes(int mode, uid_t owner, gid_t group);
    /// Prepares the file to write into. Returns false and sets errorString() on failure.
    bool open();
    /// The file to write into once open() succeeded.
    OutputFile &file();
    /// Returns false and sets errorString() when a write into file() failed.
    bool checkWritten();
    /**
     * Gives the written text a name beside the target, for a check to read:
     * stagedPath() until commit() renames it into place or the object is
     * destroyed, which removes it. Returns false and sets errorString() on failure.
     */
    bool stage();
    QString stagedPath() const;
    /// Whether commit() would change the target: its bytes, or an attribute set with
    /// setAttributes().
    bool differsFromTarget();
    /// Writes what was written into file() so far to \a device. Returns false when a read or write
    /// fails.
    bool copyWritten(QIODevice &device);
    /// Puts the written text in place. Returns false and sets errorString() on failure.
    bool commit();
    /// Whether the last commit() replaced the target, rather than finding it as it should be.
    bool wasReplaced() const;
    QString errorString() const;

    /// Once open() succeeded, removes what a killed run left staged beside the target.
    void removeLeftovers();

private:
    Q_DISABLE_COPY(ReplacingFile)

    bool fail(const QString &what, int error);
    bool fail(const QString &what, const QString &reason);
    bool resolveTarget();
    bool openDirectory(const QByteArray &path);
    bool isOwnDescriptorDirectory() const;
    bool isKernelState() const;
    int openStream();
    bool openFile(int descriptor);
    bool openTemporary();
    bool openNamedTemporary();
    bool commitInPlace();
    int openCurrent();
    bool isUnchanged(int current);
    bool applyAttributes();
    bool giveAttributes(int current);
    bool takeOverAttributes(int current);
    bool setNewFileMode();
    bool isStagedIntact();
    bool takeOverOwner(const struct stat &status, mode_t &mode);
    bool linkAndRename();
    bool linkTemporary();
    QByteArray temporaryName() const;
    QByteArray shortenedBaseName() const;
    QByteArray directoryPath() const;

    QString m_label; // how messages name the target: 'name' as given, or "standard output"
    QString m_name; // as given; empty for a descriptor
    int m_streamDescriptor = -1; // an open stream written in place, not ours to close
    bool m_holdsBack = false;
    int m_directory = -1; // the directory of the file replaced, opened by the system
    QByteArray m_baseName; // its name there, links followed
    struct stat m_target = {}; // its status when open() resolved it
    bool m_exists = false;
    bool m_isInPlace = false;
    OutputFile m_file;
    QByteArray m_named; // the temporary's name while it has one
    int m_pendingSlot = -1;
    int m_mode = -1; // given with setAttributes(), or -1
    uid_t m_owner = uid_t(-1);
    gid_t m_group = gid_t(-1);
    bool m_wasReplaced = false;
    bool m_hasAttributes = false; // the temporary has them already, given when it was staged
    struct stat m_staged = {}; // the temporary as it was staged
    QString m_error;
};

#endif
