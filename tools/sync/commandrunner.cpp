#include "commandrunner.h"

#include "pendingnames.h"
#include "qtcompat_p.h"

#include <QElapsedTimer>
#include <QProcess>

#include <unistd.h>

namespace {

const int s_killGraceMs = 5000;
const int s_sliceMs = 100;

// SIGTERM to the group, then SIGKILL once the grace time is over with any of it left.
void endGroup(QProcess &process, pid_t group)
{
    ::kill(-group, SIGTERM);
    QElapsedTimer grace;
    grace.start();
    process.waitForFinished(s_killGraceMs);
    while (::kill(-group, 0) == 0 && grace.elapsed() < s_killGraceMs)
        ::usleep(s_sliceMs * 1000);
    ::kill(-group, SIGKILL);
    process.waitForFinished(-1);
}

QString duration(int ms)
{
    return ms % 1000 == 0 ? QStringLiteral("%1 s").arg(ms / 1000) : QStringLiteral("%1 ms").arg(ms);
}

} // namespace

QString shellQuoted(const QString &text)
{
    QString quoted = text;
    return QLatin1Char('\'') + quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"))
        + QLatin1Char('\'');
}

bool CommandRunner::run(const QString &command, const QString &directory, int timeoutMs,
                        const volatile sig_atomic_t *stopRequested)
{
    m_output.clear();
    m_failure.clear();
    // The shell leads a session and process group of its own.
    TessivaneTemplatePrivate::SetUpProcess process([] { ::setsid(); });
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(directory);
    process.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), command});
    if (!process.waitForStarted()) {
        m_failure = QLatin1String("cannot start: ") + process.errorString();
        return false;
    }
    process.closeWriteChannel();
    const pid_t group = pid_t(process.processId());
    PendingNames::setProcessGroup(group);
    // In slices, so that a stop is seen while the command runs.
    QElapsedTimer elapsed;
    elapsed.start();
    while (!process.waitForFinished(qMin<qint64>(s_sliceMs, timeoutMs - elapsed.elapsed()))) {
        if (*stopRequested || elapsed.elapsed() >= timeoutMs) {
            endGroup(process, group);
            m_failure = *stopRequested ? QStringLiteral("ended as the tool stops")
                                       : QLatin1String("timed out after ") + duration(timeoutMs);
            break;
        }
    }
    PendingNames::setProcessGroup(0);
    if (m_failure.isEmpty() && process.exitStatus() == QProcess::CrashExit)
        m_failure = QStringLiteral("ended by a signal");
    else if (m_failure.isEmpty() && process.exitCode() != 0)
        m_failure = QStringLiteral("exit status %1").arg(process.exitCode());
    m_output = process.readAll();
    return m_failure.isEmpty();
}

QByteArray CommandRunner::output() const
{
    return m_output;
}

QString CommandRunner::failure() const
{
    return m_failure;
}
