#ifndef REPORTLOG_H
#define REPORTLOG_H

#include <QByteArray>
#include <QString>

/**
 * \brief Prints the library's reports on standard error and counts those
 * that fail a strict run.
 *
 * Reports go out exactly as the library composes them, one a line, after a
 * prefix that the program may set (the sync tool names the template there),
 * whatever QT_MESSAGE_PATTERN says. Every warning and every message of the
 * engine counts, except a registry lookup's fall-back to its default value:
 * a default is the template's own answer to a missing key, and a strict run
 * that refused every default would be unusable. Debug reports never count.
 */
namespace ReportLog {

/// Installs the message handler; the program's own errors go through printError().
void install();
/// Puts \a prefix before every report from now on.
void setPrefix(const QByteArray &prefix);
/// The reports that fail a strict run since the last reset.
int strictFailures();
void resetCount();
/// Prints "PROGRAM: MESSAGE" as one line on standard error.
void printError(const QString &message);

} // namespace ReportLog

#endif
