#ifndef COMMANDLINE_H
#define COMMANDLINE_H

#include <QString>

class QCommandLineOption;
class QCommandLineParser;

/**
 * \brief What both tools do with their command line before their own
 * options: parsing it, answering --help and --version, and reporting a usage
 * error with a pointer to --help.
 *
 * The tool's name and version are the application's, as main() sets them.
 */
namespace CommandLine {

/// The exit status of a usage error, the same for both tools.
const int UsageError = 2;

/// Prints "MESSAGE (see 'TOOL --help')" and returns UsageError.
int usageError(const QString &message);

/**
 * Parses the program's arguments and answers \a help and \a version. Returns
 * false when the program ends here with \a status: 0 after an answer,
 * UsageError after arguments it cannot parse.
 */
bool parse(QCommandLineParser &parser, const QCommandLineOption &help,
           const QCommandLineOption &version, int &status);

} // namespace CommandLine

#endif
