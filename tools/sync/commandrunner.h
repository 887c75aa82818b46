#ifndef COMMANDRUNNER_H
#define COMMANDRUNNER_H

#include <QByteArray>
#include <QString>

#include <csignal>

/**
 * \brief Runs a shell command with a time limit, in a process group of its own.
 *
 * The command runs through /bin/sh -c in a session and process group of its
 * own (setsid() in the child), in a working directory of the caller's, with
 * its standard output and error merged and kept for the log. At the time
 * limit, or when the caller's stop flag is raised, the whole group gets
 * SIGTERM, and SIGKILL once 5 s have passed with any of it left, so that a
 * hanging check takes its children along. While the command runs, its group
 * is named to PendingNames, whose signal handler ends it with the tool.
 */
class CommandRunner
{
public:
    /**
     * Runs \a command in \a directory for at most \a timeoutMs milliseconds,
     * or until \a stopRequested becomes non-zero. Returns true when it exited
     * with status 0.
     */
    bool run(const QString &command, const QString &directory, int timeoutMs,
             const volatile sig_atomic_t *stopRequested);
    /// What the command printed, both streams together.
    QByteArray output() const;
    /// Why the command failed, in words for the log: "exit status 1", "timed out after 30 s".
    QString failure() const;

private:
    QByteArray m_output;
    QString m_failure;
};

/// \a text as one word for /bin/sh, in single quotes.
QString shellQuoted(const QString &text);

#endif
