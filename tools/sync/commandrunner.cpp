#include "commandrunner.h"

#include <QProcess>

#include <csignal>

namespace {

const int s_killGraceMs = 5000;

} // namespace

QString shellQuoted(const QString &text)
{
    QString quoted = text;
    return QLatin1Char('\'') + quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"))
        + QLatin1Char('\'');
}

bool CommandRunner::run(const QString &command, int timeoutMs)
{
    m_output.clear();
    m_failure.clear();
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("setsid"),
                  {QStringLiteral("/bin/sh"), QStringLiteral("-c"), command});
    if (!process.waitForStarted()) {
        m_failure = QLatin1String("cannot start: ") + process.errorString();
        return false;
    }
    process.closeWriteChannel();
    const bool isTimely = process.waitForFinished(timeoutMs);
    if (!isTimely) {
        const pid_t group = pid_t(process.processId());
        ::kill(-group, SIGTERM);
        if (!process.waitForFinished(s_killGraceMs)) {
            ::kill(-group, SIGKILL);
            process.waitForFinished(-1);
        }
        m_failure = QStringLiteral("timed out after %1 ms").arg(timeoutMs);
    } else if (process.exitStatus() == QProcess::CrashExit) {
        m_failure = QStringLiteral("ended by a signal");
    } else if (process.exitCode() != 0) {
        m_failure = QStringLiteral("exit status %1").arg(process.exitCode());
    }
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
