#include "replacingfile.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The temporary's path for the signal handler, which may only unlink it.
char s_pendingPath[4096];

void removePendingAndExit(int signalNumber)
{
    if (s_pendingPath[0])
        ::unlink(s_pendingPath);
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

void setPending(const QString &path)
{
    const QByteArray bytes = QFile::encodeName(path);
    const size_t size = qMin(size_t(bytes.size()), sizeof s_pendingPath - 1);
    std::memcpy(s_pendingPath, bytes.constData(), size);
    s_pendingPath[size] = '\0';
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP})
        ::signal(signalNumber, removePendingAndExit);
}

void clearPending()
{
    s_pendingPath[0] = '\0';
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

void syncDirectory(const QString &dir)
{
    const int fd = ::open(QFile::encodeName(dir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    ::fsync(fd);
    ::close(fd);
}

} // namespace

ReplacingFile::ReplacingFile(const QString &target)
    : m_name(target)
    , m_target(target)
{
}

ReplacingFile::~ReplacingFile()
{
    clearPending();
}

QFile &ReplacingFile::file()
{
    return m_isInPlace ? m_inPlace : static_cast<QFile &>(m_temporary);
}

QString ReplacingFile::errorString() const
{
    return m_error;
}

bool ReplacingFile::fail(const QString &what, const QString &reason)
{
    m_error = what + QLatin1String(" '") + m_name + QLatin1String("': ") + reason;
    return false;
}

bool ReplacingFile::resolveTarget()
{
    for (int depth = 0; QFileInfo(m_target).isSymLink(); ++depth) {
        if (depth == 40)
            return fail(QStringLiteral("cannot write"),
                        QStringLiteral("too many levels of symbolic links"));
        m_target = QFileInfo(m_target).symLinkTarget();
    }
    return true;
}

bool ReplacingFile::open()
{
    if (!resolveTarget())
        return false;
    struct stat status;
    const bool exists = ::stat(QFile::encodeName(m_target).constData(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode))
        return fail(QStringLiteral("cannot write"), QStringLiteral("is a directory"));
    if (exists && !S_ISREG(status.st_mode)) {
        m_isInPlace = true;
        m_inPlace.setFileName(m_target);
        if (!m_inPlace.open(QIODevice::WriteOnly))
            return fail(QStringLiteral("cannot write"), m_inPlace.errorString());
        return true;
    }
    const QFileInfo info(m_target);
    m_temporary.setFileTemplate(info.absolutePath() + QLatin1String("/.") + info.fileName()
                                + QLatin1String(".XXXXXX"));
    if (!m_temporary.open())
        return fail(QStringLiteral("cannot create a temporary file beside"),
                    m_temporary.errorString());
    setPending(m_temporary.fileName());
    return true;
}

bool ReplacingFile::writeFailed()
{
    QFile &out = file();
    if (out.flush() && out.error() == QFileDevice::NoError)
        return false;
    fail(QStringLiteral("cannot write"), out.errorString());
    return true;
}

bool ReplacingFile::commit()
{
    if (writeFailed())
        return false;
    if (m_isInPlace)
        return true;
    if (::fsync(m_temporary.handle()) != 0)
        return fail(QStringLiteral("cannot write"), systemError());

    struct stat target;
    const bool exists = ::stat(QFile::encodeName(m_target).constData(), &target) == 0;
    if (exists && isUnchanged(target.st_size))
        return true;
    if (!takeOverAttributes(exists, target))
        return false;
    const QByteArray from = QFile::encodeName(m_temporary.fileName());
    // rename(2) puts the new file in place in one step; QFile::rename refuses
    // an existing target and may fall back to copying.
    if (::rename(from.constData(), QFile::encodeName(m_target).constData()) != 0)
        return fail(QStringLiteral("cannot replace"), systemError());
    m_temporary.setAutoRemove(false);
    clearPending();
    syncDirectory(QFileInfo(m_target).absolutePath());
    return true;
}

// Whatever watches the target sees no change when the text is the same.
bool ReplacingFile::isUnchanged(qint64 targetSize)
{
    if (m_temporary.size() != targetSize)
        return false;
    QFile current(m_target);
    if (!current.open(QIODevice::ReadOnly) || !m_temporary.seek(0))
        return false;
    while (!current.atEnd()) {
        const QByteArray expected = current.read(1 << 16);
        if (expected.isEmpty() || m_temporary.read(expected.size()) != expected)
            return false;
    }
    return m_temporary.atEnd();
}

bool ReplacingFile::takeOverAttributes(bool targetExists, const struct stat &target)
{
    const int fd = m_temporary.handle();
    mode_t mode = target.st_mode & 07777;
    if (!targetExists) {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        mode = 0666 & ~mask;
    } else if (::fchown(fd, target.st_uid, target.st_gid) != 0 && errno != EPERM) {
        // Only a privileged process may give a file away; any other refusal
        // is a real failure. The owner goes first, since a change of owner
        // may clear set-id bits that the mode then restores.
        return fail(QStringLiteral("cannot keep the owner of"), systemError());
    }
    if (::fchmod(fd, mode) != 0)
        return fail(QStringLiteral("cannot keep the permissions of"), systemError());
    return true;
}
