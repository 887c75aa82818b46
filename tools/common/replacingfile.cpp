#include "replacingfile.h"

#include "pendingnames.h"

#include <QDir>
#include <QRandomGenerator>

#include <acl/libacl.h>
#include <attr/error_context.h>
#include <attr/libattr.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

const int s_maxLinks = 40; // as the kernel's own limit (ELOOP)
// Marks the names of temporaries, so that a leftover is known for one.
const char s_marker[] = ".tessivane-";
const int s_randomLetters = 6;
const int s_chunkSize = 1 << 16;

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// A descriptor closed when it goes out of scope.
struct Descriptor
{
    explicit Descriptor(int descriptor)
        : fd(descriptor)
    {
    }
    ~Descriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
    Q_DISABLE_COPY(Descriptor)
    int fd;
};

// Takes the first error that libacl or libattr reports, with the system's reason.
struct ErrorRecorder : error_context
{
    ErrorRecorder()
        : error_context {record, nullptr, nullptr}
    {
    }

    static void record(error_context *context, const char *format, ...)
    {
        const int error = errno;
        auto *recorder = static_cast<ErrorRecorder *>(context);
        if (!recorder->text.isEmpty())
            return;
        char buffer[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
        recorder->text = QString::fromLocal8Bit(buffer) + QLatin1String(": ") + systemError(error);
    }

    QString text;
};

// The directory part and the last part of a path, split as the kernel splits it.
void splitPath(const QByteArray &path, QByteArray &directory, QByteArray &base)
{
    const int slash = path.lastIndexOf('/');
    directory = slash < 0 ? QByteArray(".") : path.left(qMax(slash, 1));
    base = path.mid(slash + 1);
}

bool isNumber(const QByteArray &text)
{
    bool isOk = false;
    return text.toInt(&isOk) >= 0 && isOk && !text.startsWith('+');
}

// Reads \a size bytes at \a offset, fewer only at the end of the file.
qint64 readAt(int descriptor, char *data, qint64 size, off_t offset)
{
    qint64 done = 0;
    while (done < size) {
        const ssize_t got = ::pread(descriptor, data + done, size_t(size - done), offset + done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got < 0 ? -1 : done;
        done += got;
    }
    return done;
}

// Copies the whole of \a from to \a to. Returns 0, or the error number.
int copyAll(int from, int to)
{
    QByteArray buffer(s_chunkSize, Qt::Uninitialized);
    for (off_t offset = 0;; offset += s_chunkSize) {
        const qint64 got = readAt(from, buffer.data(), s_chunkSize, offset);
        if (got < 0)
            return errno;
        if (const int error = writeAll(to, buffer.constData(), got))
            return error;
        if (got < s_chunkSize)
            return 0;
    }
}

// A file that no directory lists, for text held back until a run succeeds.
int openUnnamedTemporary()
{
    const QByteArray directory = QFile::encodeName(QDir::tempPath());
    const int descriptor = ::open(directory.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
        return descriptor;
    QByteArray name = directory + "/.tessivane-held.XXXXXX";
    PendingNames::Blocker blocker;
    const int named = ::mkostemp(name.data(), O_CLOEXEC);
    if (named >= 0)
        ::unlink(name.constData());
    return named;
}

} // namespace

ReplacingFile::ReplacingFile(const QString &target)
    : m_label(QLatin1Char('\'') + target + QLatin1Char('\''))
    , m_name(target)
{
}

ReplacingFile::ReplacingFile(int descriptor, const QString &label)
    : m_label(label)
    , m_streamDescriptor(descriptor)
{
}

ReplacingFile::~ReplacingFile()
{
    if (!m_named.isEmpty())
        ::unlinkat(m_directory, m_named.constData(), 0);
    PendingNames::remove(m_pendingSlot);
    m_file.close();
    if (m_directory >= 0)
        ::close(m_directory);
}

void ReplacingFile::holdBack()
{
    m_holdsBack = true;
}

void ReplacingFile::setAttributes(int mode, uid_t owner, gid_t group)
{
    m_mode = mode;
    m_owner = owner;
    m_group = group;
}

bool ReplacingFile::wasReplaced() const
{
    return m_wasReplaced;
}

QString ReplacingFile::stagedPath() const
{
    return m_named.isEmpty() ? QString() : QFile::decodeName(directoryPath() + '/' + m_named);
}

// The path of the directory of the file replaced, as the system names it.
QByteArray ReplacingFile::directoryPath() const
{
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", m_directory);
    char path[4096];
    const ssize_t size = ::readlink(link, path, sizeof path);
    return QByteArray(path, int(qMax<ssize_t>(size, 0)));
}

OutputFile &ReplacingFile::file()
{
    return m_file;
}

QString ReplacingFile::errorString() const
{
    return m_error;
}

bool ReplacingFile::fail(const QString &what, int error)
{
    return fail(what, systemError(error));
}

bool ReplacingFile::fail(const QString &what, const QString &reason)
{
    m_error = what + QLatin1Char(' ') + m_label + QLatin1String(": ") + reason;
    return false;
}

bool ReplacingFile::open()
{
    if (m_streamDescriptor < 0 && !resolveTarget())
        return false;
    m_isInPlace =
        m_streamDescriptor >= 0 || (m_exists && !S_ISREG(m_target.st_mode)) || isKernelState();
    if (!m_isInPlace)
        return openTemporary();
    const int descriptor = m_holdsBack ? openUnnamedTemporary() : openStream();
    if (descriptor < 0)
        return m_holdsBack ? fail(QStringLiteral("cannot create a temporary file in '")
                                      + QDir::tempPath() + QLatin1String("' for"),
                                  errno)
                           : fail(QStringLiteral("cannot write"), errno);
    return openFile(descriptor);
}

bool ReplacingFile::openFile(int descriptor)
{
    // A temporary is locked while it lives, so that no other run takes it for
    // a leftover; a stream needs no lock.
    if (!m_isInPlace)
        ::flock(descriptor, LOCK_EX | LOCK_NB);
    if (m_file.openDescriptor(descriptor))
        return true;
    ::close(descriptor);
    return fail(QStringLiteral("cannot write"), m_file.errorString());
}

// Follows the links of the target one at a time. Each directory part is
// opened by the system, which resolves its links and ".." as open(2) does; a
// link's target is read and resolved against the link's own directory.
bool ReplacingFile::resolveTarget()
{
    QByteArray path = QFile::encodeName(m_name);
    for (int links = 0; links <= s_maxLinks; ++links) {
        QByteArray directory;
        splitPath(path, directory, m_baseName);
        if (m_baseName.isEmpty() || m_baseName == "." || m_baseName == "..")
            return fail(QStringLiteral("cannot write"), EISDIR);
        if (!openDirectory(directory))
            return false;
        // One of this process's descriptors, however it was named: /dev/stdout,
        // /proc/self/fd/1, a link to either.
        if (isOwnDescriptorDirectory() && isNumber(m_baseName)) {
            m_streamDescriptor = m_baseName.toInt();
            return true;
        }
        if (::fstatat(m_directory, m_baseName.constData(), &m_target, AT_SYMLINK_NOFOLLOW) != 0) {
            m_exists = false;
            return errno == ENOENT || fail(QStringLiteral("cannot write"), errno);
        }
        m_exists = true;
        if (S_ISDIR(m_target.st_mode))
            return fail(QStringLiteral("cannot write"), EISDIR);
        // The kernel's own links (another process's descriptors) are opened, not read.
        if (!S_ISLNK(m_target.st_mode) || isKernelState())
            return true;
        char target[4096];
        const ssize_t size =
            ::readlinkat(m_directory, m_baseName.constData(), target, sizeof target);
        if (size < 0 || size == ssize_t(sizeof target))
            return fail(QStringLiteral("cannot write"), size < 0 ? errno : ENAMETOOLONG);
        path = QByteArray(target, int(size));
    }
    return fail(QStringLiteral("cannot write"), ELOOP);
}

bool ReplacingFile::openDirectory(const QByteArray &path)
{
    const int base = m_directory >= 0 ? m_directory : AT_FDCWD;
    int directory = ::openat(base, path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // A directory that may be written but not read still holds the temporary;
    // it only cannot be flushed to disk after the rename.
    if (directory < 0 && errno == EACCES)
        directory = ::openat(base, path.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0)
        return fail(QStringLiteral("cannot write"), errno);
    if (m_directory >= 0)
        ::close(m_directory);
    m_directory = directory;
    return true;
}

// Whether the directory is /proc/PID/fd of this process, whose entries stand
// for its open descriptors. What is written there must reach the file as the
// shell opened it (appending, or a pipe), not the same file opened anew and
// truncated, let alone replaced.
bool ReplacingFile::isOwnDescriptorDirectory() const
{
    const QByteArray expected = "/proc/" + QByteArray::number(::getpid()) + "/";
    const QByteArray path = directoryPath();
    return path.startsWith(expected) && path.endsWith("/fd")
        && (path.size() == expected.size() + 2 || path.mid(expected.size()).startsWith("task/"));
}

// Files of the kernel's state (/proc, /sys) cannot be replaced, only written.
bool ReplacingFile::isKernelState() const
{
    struct statfs system;
    if (::fstatfs(m_directory, &system) != 0)
        return false;
    const auto type = system.f_type;
    return type == PROC_SUPER_MAGIC || type == SYSFS_MAGIC || type == CGROUP_SUPER_MAGIC
        || type == CGROUP2_SUPER_MAGIC;
}

// The stream written in place, opened as the shell's ">" opens a file.
int ReplacingFile::openStream()
{
    if (m_streamDescriptor >= 0)
        return ::fcntl(m_streamDescriptor, F_DUPFD_CLOEXEC, 0);
    return ::openat(m_directory, m_baseName.constData(),
                    O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY | O_CLOEXEC, 0666);
}

bool ReplacingFile::openTemporary()
{
    // Linking an unnamed file takes /proc, or the privilege to link by descriptor.
    const bool canLink = ::geteuid() == 0 || ::access("/proc/self/fd", X_OK) == 0;
    const int temporary = ::openat(m_directory, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (temporary >= 0 && canLink)
        return openFile(temporary);
    if (temporary >= 0)
        ::close(temporary);
    else if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
        return fail(QStringLiteral("cannot create a temporary file beside"), errno);
    return openNamedTemporary();
}

bool ReplacingFile::openNamedTemporary()
{
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QByteArray name = temporaryName();
        PendingNames::Blocker blocker;
        const int temporary = ::openat(m_directory, name.constData(),
                                       O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (temporary >= 0) {
            m_named = name;
            m_pendingSlot = PendingNames::add(m_directory, name);
            return openFile(temporary);
        }
        if (errno != EEXIST)
            return fail(QStringLiteral("cannot create a temporary file beside"), errno);
    }
    return fail(QStringLiteral("cannot create a temporary file beside"), EEXIST);
}

// "." and the target's name, shortened so that the whole stays within the
// file system's limit, then the marker and six random letters.
QByteArray ReplacingFile::temporaryName() const
{
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    QByteArray name = shortenedBaseName() + s_marker;
    for (int i = 0; i < s_randomLetters; ++i)
        name += letters[QRandomGenerator::global()->bounded(int(sizeof letters) - 1)];
    return name;
}

// "." and as much of the target's name as leaves room for the rest.
QByteArray ReplacingFile::shortenedBaseName() const
{
    long limit = ::fpathconf(m_directory, _PC_NAME_MAX);
    if (limit <= 0 || limit > 255)
        limit = 255;
    QByteArray base = m_baseName.left(int(limit) - 1 - int(sizeof s_marker) + 1 - s_randomLetters);
    // A name cut inside a UTF-8 character would print as garbage.
    while (!base.isEmpty() && base.size() < m_baseName.size()
           && (uchar(m_baseName.at(base.size())) & 0xC0) == 0x80)
        base.chop(1);
    return '.' + base;
}

bool ReplacingFile::checkWritten()
{
    m_file.flush();
    return m_file.failure() == 0 || fail(QStringLiteral("cannot write"), m_file.failure());
}

bool ReplacingFile::commit()
{
    if (!checkWritten())
        return false;
    if (m_isInPlace)
        return commitInPlace();
    const Descriptor current(openCurrent());
    if (current.fd == -2)
        return false;
    if (current.fd >= 0 && isUnchanged(current.fd))
        return true;
    if (::fsync(m_file.handle()) != 0)
        return fail(QStringLiteral("cannot write"), errno);
    return (m_hasAttributes || giveAttributes(current.fd)) && isStagedIntact() && linkAndRename();
}

// The attributes of the file replaced (\a current, or -1 for a new one),
// then those setAttributes() gave.
bool ReplacingFile::giveAttributes(int current)
{
    m_hasAttributes =
        (current >= 0 ? takeOverAttributes(current) : setNewFileMode()) && applyAttributes();
    return m_hasAttributes;
}

// The target opened for reading; -1 when there is none, -2 when it cannot be
// read. Whether it exists is asked afresh: one made during the run is replaced
// as carefully as one that was there before.
int ReplacingFile::openCurrent()
{
    const int current =
        ::openat(m_directory, m_baseName.constData(), O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    if (current >= 0 || errno == ENOENT)
        return current;
    // Without reading the file its attributes cannot be carried over: never guessed.
    fail(QStringLiteral("cannot read"), errno);
    return -2;
}

bool ReplacingFile::differsFromTarget()
{
    if (m_isInPlace)
        return true;
    const Descriptor current(openCurrent());
    return current.fd < 0 || !isUnchanged(current.fd);
}

bool ReplacingFile::copyWritten(QIODevice &device)
{
    QByteArray buffer(s_chunkSize, Qt::Uninitialized);
    for (off_t offset = 0;; offset += s_chunkSize) {
        const qint64 got = readAt(m_file.handle(), buffer.data(), s_chunkSize, offset);
        if (got < 0 || device.write(buffer.constData(), got) != got)
            return false;
        if (got < s_chunkSize)
            return true;
    }
}

// The staged file has its final attributes, so that a check reads it as the
// service will. What the check might do to it is noted, to be refused.
bool ReplacingFile::stage()
{
    if (!checkWritten())
        return false;
    if (m_isInPlace || !m_named.isEmpty())
        return true;
    const Descriptor current(openCurrent());
    if (current.fd == -2 || !giveAttributes(current.fd) || !linkTemporary())
        return false;
    return ::fstat(m_file.handle(), &m_staged) == 0 || fail(QStringLiteral("cannot write"), errno);
}

// A check that wrote into the staged file, changed its attributes or put
// another file under its name must not have its work put in place.
bool ReplacingFile::isStagedIntact()
{
    if (m_staged.st_ino == 0)
        return true;
    struct stat named;
    struct stat now;
    const bool isSame =
        ::fstatat(m_directory, m_named.constData(), &named, AT_SYMLINK_NOFOLLOW) == 0
        && ::fstat(m_file.handle(), &now) == 0 && named.st_dev == now.st_dev
        && named.st_ino == now.st_ino && now.st_size == m_staged.st_size
        && now.st_mode == m_staged.st_mode && now.st_uid == m_staged.st_uid
        && now.st_gid == m_staged.st_gid && now.st_mtim.tv_sec == m_staged.st_mtim.tv_sec
        && now.st_mtim.tv_nsec == m_staged.st_mtim.tv_nsec
        && now.st_ctim.tv_sec == m_staged.st_ctim.tv_sec
        && now.st_ctim.tv_nsec == m_staged.st_ctim.tv_nsec;
    return isSame
        || fail(QStringLiteral("the check changed the staged file of"),
                QStringLiteral("nothing is replaced"));
}

// What setAttributes() gave goes over what the replaced file had.
bool ReplacingFile::applyAttributes()
{
    const int temporary = m_file.handle();
    if ((m_owner != uid_t(-1) || m_group != gid_t(-1))
        && ::fchown(temporary, m_owner, m_group) != 0)
        return fail(QStringLiteral("cannot set the owner of"), errno);
    if (m_mode >= 0 && ::fchmod(temporary, mode_t(m_mode)) != 0)
        return fail(QStringLiteral("cannot set the permissions of"), errno);
    return true;
}

void ReplacingFile::removeLeftovers()
{
    if (m_isInPlace)
        return;
    const QByteArray prefix = shortenedBaseName() + s_marker;
    const QDir directory(QFile::decodeName(directoryPath()));
    for (const QString &entry :
         directory.entryList(QDir::Files | QDir::Hidden | QDir::NoSymLinks)) {
        const QByteArray name = QFile::encodeName(entry);
        if (name.size() != prefix.size() + s_randomLetters || !name.startsWith(prefix)
            || name == m_named)
            continue;
        // Another run's temporary is locked while that run lives.
        const Descriptor leftover(
            ::openat(m_directory, name.constData(), O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
        if (leftover.fd >= 0 && ::flock(leftover.fd, LOCK_EX | LOCK_NB) == 0)
            ::unlinkat(m_directory, name.constData(), 0);
    }
}

bool ReplacingFile::setNewFileMode()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return ::fchmod(m_file.handle(), 0666 & ~mask) == 0
        || fail(QStringLiteral("cannot set the permissions of"), errno);
}

bool ReplacingFile::commitInPlace()
{
    if (!m_holdsBack)
        return true;
    const Descriptor stream(openStream());
    if (stream.fd < 0)
        return fail(QStringLiteral("cannot write"), errno);
    const int error = copyAll(m_file.handle(), stream.fd);
    return error == 0 || fail(QStringLiteral("cannot write"), error);
}

// Whatever watches the target sees no change when the text is the same.
bool ReplacingFile::isUnchanged(int current)
{
    struct stat written;
    struct stat existing;
    if (::fstat(m_file.handle(), &written) != 0 || ::fstat(current, &existing) != 0
        || written.st_size != existing.st_size)
        return false;
    if ((m_mode >= 0 && mode_t(m_mode) != (existing.st_mode & 07777))
        || (m_owner != uid_t(-1) && m_owner != existing.st_uid)
        || (m_group != gid_t(-1) && m_group != existing.st_gid))
        return false;
    QByteArray expected(s_chunkSize, Qt::Uninitialized);
    QByteArray actual(s_chunkSize, Qt::Uninitialized);
    for (off_t offset = 0; offset < written.st_size; offset += s_chunkSize) {
        const qint64 size = readAt(current, expected.data(), s_chunkSize, offset);
        if (size <= 0 || readAt(m_file.handle(), actual.data(), size, offset) != size
            || std::memcmp(expected.constData(), actual.constData(), size_t(size)) != 0)
            return false;
    }
    return true;
}

// The replacement grants exactly what the file it replaces granted: owner and
// group, permission bits, access control lists (which also drop whatever the
// directory's default ACL gave the temporary), then extended attributes.
bool ReplacingFile::takeOverAttributes(int current)
{
    struct stat status;
    if (::fstat(current, &status) != 0)
        return fail(QStringLiteral("cannot read"), errno);
    mode_t mode = status.st_mode & 07777;
    if (!takeOverOwner(status, mode))
        return false;
    const QByteArray name = QFile::encodeName(m_name);
    const int temporary = m_file.handle();
    ErrorRecorder permissions;
    if (::perm_copy_fd(name.constData(), current, name.constData(), temporary, &permissions) != 0)
        return fail(QStringLiteral("cannot keep the permissions of"), permissions.text);
    // Set last: a change of owner clears set-id bits, and a group not kept loses its bits.
    if (::fchmod(temporary, mode) != 0)
        return fail(QStringLiteral("cannot keep the permissions of"), errno);
    ErrorRecorder attributes;
    if (::attr_copy_fd(name.constData(), current, name.constData(), temporary,
                       attr_copy_check_permissions, &attributes)
        != 0)
        return fail(QStringLiteral("cannot keep the extended attributes of"), attributes.text);
    return true;
}

// Only a privileged process may give a file away. An owner or a group that
// cannot be kept takes its set-id bit along, and a group that cannot be kept
// also its permissions, which would otherwise go to another group.
bool ReplacingFile::takeOverOwner(const struct stat &status, mode_t &mode)
{
    const int temporary = m_file.handle();
    if (::fchown(temporary, status.st_uid, status.st_gid) == 0)
        return true;
    if (errno != EPERM)
        return fail(QStringLiteral("cannot keep the owner of"), errno);
    mode &= ~mode_t(S_ISUID);
    if (::fchown(temporary, uid_t(-1), status.st_gid) == 0)
        return true;
    if (errno != EPERM)
        return fail(QStringLiteral("cannot keep the group of"), errno);
    mode &= ~mode_t(S_ISGID | S_IRWXG);
    return true;
}

bool ReplacingFile::linkAndRename()
{
    if (m_named.isEmpty() && !linkTemporary())
        return false;
    // rename(2) puts the new file in place in one step; there is no fallback
    // to copying when the system refuses (another device, a bind mount).
    if (::renameat(m_directory, m_named.constData(), m_directory, m_baseName.constData()) != 0)
        return fail(QStringLiteral("cannot replace"), errno);
    m_wasReplaced = true;
    PendingNames::remove(m_pendingSlot);
    m_pendingSlot = -1;
    m_named.clear();
    // A directory opened without read permission cannot be flushed (EBADF).
    if (::fsync(m_directory) != 0 && errno != EBADF && errno != EINVAL)
        return fail(QStringLiteral("cannot flush the directory of"), errno);
    return true;
}

// Gives the unnamed temporary a name beside the target, for the rename.
bool ReplacingFile::linkTemporary()
{
    const int temporary = m_file.handle();
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", temporary);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QByteArray name = temporaryName();
        PendingNames::Blocker blocker;
        int linked = ::linkat(temporary, "", m_directory, name.constData(), AT_EMPTY_PATH);
        // Linking by descriptor alone takes a privilege; /proc serves everyone.
        if (linked != 0 && errno == ENOENT)
            linked = ::linkat(AT_FDCWD, path, m_directory, name.constData(), AT_SYMLINK_FOLLOW);
        if (linked == 0) {
            m_named = name;
            m_pendingSlot = PendingNames::add(m_directory, name);
            return true;
        }
        if (errno != EEXIST)
            return fail(QStringLiteral("cannot replace"), errno);
    }
    return fail(QStringLiteral("cannot replace"), EEXIST);
}
