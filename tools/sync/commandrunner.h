#ifndef COMMANDRUNNER_H
#define COMMANDRUNNER_H

#include <QByteArray>
#include <QString>

/**
 * \brief Runs a shell command with a time limit, in a process group of its own.
 *
 * The command runs through /bin/sh -c with its standard output and error
 * merged and kept for the log. At the time limit the whole process group
 * gets SIGTERM, and SIGKILL 5 s later, so that a hanging check takes its
 * children along. QProcess in Qt 5 cannot put its child into a new group,
 * so the shell is started through setsid(1), which makes it the leader of a
 * session and group of its own.
 */
class CommandRunner
{
public:
    /// Runs \a command for at most \a timeoutMs milliseconds. Returns true when it exited with
    /// status 0.
    bool run(const QString &command, int timeoutMs);
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
